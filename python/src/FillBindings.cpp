// imb.fill: the pixel-transfer engine over numpy arrays and rasters.
//
// IMB_Fill moves one component per pixel between packed rectangles; these
// bindings run it once per channel of (height, width, channels) arrays, with
// the pixel step of the array as the component increment, so interleaved
// arrays, channel slices of them and the views of rasters of every packing
// are used in place.
#include "Bindings.h"

#include <pybind11/stl.h>

#include <optional>
#include <utility>

namespace imb_python
{
namespace
{
using Range = std::optional<std::pair<uint32, uint32>>;

void checkRange(const Range &range, IMB_DataFormat f, const char *what)
{
    if (range && (f == IMB_INT8 || f == IMB_INT16) && (range->first > imbDefinesWhite[f] || range->second > imbDefinesWhite[f]))
        throw py::value_error(std::string(what) + ": black and white must lie within the format's range 0-" +
                              std::to_string(imbDefinesWhite[f]));
}

// The destination's format and range. An explicit range is also stored when
// it is the format's full range, where setDestType leaves the stored values
// alone: the 32-bit integer rules read the stored range even on a fast
// destination, and a caller naming a range means it.
void setDest(IMB_FillParms &p, const Layout &d, const Range &range)
{
    if (!range)
    {
        p.setDestType(d.format, 0, 0);
        return;
    }
    p.setDestType(d.format, range->first, range->second);
    p.myDestBlack = range->first;
    p.myDestWhite = range->second;
}

void setDestArea(IMB_FillParms &p, const Layout &d)
{
    p.setDestArea(0, 0, d.width - 1, d.height - 1);
    p.myDestXInc = d.xinc;
}

bool empty(const Layout &l)
{
    return l.height < 1 || l.width < 1 || l.channels < 1;
}

void convert(py::handle srcObj, py::handle dstObj, const Range &srcRange, const Range &dstRange, float gamma,
             bool flipX, bool flipY, std::pair<int64, int64> offset, int64 rowStep, int64 rowOffset)
{
    py::array srcArr = arrayOf(srcObj, false, "convert"), dstArr = arrayOf(dstObj, true, "convert");
    const Layout s = readableLayout(srcArr);
    const Layout d = writableLayout(dstArr, "convert");
    if (s.channels != d.channels)
        throw py::value_error("convert: the source has " + std::to_string(s.channels) +
                              " channels, the destination " + std::to_string(d.channels));
    if (rowStep < 1 || rowOffset < 0)
        throw py::value_error("convert: row_step must be at least 1 and row_offset at least 0");
    checkRange(srcRange, s.format, "convert");
    checkRange(dstRange, d.format, "convert");
    if (py::module_::import("numpy").attr("may_share_memory")(srcArr, dstArr).cast<bool>())
        throw py::value_error("convert: the source and the destination overlap; copy the source first");
    if (empty(s) || empty(d))
        return;

    IMB_FillParms p;
    p.setSourceArea(0, 0, s.width - 1, s.height - 1);
    p.mySourceXInc = s.xinc;
    if (srcRange)
        p.setSourceType(s.format, srcRange->first, srcRange->second);
    else
        p.setSourceType(s.format, 0, 0);
    setDestArea(p, d);
    setDest(p, d, dstRange);
    p.myXOffset = offset.first;
    p.myYOffset = offset.second;
    p.myFlipX = flipX;
    p.myFlipY = flipY;
    p.mySourceYInc = rowStep;
    p.mySourceYOffset = rowOffset;
    p.myGamma = gamma;
    py::gil_scoped_release nogil;
    for (int64 c = 0; c < s.channels; ++c)
    {
        p.mySource = s.channel(c);
        p.myDest = d.channel(c);
        IMB_Fill::fill(p);
    }
}

// One float per channel: a number for all, or a sequence of one per channel.
std::vector<float> perChannel(py::handle v, const Layout &d, const char *what)
{
    if (PyFloat_Check(v.ptr()) || PyLong_Check(v.ptr()))
        return std::vector<float>(static_cast<std::size_t>(d.channels), v.cast<float>());
    std::vector<float> out = v.cast<std::vector<float>>();
    if (static_cast<int64>(out.size()) != d.channels)
        throw py::value_error(std::string(what) + ": expected " + std::to_string(d.channels) + " values, got " +
                              std::to_string(out.size()));
    return out;
}

void clear(py::handle dstObj, py::handle value, const Range &range, std::optional<std::tuple<int64, int64, int64, int64>> region)
{
    py::array arr = arrayOf(dstObj, true, "clear");
    const Layout d = writableLayout(arr, "clear");
    checkRange(range, d.format, "clear");
    const std::vector<float> values = perChannel(value, d, "clear");
    if (empty(d))
        return;
    IMB_FillParms p;
    setDestArea(p, d);
    setDest(p, d, range);
    if (region)
    {
        auto [x1, y1, x2, y2] = *region;
        p.setSourceArea(x1, y1, x2, y2);
    }
    py::gil_scoped_release nogil;
    for (int64 c = 0; c < d.channels; ++c)
    {
        p.myDest = d.channel(c);
        p.myValue = values[static_cast<std::size_t>(c)];
        IMB_Fill::clear(p);
    }
}

void invert(py::handle dstObj, float scale, const Range &range)
{
    py::array arr = arrayOf(dstObj, true, "invert");
    const Layout d = writableLayout(arr, "invert");
    checkRange(range, d.format, "invert");
    if (empty(d))
        return;
    IMB_FillParms p;
    setDestArea(p, d);
    setDest(p, d, range);
    p.myValue = scale;
    py::gil_scoped_release nogil;
    for (int64 c = 0; c < d.channels; ++c)
    {
        p.myDest = d.channel(c);
        IMB_Fill::invert(p);
    }
}

void scale(py::handle dstObj, py::handle factor, const Range &range, bool divide)
{
    const char *what = divide ? "divide" : "multiply";
    py::array arr = arrayOf(dstObj, true, what);
    const Layout d = writableLayout(arr, what);
    checkRange(range, d.format, what);
    IMB_FillParms p;
    py::array_t<float, py::array::c_style | py::array::forcecast> factors;
    if (PyFloat_Check(factor.ptr()) || PyLong_Check(factor.ptr()))
    {
        p.myUsePixelFactors = 0;
        p.myFactor = factor.cast<float>();
    }
    else
    {
        factors = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(factor);
        if (!factors || factors.ndim() != 2 || factors.shape(0) != d.height || factors.shape(1) != d.width)
            throw py::value_error(std::string(what) + ": per-pixel factors must be an array of shape (" +
                                  std::to_string(d.height) + ", " + std::to_string(d.width) + ")");
        p.myUsePixelFactors = 1;
        p.myPixelFactors = factors.data();
    }
    if (empty(d))
        return;
    setDestArea(p, d);
    setDest(p, d, range);
    py::gil_scoped_release nogil;
    for (int64 c = 0; c < d.channels; ++c)
    {
        p.myDest = d.channel(c);
        if (divide)
            IMB_Fill::divide(p);
        else
            IMB_Fill::multiply(p);
    }
}
} // namespace

void bindFill(py::module_ &m)
{
    py::module_ f = m.def_submodule("fill", "Pixel transfer and arithmetic (see imb.fill).");
    f.def("convert", &convert, py::arg("src"), py::arg("dst"), py::kw_only(), py::arg("src_range") = py::none(),
          py::arg("dst_range") = py::none(), py::arg("gamma") = 1.0f, py::arg("flip_x") = false,
          py::arg("flip_y") = false, py::arg("offset") = std::pair<int64, int64>(0, 0), py::arg("row_step") = 1,
          py::arg("row_offset") = 0, R"doc(
Copies `src` into `dst` (numpy arrays of shape (height, width) or (height,
width, channels), or rasters), converting between their dtypes, channel by
channel; both need the same number of channels.

- `src_range`, `dst_range`: (black, white) integer values of integer
  buffers; a value v stands for (v - black) / (white - black). None is the
  format's full range. Without `dst_range` a uint32 destination is written
  over 0-255 from float, half and 16-bit sources (the library's default
  destination range, kept): pass dst_range=(0, 2**32 - 1) for the full range.
- Integers round half up (floor(y + 0.5)) and clamp; 8 to 16 bits
  replicates (v * 257) and narrowing rounds on the highest dropped bit.
- `gamma`: other than 1, maps the written uint8 and uint16 components through
  the gamma table; other formats ignore it.
- `offset`: (x, y) of the source's first pixel in the destination; the
  source is clipped to the destination. `flip_x`, `flip_y` mirror it.
- `row_step`, `row_offset`: of the source rows that fit the destination,
  take every row_step-th from row_offset, packed together in the
  destination.

TypeError for an unsupported dtype; ValueError for mismatched channels, a
read-only or unpacked destination, or overlapping buffers.
)doc");
    f.def("clear", &clear, py::arg("dst"), py::arg("value"), py::kw_only(), py::arg("range") = py::none(),
          py::arg("region") = py::none(), R"doc(
Writes `value` (a fraction of the black-to-white range; one number, or one
per channel) into every pixel of `dst`, or of the inclusive rectangle
`region` (x1, y1, x2, y2) clipped to it. Integer formats store
floor(value * (white - black) + black + 0.5) clamped; uint32 uses `range` or
the default 0-255 (see convert).
)doc");
    f.def("invert", &invert, py::arg("dst"), py::arg("scale") = 1.0f, py::kw_only(), py::arg("range") = py::none(),
          R"doc(
Replaces every component, as a fraction x of its range, by (1 - x) * scale,
written back with the format's rounding.
)doc");
    f.def(
        "multiply", [](py::handle d, py::handle f, const Range &r) { scale(d, f, r, false); }, py::arg("dst"),
        py::arg("factor"), py::kw_only(), py::arg("range") = py::none(), R"doc(
Multiplies every component by `factor`: one number, or an array of shape
(height, width) holding one factor per pixel. Results are written back with
the format's rounding and clamping.
)doc");
    f.def(
        "divide", [](py::handle d, py::handle f, const Range &r) { scale(d, f, r, true); }, py::arg("dst"),
        py::arg("factor"), py::kw_only(), py::arg("range") = py::none(), R"doc(
Divides every component by `factor` (a number or per-pixel array, as in
multiply). A number multiplies by its reciprocal (0 gives 0); a per-pixel
factor of 0 writes 0 for that pixel.
)doc");
}
} // namespace imb_python
