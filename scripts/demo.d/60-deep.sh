#!/usr/bin/env bash
# Deep pixels: merge the sample lists of two sub-pixel positions, composite a
# pixel front to back, and reduce a colour channel to one value.
set -euo pipefail
CH="C:3,Of:3,id:1:ordinal"
DEEP="$IMB_SHARE/deep"

echo "== keep every sample: the null compressor interleaves both lists by depth"
"$IMBTOOL" deep merge --channels "$CH" --compressor null "$DEEP/subsample0.json" "$DEEP/subsample1.json"

echo "== the default (simple) compressor: surfaces within zbias join, the fog volume is cut at split depths"
"$IMBTOOL" deep merge --channels "$CH" --dump "$DEEP/subsample0.json" "$DEEP/subsample1.json"

echo "== the same with ofbias 1: neighbours join while the merged opacity stays within 1"
"$IMBTOOL" deep merge --channels "$CH" --option ofbias=1 \
  "$DEEP/subsample0.json" "$DEEP/subsample1.json" -o "$IMB_DEMO_OUT/deep-merged.json"
cat "$IMB_DEMO_OUT/deep-merged.json"

echo "== running composites of a four-sample pixel, and back"
"$IMBTOOL" deep composite --channels "C:3,Of:3" "$DEEP/pixel.json" -o "$IMB_DEMO_OUT/deep-composited.json" 2>/dev/null
cat "$IMB_DEMO_OUT/deep-composited.json"
"$IMBTOOL" deep uncomposite --channels "C:3,Of:3" "$IMB_DEMO_OUT/deep-composited.json"

echo "== the colour channel reduced to its mean"
"$IMBTOOL" deep filter --filter mono --filter-channel C --channels "$CH" "$DEEP/pixel.json"
