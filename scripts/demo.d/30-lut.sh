# Lookup tables: build analytic curves, look at a file's header, convert
# between the text and binary forms, invert and merge tables, and apply one
# to a real image.
out="$IMB_DEMO_OUT/lut"
mkdir -p "$out"

echo "== build an sRGB encoding curve of 1024 samples as a text table"
"$IMBTOOL" lut build --kind srgb --dir encode --size 1024 "$out/srgb_encode.lut"
echo "-- its first lines:"
head -n 12 "$out/srgb_encode.lut"

echo
echo "== a gamma 2.2 decoding curve, stored as a binary table with half samples"
"$IMBTOOL" lut build --kind gamma --gamma 2.2 --dir decode --size 4096 --half "$out/gamma22_decode.blut"
"$IMBTOOL" lut info "$out/gamma22_decode.blut"

echo
echo "== convert the text table to binary and back: the text form keeps 6 digits"
"$IMBTOOL" lut convert "$out/srgb_encode.lut" "$out/srgb_encode.blut"
"$IMBTOOL" lut convert "$out/srgb_encode.blut" "$out/srgb_encode_again.lut"
ls -l "$out"/srgb_encode*

echo
echo "== invert the sRGB encoding curve into a decoding curve of 256 samples"
"$IMBTOOL" lut invert --size 256 "$out/srgb_encode.lut" "$out/srgb_decode_by_inversion.lut"

echo
echo "== merge: sRGB decode followed by Rec.709 encode"
"$IMBTOOL" lut build --kind srgb --dir decode --size 1024 "$out/srgb_decode.lut"
"$IMBTOOL" lut build --kind rec709 --dir encode --size 1024 "$out/rec709_encode.lut"
"$IMBTOOL" lut merge "$out/srgb_decode.lut" "$out/rec709_encode.lut" "$out/srgb_to_rec709.lut"
"$IMBTOOL" lut info "$out/srgb_to_rec709.lut"

echo
echo "== apply the sRGB decoding curve to the sample chart"
"$IMBTOOL" lut apply "$out/srgb_decode.lut" "$IMB_SHARE/images/chart_srgb8.png" "$out/chart_linear8.png"

echo
echo "== a file that is not a table is refused with the reader's messages"
printf 'Version 1\nType RGBX\n' > "$out/broken.lut"
"$IMBTOOL" lut info "$out/broken.lut" || echo "(imbtool exited with status $?, as expected)"
