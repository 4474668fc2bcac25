# The Python module: grade the project's images with imb from Python.
# OpenImageIO's Python module reads and writes them; imb converts them to
# float rasters, applies a table baked from the demo colour configuration,
# premultiplies and makes luma images (python/examples/grade.py).
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
pkg="$root/build/python"
if [ ! -d "$pkg/imb" ]; then
  echo "(the Python module was not built: IMB_BUILD_PYTHON is off)"
  exit 0
fi
# Debian's interpreter has numpy and OpenImageIO's module; a python3 first on
# PATH (pyenv, a virtual environment) may have neither.
py=$(command -v /usr/bin/python3 || command -v python3)
export PYTHONPATH="$pkg${PYTHONPATH:+:$PYTHONPATH}"
out="$IMB_DEMO_OUT/python"
mkdir -p "$out"

echo "== the HDR ramp: linear to sRGB through a baked table, premultiplied, as 8-bit PNG"
"$py" "$root/python/examples/grade.py" "$IMB_SHARE/images/ramp_hdr_half.exr" "$out/ramp_srgb.png"

echo
echo "== the sRGB chart: to linear at half saturation, as half-float EXR"
"$py" "$root/python/examples/grade.py" "$IMB_SHARE/images/chart_srgb8.png" "$out/chart_linear.exr" \
  --to "Linear Rec.709 (sRGB)" --saturation 0.5

echo
echo "== a raster's pixels are a numpy view: writes go both ways, no copy"
"$py" - <<'PY'
import numpy as np, imb
r = imb.Raster(imb.Packing.RGB_NI, imb.Format.FLOAT16, 4, 2)   # three planes of half floats
v = np.asarray(r)
print("view", v.shape, v.dtype, "strides", v.strides)
v[1, 2] = [0.25, 0.5, 1.0]
print("get_pixel(2, 1) =", r.get_pixel(2, 1))
imb.Lookup.gamma(2.0).apply(r)                                 # square roots, in place
print("after a gamma 2 table, the view holds", v[1, 2])
PY
