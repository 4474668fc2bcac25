// imb.Lookup: lookup tables, their builders, evaluation, application to
// rasters and files.
#include "Bindings.h"

#include <IMB/platform/CRV_Clip.h>

#include <pybind11/stl.h>

#include <optional>
#include <utility>

namespace imb_python
{
namespace
{
// A table as Python holds it, with a count of the applications running
// without the GIL; changing the table meanwhile is refused.
struct PyLookup
{
    IMB_Lookup lut;
    int busy = 0;

    IMB_Lookup &change()
    {
        if (busy)
            throw py::buffer_error("imb.Lookup: the table is being applied in another thread");
        return lut;
    }
};

std::string pathOf(const py::object &path)
{
    return py::str(py::module_::import("os").attr("fspath")(path)).cast<std::string>();
}

void checkSize(int size)
{
    if (size < 2)
        throw py::value_error("a table needs at least 2 samples");
}

IMB_Lookup::Dir dirOf(bool inverse)
{
    return inverse ? IMB_Lookup::INVERSE : IMB_Lookup::FORWARD;
}

// A channel argument of the evaluation: R, G, B or A.
IMB_LookupType channelOf(IMB_LookupType c)
{
    if (c != IMB_LUT_R && c != IMB_LUT_G && c != IMB_LUT_B && c != IMB_LUT_A)
        throw py::value_error("channel must be LookupType.R, G, B or A");
    return c;
}

std::unique_ptr<PyLookup> fromTables(py::handle values, std::optional<IMB_LookupType> type)
{
    auto t = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(values);
    if (!t || (t.ndim() != 1 && t.ndim() != 2))
        throw py::value_error("from_tables: expected an array of shape (samples,) or (tables, samples)");
    const int64 rows = t.ndim() == 1 ? 1 : t.shape(0);
    const int64 n = t.shape(t.ndim() - 1);
    if (n < 2 || n > (1 << 24))
        throw py::value_error("from_tables: a table needs 2 to 16777216 samples");
    IMB_LookupType kind;
    if (rows == 1)
    {
        kind = type.value_or(IMB_LUT_ALL);
        if (kind == IMB_LUT_RGB || kind == IMB_LUT_RGBA || kind == IMB_LUT_3D || kind == IMB_LUT_3D_1D)
            throw py::value_error("from_tables: one table makes an R, G, B, A, C or ALL table");
    }
    else if (rows == 3 || rows == 4)
    {
        kind = rows == 3 ? IMB_LUT_RGB : IMB_LUT_RGBA;
        if (type && *type != kind)
            throw py::value_error("from_tables: three tables make an RGB table, four an RGBA table");
    }
    else
        throw py::value_error("from_tables: expected 1, 3 or 4 tables");
    auto out = std::make_unique<PyLookup>();
    IMB_Lookup &lut = out->lut;
    lut.setType(kind);
    // An RGBA type gets three tracks; its alpha track is added here.
    lut.setNumChannels(static_cast<int>(std::max<int64>(rows, lut.getNumChannels())));
    lut.setTableSize(static_cast<int>(n));
    for (int64 r = 0; r < rows; ++r)
    {
        IMB_LookupType channel = static_cast<IMB_LookupType>(1 << r);
        if (rows == 1)
            channel = (kind & 15) == kind ? kind : IMB_LUT_R;
        double *dst = lut.getRawLUT(channel);
        std::copy(t.data() + r * n, t.data() + (r + 1) * n, dst);
    }
    return out;
}

std::unique_ptr<PyLookup> fromCube(py::handle values)
{
    auto c = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(values);
    if (!c || c.ndim() != 4 || c.shape(3) != 3 || c.shape(0) != c.shape(1) || c.shape(1) != c.shape(2) ||
        c.shape(0) < 2 || c.shape(0) > 1024)
        throw py::value_error("from_cube: expected an array of shape (n, n, n, 3), 2 <= n <= 1024, indexed "
                              "[blue][green][red]");
    auto out = std::make_unique<PyLookup>();
    out->lut.set3DLUT(static_cast<int>(c.shape(0)), c.data());
    return out;
}

py::object eval(const PyLookup &l, py::handle x, IMB_LookupType channel)
{
    channelOf(channel);
    if (PyFloat_Check(x.ptr()) || PyLong_Check(x.ptr()))
        return py::float_(l.lut.evalLUT(channel, x.cast<float>()));
    auto in = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(x);
    if (!in)
        throw py::type_error("eval: expected a number or an array of numbers");
    py::array_t<float> out(std::vector<py::ssize_t>(in.shape(), in.shape() + in.ndim()));
    const float *src = in.data();
    float *dst = out.mutable_data();
    const py::ssize_t n = in.size();
    {
        py::gil_scoped_release nogil;
        for (py::ssize_t i = 0; i < n; ++i)
            dst[i] = l.lut.evalLUT(channel, src[i]);
    }
    return std::move(out);
}

void apply(PyLookup &l, PyRaster &r, float gamma, float black, float white, std::optional<int> channel)
{
    if (channel && (*channel < 0 || *channel > 3))
        throw py::value_error("apply: channel must be None or 0 to 3");
    IMB_Raster &ras = r.pixels();
    PixelWork w(r);
    struct InUse
    {
        int &count;
        explicit InUse(int &c) : count(c) { ++count; }
        ~InUse() { --count; }
    } inUse(l.busy);
    py::gil_scoped_release nogil;
    // The raster's entry point gives the same pixels, through per-value
    // tables for 8- and 16-bit rasters.
    ras.applyLUT(l.lut, gamma, black, white, channel.value_or(-1));
}
} // namespace

void bindLookup(py::module_ &m)
{
    py::class_<PyLookup> cls(m, "Lookup", R"doc(
A lookup table: 1D tables (one per channel, or one shared), a 3D colour
cube, or a cube with a shared 1D pre-table; with an input domain, an output
range and optional logarithmic sampling of the input. Build one with the
static builders, evaluate it with eval, apply it to a raster in place with
apply, and keep it in ".lut" (text) or ".blut" (binary) files.
)doc");
    cls.def(py::init([] { return std::make_unique<PyLookup>(); }),
            "An empty table: type ALL, no tables, domain and range 0-1.");

    cls.def_static(
           "gamma",
           [](double gamma, bool inverse, int size) {
               checkSize(size);
               if (!(gamma > 0))
                   throw py::value_error("gamma must be above 0");
               auto l = std::make_unique<PyLookup>();
               l->lut.buildGamma(gamma, dirOf(inverse), size);
               return l;
           },
           py::arg("gamma"), py::arg("inverse") = false, py::arg("size") = 1024, R"doc(
A C table (one table shared by R, G and B) of `size` samples at
x = i / (size - 1): x ** (1 / gamma), or x ** gamma when `inverse`.
)doc")
        .def_static(
            "srgb",
            [](bool inverse, int size) {
                checkSize(size);
                auto l = std::make_unique<PyLookup>();
                l->lut.buildSRGB(dirOf(inverse), size);
                return l;
            },
            py::arg("inverse") = false, py::arg("size") = 1024, R"doc(
The sRGB curve as a C table: encode 1.055 x ** (1/2.4) - 0.055 above
0.0031308, else 12.92 x; decode (inverse) ((x + 0.055) / 1.055) ** 2.4 above
0.004045 (the library's threshold, kept), else x / 12.92.
)doc")
        .def_static(
            "rec709",
            [](bool inverse, int size) {
                checkSize(size);
                auto l = std::make_unique<PyLookup>();
                l->lut.buildREC709(dirOf(inverse), size);
                return l;
            },
            py::arg("inverse") = false, py::arg("size") = 1024, R"doc(
The Rec.709 curve as a C table: encode 1.099 x ** 0.45 - 0.099 from 0.018,
else 4.5 x; decode ((x + 0.099) / 1.099) ** (1/0.45) from 0.081, else x / 4.5.
)doc")
        .def_static(
            "from_colorspaces",
            [](const std::string &src, const std::string &dst, const std::string &looks, bool large) {
                auto l = std::make_unique<PyLookup>();
                Messages msgs;
                bool ok;
                {
                    py::gil_scoped_release nogil;
                    ok = l->lut.buildOpenColorIO(src.c_str(), dst.c_str(), looks.empty() ? nullptr : looks.c_str(),
                                                 large ? 1 : 0);
                }
                if (!ok)
                    msgs.fail("imb.Lookup: no colour transform from '" + src + "' to '" + dst + "'");
                return l;
            },
            py::arg("src"), py::arg("dst"), py::arg("looks") = "", py::arg("large") = false, R"doc(
Bakes the colour transform from colour space `src` to `dst` of the
configuration (through `looks`, one look name) into an RGB table of 8192
samples when it works per channel, else into a cube of edge 64 (96 when
`large` and neither space reports an allocation). The sampling interval
follows the spaces' allocations. imb.Error for unknown spaces, no
configuration, or a failed transform.
)doc")
        .def_static(
            "from_display_view",
            [](const std::string &src, const std::string &display, const std::string &view, const std::string &looks,
               bool inverse, bool large) {
                auto l = std::make_unique<PyLookup>();
                Messages msgs;
                bool ok;
                {
                    py::gil_scoped_release nogil;
                    ok = l->lut.buildOpenColorIOView(src.c_str(), display.c_str(), view.c_str(),
                                                     looks.empty() ? nullptr : looks.c_str(), nullptr, !inverse,
                                                     large ? 1 : 0);
                }
                if (!ok)
                    msgs.fail("imb.Lookup: no display transform from '" + src + "' to '" + display + "'/'" + view +
                              "'");
                return l;
            },
            py::arg("src"), py::arg("display"), py::arg("view"), py::arg("looks") = "", py::arg("inverse") = false,
            py::arg("large") = false,
            "As from_colorspaces for the display/view transform from `src` to `display` and `view` (its inverse "
            "when `inverse`).")
        .def_static("from_tables", &fromTables, py::arg("tables"), py::arg("type") = py::none(), R"doc(
A 1D table from samples over the domain 0-1: an array of shape (samples,)
makes one table (type ALL, or the given R, G, B, A or C), (3, samples) an
RGB table and (4, samples) an RGBA table.
)doc")
        .def_static("from_cube", &fromCube, py::arg("cube"), R"doc(
A 3D table from an array of shape (n, n, n, 3) indexed [blue][green][red]
(red varies fastest in memory), sampled over 0-1 on each axis.
)doc")
        .def_static(
            "load",
            [](const py::object &path, bool headerOnly) {
                const std::string p = pathOf(path);
                auto l = std::make_unique<PyLookup>();
                Messages msgs;
                if (!l->lut.load(p.c_str(), headerOnly))
                    msgs.fail("imb.Lookup: cannot load '" + p + "'");
                return l;
            },
            py::arg("path"), py::arg("header_only") = false, R"doc(
Loads a ".lut" (text) or ".blut" (binary) file; with `header_only`, only
its header. imb.Error, carrying the reader's messages, for a missing or
malformed file or another extension.
)doc")
        .def(
            "save",
            [](const PyLookup &l, const py::object &path, bool half) {
                const std::string p = pathOf(path);
                Messages msgs;
                if (!l.lut.save(p.c_str(), half))
                    msgs.fail("imb.Lookup: cannot save '" + p + "'");
            },
            py::arg("path"), py::arg("half") = false, R"doc(
Saves the table: the binary form for ".blut" (samples as float32, or
float16 with `half`), the text form for any other extension (which keeps no
log bias). imb.Error when the file cannot be written.
)doc")
        .def(
            "copy", [](const PyLookup &l) { return std::make_unique<PyLookup>(PyLookup{l.lut, 0}); },
            "A copy of the tables, cube and settings.");

    cls.def_property_readonly(
           "type", [](const PyLookup &l) { return static_cast<IMB_LookupType>(l.lut.getType() & ~IMB_LUT_LOG_SAMPLING); },
           "The kind of table (imb.LookupType), without the log-sampling flag.")
        .def_property(
            "log_sampling", [](const PyLookup &l) { return l.lut.getLogSampling(); },
            [](PyLookup &l, bool on) { l.change().setLogSampling(on); },
            "Whether the input is sampled logarithmically; cannot be set on a CUBE_1D table.")
        .def_property_readonly("table_size", [](const PyLookup &l) { return l.lut.getTableSize(); },
                               "Samples per 1D table.")
        .def_property_readonly("num_tables", [](const PyLookup &l) { return l.lut.getNumChannels(); },
                               "Number of 1D tables (tracks).")
        .def_property_readonly("cube_size", [](const PyLookup &l) { return l.lut.get3DSize(); },
                               "Samples per cube edge; 0 without a cube.")
        .def_property_readonly("is_valid", [](const PyLookup &l) { return l.lut.isValid(); },
                               "True when the table has a cube or at least one 1D table.")
        .def_property(
            "domain",
            [](const PyLookup &l) {
                float a, b;
                l.lut.getDomain(a, b);
                return py::make_tuple(a, b);
            },
            [](PyLookup &l, std::pair<float, float> d) { l.change().setDomain(d.first, d.second); },
            "The input interval (min, max); set in either order. With log sampling a minimum below 1e-6 becomes "
            "1e-6.")
        .def_property(
            "range",
            [](const PyLookup &l) {
                float a, b;
                l.lut.getRange(a, b);
                return py::make_tuple(a, b);
            },
            [](PyLookup &l, std::pair<float, float> r) { l.change().setRange(r.first, r.second); },
            "The output interval (min, max).")
        .def_property(
            "black_white", [](const PyLookup &l) { return py::make_tuple(l.lut.getBlackPoint(), l.lut.getWhitePoint()); },
            [](PyLookup &l, std::pair<float, float> bw) { l.change().setBlackWhitePoints(bw.first, bw.second); },
            "Black and white points (black, white).")
        .def_property(
            "log_bias", [](const PyLookup &l) { return l.lut.getLogBias(); },
            [](PyLookup &l, float b) { l.change().setLogBias(b); }, "Log bias, clamped to [-20, 20].")
        .def_property(
            "specific_format",
            [](const PyLookup &l) -> py::object {
                IMB_DataFormat f;
                if (!l.lut.hasSpecificFormat(f))
                    return py::none();
                return py::cast(f);
            },
            [](PyLookup &l, std::optional<IMB_DataFormat> f) {
                l.change().setSpecificFormat(f.value_or(IMB_MAX_DATA_FORMAT));
            },
            "The format the table was made for (imb.Format), or None for any.")
        .def_property_readonly("is_half", [](const PyLookup &l) { return l.lut.isHalfPrec(); },
                               "True when the table was loaded from float16 samples.")
        .def_property_readonly(
            "tables",
            [](const PyLookup &l) {
                const CRV_Clip &clip = l.lut.getLUT();
                const int64 n = clip.getTrackLength();
                py::array_t<double> out({static_cast<int64>(clip.getNumTracks()), n});
                double *dst = out.mutable_data();
                for (int t = 0; t < clip.getNumTracks(); ++t)
                    if (const double *src = clip.getTrack(t)->getData())
                        std::copy(src, src + n, dst + t * n);
                return out;
            },
            "A copy of the 1D tables, shape (tables, samples), float64.")
        .def(
            "cube",
            [](const PyLookup &l, bool padded) -> py::object {
                const int64 n = l.lut.get3DSize() + (padded ? 1 : 0);
                if (!l.lut.is3DLUT())
                    return py::none();
                py::array_t<float> out({n, n, n, int64{3}});
                l.lut.copy3DLUT(out.mutable_data(), padded);
                return std::move(out);
            },
            py::arg("padded") = false, R"doc(
A copy of the cube, shape (n, n, n, 3) indexed [blue][green][red], or
(n + 1, ...) with the padding samples that repeat each edge; None without a
cube.
)doc");

    cls.def("eval", &eval, py::arg("x"), py::arg("channel") = IMB_LUT_R, R"doc(
The table of `channel` (LookupType.R, G, B or A) at `x`, a number or an
array of numbers (float32). Without log sampling the position is
(samples - 1) * x and the domain is not used; with it, x is clamped to the
domain and the position is samples * (ln x - ln min) / (ln max - ln min) (the
factor samples, not samples - 1, is kept). A non-empty range maps the value v
to (v - min) / (max - min). A channel without a table returns x.
)doc")
        .def(
            "eval_rgb",
            [](const PyLookup &l, std::array<float, 3> rgb) {
                l.lut.evalLUT(rgb.data());
                return py::make_tuple(rgb[0], rgb[1], rgb[2]);
            },
            py::arg("rgb"), "One colour through the cube (trilinear), or through the R, G and B tables.")
        .def(
            "invert", [](PyLookup &l, int size) { l.change().invert(size); }, py::arg("size") = 0, R"doc(
Replaces every 1D table by its inverse function, resampled to `size`
samples (0 keeps the length), and exchanges domain and range. Tables made
for an integer format get integer samples.
)doc")
        .def_static(
            "merged",
            [](const PyLookup &a, const PyLookup &b) {
                if (!a.lut.isValid() || !b.lut.isValid())
                    throw py::value_error("merged: both tables must hold a table or a cube");
                auto l = std::make_unique<PyLookup>();
                l->lut.mergeLUTs(a.lut, b.lut);
                return l;
            },
            py::arg("a"), py::arg("b"), R"doc(
A new table that applies `a` and then `b`: 1D when neither has a cube (as
long as the longer of the two), else a cube of the larger edge. Its domain
is a's (a linear a moves a minimum at or below 0 to 0.001, kept), its range
and points b's.
)doc")
        .def("apply", &apply, py::arg("raster"), py::arg("gamma") = 1.0f, py::arg("black") = 0.0f,
             py::arg("white") = 1.0f, py::arg("channel") = py::none(), R"doc(
Applies the table to every pixel of `raster` in place, on many threads for
rasters above 100,000 pixels; the GIL is released meanwhile.

- `gamma`: the table's output is raised to 1 / max(gamma, 1e-6).
- `black`, `white`: input and output points in 0-1 units for integer
  rasters (scaled by 255, 65535, or 2**31 for uint32, kept); float and half
  rasters ignore them.
- `channel`: None for every channel; 0-3 computes only that channel and
  copies it into the other colour channels (3, alpha, into R, G and B).

1D tables map each channel with a table (inputs clamped to the domain, NaN
reads as its minimum); cubes map R, G and B of rasters with three or more
channels (float pixels with a NaN are left alone; uint32 rasters are left
unchanged by cubes, kept).
)doc")
        .def("__repr__", [](const PyLookup &l) {
            return "<imb.Lookup type " + std::to_string(l.lut.getType() & ~IMB_LUT_LOG_SAMPLING) + ", " +
                   std::to_string(l.lut.getNumChannels()) + " tables of " + std::to_string(l.lut.getTableSize()) +
                   ", cube " + std::to_string(l.lut.get3DSize()) + ">";
        });
}
} // namespace imb_python
