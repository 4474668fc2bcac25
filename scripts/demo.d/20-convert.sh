# Format conversion with IMB_Fill: the shipped images converted between data
# formats, with black/white points and gamma.
chart="$IMB_SHARE/images/chart_srgb8.png"
ramp="$IMB_SHARE/images/ramp_hdr_half.exr"

echo "== 8-bit chart to 16 bits: each code v becomes v * 257"
"$IMBTOOL" convert "$chart" "$IMB_DEMO_OUT/convert_chart16.png" --to int16

echo
echo "== 8-bit chart to half float, reading it as video range (16 is black, 235 is white)"
"$IMBTOOL" convert "$chart" "$IMB_DEMO_OUT/convert_chart_video.exr" --to float16 --source-black 16 --source-white 235

echo
echo "== half-float HDR ramp to 8 bits: values above 1 clamp to 255, halves round up"
"$IMBTOOL" convert "$ramp" "$IMB_DEMO_OUT/convert_ramp8.png" --to int8

echo
echo "== the same ramp to 8 bits with gamma 2.2 applied after the conversion"
"$IMBTOOL" convert "$ramp" "$IMB_DEMO_OUT/convert_ramp8_gamma.png" --to int8 --gamma 2.2

echo
echo "== the ramp to 16 bits into a custom range 4096-60160"
"$IMBTOOL" convert "$ramp" "$IMB_DEMO_OUT/convert_ramp16_custom.tif" --to int16 --dest-black 4096 --dest-white 60160

echo
echo "== the ramp to 32-bit integers (full 32-bit range)"
"$IMBTOOL" convert "$ramp" "$IMB_DEMO_OUT/convert_ramp32.tif" --to int32
