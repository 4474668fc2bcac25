# Colour management: the configuration named by $OCIO (share/ocio/config.ocio,
# libIMB's small default), its spaces, roles, displays and views, then one
# image converted from sRGB to linear twice, through a baked table and
# directly through the processor, and a table baked to both file forms.
echo "== OCIO=$OCIO"
echo "== imbtool ocio list spaces: every colour space, its allocation and the raster tag it maps to"
"$IMBTOOL" ocio list spaces

echo
echo "== imbtool ocio list roles"
"$IMBTOOL" ocio list roles

echo
echo "== imbtool ocio list displays / views (the default display's default view is the default view transform when the configuration has one)"
"$IMBTOOL" ocio list displays
"$IMBTOOL" ocio list views

echo
echo "== sRGB chart to linear through a baked 1D table and applyLUT"
"$IMBTOOL" ocio convert "$IMB_SHARE/images/chart_srgb8.png" "$IMB_DEMO_OUT/chart_linear_baked.exr" \
  --from "sRGB - Texture" --to "Linear Rec.709 (sRGB)" --baked

echo
echo "== the same directly through the processor (names may be aliases)"
"$IMBTOOL" ocio convert "$IMB_SHARE/images/chart_srgb8.png" "$IMB_DEMO_OUT/chart_linear_direct.exr" \
  --from srgb --to linear --direct

echo
echo "== linear back to Rec.709 for viewing, baked"
"$IMBTOOL" ocio convert "$IMB_DEMO_OUT/chart_linear_baked.exr" "$IMB_DEMO_OUT/chart_rec709.png" \
  --from linear --to rec709

echo
echo "== bake sRGB -> Rec.709 to a text table and linear -> sRGB (log-sampled over the lg2 allocation) to a binary one"
"$IMBTOOL" ocio bake --from srgb --to rec709 "$IMB_DEMO_OUT/srgb_to_rec709.lut"
"$IMBTOOL" ocio bake --from linear --to srgb "$IMB_DEMO_OUT/linear_to_srgb.blut"
head -n 9 "$IMB_DEMO_OUT/srgb_to_rec709.lut"
