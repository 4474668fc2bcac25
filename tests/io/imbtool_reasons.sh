#!/bin/sh
# imbtool's failures carry the library's reasons: OpenColorIO's text for a
# transform it cannot build and for a configuration it cannot load (told
# once, though the library logs the load error twice), OpenImageIO's for a
# file it cannot read. Usage: imbtool_reasons.sh IMBTOOL TEST_DATA_DIR
imbtool=$1
data=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0

# expect NAME EXPECTED-STDERR-PATTERN COMMAND...: the command fails with
# status 1 and its standard error is one line matching the grep pattern.
expect() {
  name=$1 pattern=$2
  shift 2
  "$@" > /dev/null 2> "$work/err"
  rc=$?
  if [ "$rc" -ne 1 ] || [ "$(wc -l < "$work/err")" -ne 1 ] || ! grep -q -- "$pattern" "$work/err"; then
    echo "FAIL $name (status $rc):"
    cat "$work/err"
    status=1
  else
    echo "ok   $name"
  fi
}

OCIO="$data/ocio/missing_lut.ocio" expect "bake through a missing table file" \
  "^imbtool: cannot bake a table from \"lin\" to \"lut\": OCIO processor error from \"lin\" to \"lut\": .*'missing.spi1d' could not be located" \
  "$imbtool" ocio bake --from lin --to lut "$work/out.lut"
OCIO="$data/ocio/broken.ocio" expect "configuration that does not load" \
  "^imbtool: cannot load the colour configuration \".*broken.ocio\": OCIO config load error: .*yaml" \
  "$imbtool" ocio list spaces
expect "unreadable image" \
  "^imbtool: cannot read image \"$work/missing.png\": ." \
  "$imbtool" convert "$work/missing.png" "$work/out.png"
exit $status
