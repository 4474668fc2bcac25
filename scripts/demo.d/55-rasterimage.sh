# The raster's image operations: value range, reduction to 8 bits with and
# without dithering, edge streaking, and direct-table application.
echo "== the value range of the HDR ramp (halves up to 100) and of the 8-bit chart"
"$IMBTOOL" range "$IMB_SHARE/images/ramp_hdr_half.exr"
"$IMBTOOL" range "$IMB_SHARE/images/chart_srgb8.png"

echo
echo "== the HDR ramp to 8 bits: values 0..4 over the codes, gamma 2.2, rounded as IMB_Fill rounds"
"$IMBTOOL" convert8 "$IMB_SHARE/images/ramp_hdr_half.exr" "$IMB_DEMO_OUT/ramp_8bit.png" --white 4 --gamma 2.2

echo
echo "== the same, dithered: Bayer 8x8 and Floyd-Steinberg (no banding steps in the shadows)"
"$IMBTOOL" convert8 "$IMB_SHARE/images/ramp_hdr_half.exr" "$IMB_DEMO_OUT/ramp_bayer8.png" --white 4 --gamma 2.2 \
  --dither bayer8
"$IMBTOOL" dither "$IMB_SHARE/images/ramp_hdr_half.exr" "$IMB_DEMO_OUT/ramp_fs.png"

echo
echo "== keep a 128x96 region of the chart and streak its edges over the rest (render-region padding)"
"$IMBTOOL" streak "$IMB_SHARE/images/chart_srgb8.png" "$IMB_DEMO_OUT/chart_streaked.png" --area 64 64 128 96

echo
echo "== a gamma 2.2 table on the 8-bit chart through the raster's direct tables"
"$IMBTOOL" lut build "$IMB_DEMO_OUT/gamma22.lut" --kind gamma --gamma 2.2 >/dev/null
"$IMBTOOL" lut apply "$IMB_DEMO_OUT/gamma22.lut" "$IMB_SHARE/images/chart_srgb8.png" "$IMB_DEMO_OUT/chart_gamma22.png"
