# Deep OpenEXR images through the file component: two synthetic layers
# (share/deep/layer_a.exr and layer_b.exr: translucent sheets, point samples
# and volume slabs, in front of a backdrop) merged through the pixel
# accumulator, then flattened to a flat RGBA image.
echo "== merge the two deep layers, keeping every sample (the null compressor)"
"$IMBTOOL" deep merge "$IMB_SHARE/deep/layer_a.exr" "$IMB_SHARE/deep/layer_b.exr" -o "$IMB_DEMO_OUT/layers_merged.exr"


echo
echo "== flatten the merge front to back into RGBA, and look at its range"
"$IMBTOOL" deep flatten "$IMB_DEMO_OUT/layers_merged.exr" -o "$IMB_DEMO_OUT/layers_flat.exr"
"$IMBTOOL" range "$IMB_DEMO_OUT/layers_flat.exr"
"$IMBTOOL" convert8 "$IMB_DEMO_OUT/layers_flat.exr" "$IMB_DEMO_OUT/layers_flat.png"
