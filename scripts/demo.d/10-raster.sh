# Rasters: the library's formats and tables, then rasters of a few shapes
# filled through setPixelValue and read back, saved as image files.
echo "== imbtool info: version, processor capabilities, format and packing tables"
"$IMBTOOL" info

echo
echo "== an 8-bit RGBA raster: stride is 4 bytes x width; values are truncated on the way in"
"$IMBTOOL" raster --packing rgba --format int8 --width 8 --height 4

echo
echo "== a half-float RGB raster of 640 x 480, saved as OpenEXR"
"$IMBTOOL" raster --packing rgb --format float16 --width 640 --height 480 --save "$IMB_DEMO_OUT/raster_ramp.exr"

echo
echo "== a 32-bit integer raster: 1.0 is stored as 2^32, which wraps to 0 (kept on purpose)"
"$IMBTOOL" raster --packing single --format int32 --width 4 --height 2

echo
echo "== a plane-per-component raster: setPixelValue writes along plane 0 (kept on purpose)"
"$IMBTOOL" raster --packing rgb_ni --format int16 --width 4 --height 2

echo
echo "== the sample images shipped in $IMB_SHARE/images"
ls -l "$IMB_SHARE/images"
