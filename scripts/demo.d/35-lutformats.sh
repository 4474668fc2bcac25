# Lookup tables in the formats other tools exchange: a cube baked by
# OpenColorIO's own baker as a .cube file, converted to the binary .blut
# form and back, then to .3dl and .csp, and applied to the sample HDR ramp.
out="$IMB_DEMO_OUT/lutformats"
mkdir -p "$out"

echo "== OpenColorIO's baker writes linear -> sRGB as a 17-edge .cube (from \$OCIO)"
ociobakelut --iconfig "$OCIO" --inputspace "Linear Rec.709 (sRGB)" --outputspace "sRGB - Texture" \
  --format iridas_cube --cubesize 17 "$out/to_srgb.cube" > /dev/null
head -n 3 "$out/to_srgb.cube"
"$IMBTOOL" lut info "$out/to_srgb.cube"

echo
echo "== .cube -> .blut -> .cube: the cube comes back sample for sample"
"$IMBTOOL" lut convert "$out/to_srgb.cube" "$out/to_srgb.blut"
"$IMBTOOL" lut convert "$out/to_srgb.blut" "$out/to_srgb_again.cube"
"$IMBTOOL" lut convert "$out/to_srgb_again.cube" "$out/to_srgb_again.blut"
cmp "$out/to_srgb.blut" "$out/to_srgb_again.blut" && echo "the two .blut files are identical"

echo
echo "== the same table as .3dl (16-bit integers, blue fastest) and .csp"
"$IMBTOOL" lut convert "$out/to_srgb.cube" "$out/to_srgb.3dl"
"$IMBTOOL" lut info "$out/to_srgb.3dl"
"$IMBTOOL" lut convert "$out/to_srgb.cube" "$out/to_srgb.csp"

echo
echo "== apply the .cube to the half-float HDR ramp"
"$IMBTOOL" lut apply "$out/to_srgb.cube" "$IMB_SHARE/images/ramp_hdr_half.exr" "$out/ramp_srgb.exr"

echo
echo "== a format that cannot hold the table refuses it and writes nothing"
"$IMBTOOL" lut convert "$out/to_srgb.cube" "$out/to_srgb.spi1d" || echo "(imbtool exited with status $?, as expected)"
[ ! -e "$out/to_srgb.spi1d" ] && echo "no .spi1d file was left behind"
