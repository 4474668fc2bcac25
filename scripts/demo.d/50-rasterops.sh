# Raster alpha, saturation and stream operations, and luma, on the sample
# images: the EXR's bottom band has alpha ramping from 0 to 1.
echo "== premultiply the half-float RGBA ramp (alpha ramps 0..1 in the bottom band)"
"$IMBTOOL" premult "$IMB_SHARE/images/ramp_hdr_half.exr" "$IMB_DEMO_OUT/ramp_premult.exr"

echo
echo "== and unpremultiply it again (pixels with alpha 0 or 1 are left alone)"
"$IMBTOOL" unpremult "$IMB_DEMO_OUT/ramp_premult.exr" "$IMB_DEMO_OUT/ramp_unpremult.exr"

echo
echo "== saturation 0.25 and 2.0 on the 8-bit chart (raw code values, rounded and clamped)"
"$IMBTOOL" saturation --amount 0.25 "$IMB_SHARE/images/chart_srgb8.png" "$IMB_DEMO_OUT/chart_sat025.png"
"$IMBTOOL" saturation --amount 2.0 "$IMB_SHARE/images/chart_srgb8.png" "$IMB_DEMO_OUT/chart_sat2.png"

echo
echo "== luma of the chart: weighted (8-bit terms truncate: white gives 253), ntsc, max"
for f in weighted ntsc max; do
  "$IMBTOOL" luma --function "$f" "$IMB_SHARE/images/chart_srgb8.png" "$IMB_DEMO_OUT/chart_luma_$f.png"
done

echo
echo "== the raster stream form: binary (little-endian) and text (uuencoded), each loaded back"
"$IMBTOOL" stream save "$IMB_SHARE/images/ramp_hdr_half.exr" "$IMB_DEMO_OUT/ramp.rasterbin"
"$IMBTOOL" stream load "$IMB_DEMO_OUT/ramp.rasterbin" "$IMB_DEMO_OUT/ramp_from_binary.exr"
"$IMBTOOL" stream save "$IMB_SHARE/images/chart_srgb8.png" "$IMB_DEMO_OUT/chart.rastertxt" --text
echo "first lines of the text form:"
head -n 3 "$IMB_DEMO_OUT/chart.rastertxt"
"$IMBTOOL" stream load "$IMB_DEMO_OUT/chart.rastertxt" "$IMB_DEMO_OUT/chart_from_text.png"
