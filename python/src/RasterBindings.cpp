// imb.Raster: the library's raster, with its pixels as a zero-copy numpy view.
//
// The view (the buffer protocol, so numpy.asarray(raster)) has one shape for
// every packing: (height, width, channels), row 0 the raster's row 0.
// Interleaved packings step through a pixel's components; plane packings
// (PACK_SINGLE and the _NI packings) reach channel c through the stride of
// one plane. PACK_DUAL stores three components per pixel and shows the first
// two. A view keeps its raster alive.
#include "Bindings.h"

#include <IMB/platform/BAS_IStream.h>

#include <pybind11/stl.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

namespace imb_python
{
IMB_Raster &PyRaster::pixels()
{
    if (!raster.isValid())
        throw py::value_error("the raster has no pixels (a reshape failed for lack of memory)");
    return raster;
}

namespace
{
// Values exchanged by getPixelValue/setPixelValue, and the channels of the
// numpy view: PACK_DUAL shows two of its three components.
int valueCount(IMB_Packing p)
{
    switch (p)
    {
    case PACK_SINGLE: return 1;
    case PACK_DUAL: case PACK_DUAL_NI: case PACK_UV: return 2;
    case PACK_RGB: case PACK_RGB_NI: return 3;
    case PACK_RGBA: case PACK_RGBA_NI: return 4;
    default: return 0;
    }
}

bool isPlanar(IMB_Packing p)
{
    return p == PACK_SINGLE || p == PACK_DUAL_NI || p == PACK_RGB_NI || p == PACK_RGBA_NI;
}

const char *bufferFormat(IMB_DataFormat f)
{
    switch (f)
    {
    case IMB_INT8: return "B";
    case IMB_INT16: return "H";
    case IMB_INT32: return "I";
    case IMB_FLOAT32: return "f";
    default: return "e";
    }
}

// ------------------------------------------------------------ buffer protocol

struct ViewShape
{
    Py_ssize_t shape[3];
    Py_ssize_t strides[3];
};

PyRaster *rasterOf(PyObject *obj)
{
    try
    {
        return py::handle(obj).cast<PyRaster *>();
    }
    catch (...)
    {
        return nullptr;
    }
}

int getBuffer(PyObject *obj, Py_buffer *view, int flags)
{
    PyRaster *r = rasterOf(obj);
    if (!r || !r->raster.isValid())
    {
        PyErr_SetString(PyExc_BufferError, "imb.Raster: no pixels to view");
        return -1;
    }
    const IMB_Raster &ras = r->raster;
    const IMB_Packing p = ras.getPacking();
    const Py_ssize_t b = imbDefinesDepth[ras.getFormat()];
    const Py_ssize_t channels = valueCount(p);
    auto *vs = new ViewShape{{static_cast<Py_ssize_t>(ras.getYres()), static_cast<Py_ssize_t>(ras.getXres()), channels},
                             {static_cast<Py_ssize_t>(ras.getStride()), 0, 0}};
    bool contiguous;
    if (isPlanar(p))
    {
        vs->strides[1] = b;
        vs->strides[2] = static_cast<Py_ssize_t>(ras.getNonInterleavedSize());
        contiguous = channels == 1;
    }
    else
    {
        const Py_ssize_t step = imbDefinesPDepth[p];
        vs->strides[1] = step * b;
        vs->strides[2] = b;
        contiguous = step == channels;
    }
    if (!(flags & PyBUF_STRIDES) && !contiguous)
    {
        delete vs;
        PyErr_SetString(PyExc_BufferError, "imb.Raster: this packing's view needs strides");
        return -1;
    }
    view->obj = obj;
    Py_INCREF(obj);
    view->buf = r->raster.getPixels();
    view->itemsize = b;
    view->len = vs->shape[0] * vs->shape[1] * vs->shape[2] * b;
    view->readonly = 0;
    view->format = (flags & PyBUF_FORMAT) ? const_cast<char *>(bufferFormat(ras.getFormat())) : nullptr;
    view->ndim = 3;
    view->shape = (flags & PyBUF_ND) ? vs->shape : nullptr;
    view->strides = (flags & PyBUF_STRIDES) ? vs->strides : nullptr;
    view->suboffsets = nullptr;
    view->internal = vs;
    ++r->busy;
    return 0;
}

void releaseBuffer(PyObject *obj, Py_buffer *view)
{
    delete static_cast<ViewShape *>(view->internal);
    if (PyRaster *r = rasterOf(obj))
        --r->busy;
}

// ------------------------------------------------------------ helpers

void checkInside(const IMB_Raster &r, int64 x, int64 y)
{
    if (x < 0 || y < 0 || x >= r.getXres() || y >= r.getYres())
        throw py::index_error("pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") is outside the " +
                              std::to_string(r.getXres()) + "x" + std::to_string(r.getYres()) + " raster");
}

std::unique_ptr<PyRaster> makeRaster(IMB_Packing packing, IMB_DataFormat format, int64 width, int64 height, bool clear)
{
    if (width < 1 || height < 1)
        throw py::value_error("a raster needs a width and a height of at least 1");
    // Components in the whole block, kept far from int64 overflow.
    const long double bytes = static_cast<long double>(width) * height * imbDefinesPComp[packing] *
                              imbDefinesDepth[format];
    if (bytes > 4e18L)
        throw std::bad_alloc();
    auto r = std::make_unique<PyRaster>(packing, format, width, height, clear);
    if (!r->raster.isValid())
        throw std::bad_alloc();
    return r;
}

// The stored components of one pixel for clear(): `count` values of the
// raster's format from Python numbers.
std::vector<unsigned char> storedPixel(IMB_DataFormat f, const std::vector<double> &values)
{
    const int b = imbDefinesDepth[f];
    std::vector<unsigned char> out(values.size() * b);
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        const double v = values[i];
        unsigned char *dst = out.data() + i * b;
        if (f == IMB_FLOAT32)
        {
            const float x = static_cast<float>(v);
            std::memcpy(dst, &x, 4);
        }
        else if (f == IMB_FLOAT16)
        {
            const uint16 h = half16(static_cast<float>(v)).bits();
            std::memcpy(dst, &h, 2);
        }
        else
        {
            const double white = imbDefinesWhite[f];
            if (!(v >= 0 && v <= white) || v != static_cast<double>(static_cast<uint64>(v)))
                throw py::value_error("clear: " + std::to_string(v) + " is not a stored value of " +
                                      IMBdataFormat(f) + " (an integer from 0 to " +
                                      std::to_string(static_cast<uint64>(white)) + ")");
            const uint32 x = static_cast<uint32>(v);
            if (b == 1)
                *dst = static_cast<unsigned char>(x);
            else if (b == 2)
            {
                const uint16 s = static_cast<uint16>(x);
                std::memcpy(dst, &s, 2);
            }
            else
                std::memcpy(dst, &x, 4);
        }
    }
    return out;
}

void checkAlphaSource(const IMB_Raster &r, const PyRaster *src, const char *what)
{
    if (!src)
        return;
    const IMB_Raster &s = src->raster;
    if (!s.hasAlpha() && !r.hasAlpha())
        throw py::value_error(std::string(what) + ": the alpha source has no alpha, so this raster needs one");
    if (s.getXres() != r.getXres() || s.getYres() != r.getYres())
        throw py::value_error(std::string(what) + ": the alpha source's size differs from this raster's");
}
} // namespace

void bindRaster(py::module_ &m)
{
    py::class_<PyRaster> cls(m, "Raster", py::buffer_protocol(), R"doc(
An image of one data format and one packing, owning one block of pixels.

numpy.asarray(raster) is a writable view of the pixels, without a copy, of
shape (height, width, channels) for every packing: interleaved packings step
through a pixel's components, plane packings (SINGLE and the _NI packings)
reach each channel through the stride of one plane. DUAL stores three
components and shows the first two. dtypes: uint8, uint16, uint32, float32,
float16. A view keeps the raster alive; while views exist the raster refuses
operations that would move its pixels (BufferError).
)doc");
    // pybind11 fills the buffer slots with its own handlers; ours count the
    // views, so that a reshape can be refused while one exists.
    auto *type = reinterpret_cast<PyHeapTypeObject *>(cls.ptr());
    type->as_buffer.bf_getbuffer = getBuffer;
    type->as_buffer.bf_releasebuffer = releaseBuffer;

    cls.def(py::init(&makeRaster), py::arg("packing"), py::arg("format"), py::arg("width"), py::arg("height"),
            py::arg("clear") = true, R"doc(
A raster of `width` x `height` pixels of `packing` (imb.Packing) and
`format` (imb.Format), its pixels set to zero unless `clear` is False.
ValueError for a size below 1 or an unknown packing or format; MemoryError
when the pixels cannot be allocated.
)doc");

    cls.def_property_readonly("width", [](const PyRaster &r) { return r.raster.getXres(); }, "Width in pixels.")
        .def_property_readonly("height", [](const PyRaster &r) { return r.raster.getYres(); }, "Height in pixels.")
        .def_property_readonly("format", [](const PyRaster &r) { return r.raster.getFormat(); },
                               "Data format of one component (imb.Format).")
        .def_property_readonly("packing", [](const PyRaster &r) { return r.raster.getPacking(); },
                               "Layout of the components (imb.Packing).")
        .def_property_readonly("dtype", [](const PyRaster &r) { return dtypeOf(r.raster.getFormat()); },
                               "The numpy dtype of the components.")
        .def_property_readonly(
            "shape",
            [](const PyRaster &r) {
                return py::make_tuple(r.raster.getYres(), r.raster.getXres(), valueCount(r.raster.getPacking()));
            },
            "Shape of the numpy view: (height, width, channels).")
        .def_property_readonly("stride", [](const PyRaster &r) { return r.raster.getStride(); },
                               "Bytes from one scanline to the next (of one plane for plane packings).")
        .def_property_readonly("nbytes", [](const PyRaster &r) { return r.raster.getSize(); },
                               "Bytes of pixel data, all planes.")
        .def_property_readonly("num_channels", [](const PyRaster &r) { return r.raster.getNumChannels(); },
                               "Channels of the packing as the library counts them (3 for DUAL, which the view "
                               "shows as 2).")
        .def_property_readonly("has_alpha", [](const PyRaster &r) { return r.raster.hasAlpha(); },
                               "True for RGBA and RGBA_NI.")
        .def_property_readonly("is_interleaved", [](const PyRaster &r) { return r.raster.isInterleaved(); },
                               "False for SINGLE and the _NI packings.")
        .def_property_readonly("color_space", [](const PyRaster &r) { return r.raster.getColorSpace(); },
                               "The encoding tag (imb.ColorSpace); see set_color_space.")
        .def_property_readonly("color_space_gamma", [](const PyRaster &r) { return r.raster.getColorSpaceGamma(); },
                               "The gamma that goes with the tag.")
        .def(
            "set_color_space",
            [](PyRaster &r, IMB_ColorSpace cs, double gamma) { r.raster.setColorSpace(cs, gamma); },
            py::arg("tag"), py::arg("gamma") = 1.0, R"doc(
Sets the encoding tag and its gamma: LINEAR 1.0; GAMMA2_2, SRGB and REC709
2.2; CUSTOM_GAMMA `gamma`; UNKNOWN and OCIO keep the gamma.
)doc")
        .def_property(
            "ocio_color_space", [](const PyRaster &r) { return r.raster.getColorSpaceName().toStdString(); },
            [](PyRaster &r, const std::string &name) { r.raster.setOCIOColorSpace(name); },
            "Colour-management colour-space name. Setting a non-empty name also sets the tag to OCIO; setting '' "
            "clears the name and keeps the tag.")
        .def_property_readonly("ocio_display", [](const PyRaster &r) { return r.raster.getOCIODisplay().toStdString(); },
                               "Colour-management display name.")
        .def_property_readonly("ocio_view", [](const PyRaster &r) { return r.raster.getOCIOView().toStdString(); },
                               "Colour-management view name.")
        .def(
            "set_ocio_display_view",
            [](PyRaster &r, const std::string &d, const std::string &v) { r.raster.setOCIODisplayView(d, v); },
            py::arg("display"), py::arg("view"), "Stores the colour-management display and view names.")
        .def_property(
            "black_white",
            [](const PyRaster &r) {
                float b, w;
                r.raster.getBWPoints(b, w);
                return py::make_tuple(b, w);
            },
            [](PyRaster &r, std::pair<float, float> bw) { r.raster.setBWPoints(bw.first, bw.second); },
            "Black and white points (black, white), carried for the caller; (0, 1) by default.")
        .def_property(
            "rotation", [](const PyRaster &r) { return r.raster.getRotation(); },
            [](PyRaster &r, int deg) { r.raster.setRotation(deg); }, "Rotation in degrees, stored as given.")
        .def_property(
            "data_window",
            [](const PyRaster &r) {
                const auto &w = r.raster.getDataWindow();
                return py::make_tuple(w.x(), w.y(), w.w(), w.h());
            },
            [](PyRaster &r, std::tuple<int, int, int, int> w) {
                r.raster.setDataWindow(BAS_Rect<BAS_DimRectImpl>(std::get<0>(w), std::get<1>(w), std::get<2>(w),
                                                                 std::get<3>(w)));
            },
            "Data window (x, y, width, height); a window of negative width or height is ignored.");

    cls.def(
           "get_pixel",
           [](const PyRaster &r, int64 x, int64 y) {
               checkInside(r.raster, x, y);
               float v[4] = {0, 0, 0, 0};
               r.raster.getPixelValue(x, y, v);
               py::tuple t(valueCount(r.raster.getPacking()));
               for (std::size_t i = 0; i < t.size(); ++i)
                   t[i] = v[i];
               return t;
           },
           py::arg("x"), py::arg("y"), R"doc(
The values of pixel (x, y) as floats, one per channel of the view: uint8
v * float(1/255), uint16 v * float(1/65535), uint32 v / 4294967295 (in
double), float16 exact, float32 as stored. IndexError outside the raster.
)doc")
        .def(
            "set_pixel",
            [](PyRaster &r, int64 x, int64 y, const std::vector<float> &values) {
                checkInside(r.raster, x, y);
                const int n = valueCount(r.raster.getPacking());
                if (static_cast<int>(values.size()) != n)
                    throw py::value_error("set_pixel: expected " + std::to_string(n) + " values, got " +
                                          std::to_string(values.size()));
                r.pixels().setPixelValue(x, y, values.data());
            },
            py::arg("x"), py::arg("y"), py::arg("values"), R"doc(
Writes one value per channel of the view to pixel (x, y) as consecutive
components from the pixel's first, whatever the packing: on plane packings
value i lands in plane 0 at pixel x + i (kept; callers rely on it).
uint8/uint16: v * 255 or v * 65535 truncated toward zero, low bits kept (no
rounding, no clamping: 1.5 stores 126); uint32: v * 2**32 truncated, low 32
bits (1.0 stores 0); float16 through the library's half conversion.
IndexError outside the raster; ValueError for the wrong number of values.
)doc")
        .def(
            "extract",
            [](const PyRaster &r, int64 x1, int64 y1, int64 x2, int64 y2) {
                if (x2 < x1 || y2 < y1)
                    throw py::value_error("extract: the rectangle is empty");
                auto out = std::make_unique<PyRaster>(r.raster, x1, y1, x2, y2);
                if (!out->raster.isValid())
                    throw std::bad_alloc();
                return out;
            },
            py::arg("x1"), py::arg("y1"), py::arg("x2"), py::arg("y2"), R"doc(
A new raster holding the inclusive rectangle (x1, y1)-(x2, y2) of this one;
parts outside this raster read as zero. The copy takes the format, packing,
points, tag, gamma and data window. ValueError for an empty rectangle.
)doc")
        .def(
            "insert",
            [](PyRaster &r, PyRaster &src, int64 x, int64 y) {
                if (src.raster.getPacking() != r.raster.getPacking() || src.raster.getFormat() != r.raster.getFormat())
                    throw py::value_error("insert: the source's packing and format must match this raster's");
                PixelWork w(r, &src);
                py::gil_scoped_release nogil;
                r.raster.insert(src.raster, x, y);
            },
            py::arg("src"), py::arg("x"), py::arg("y"), R"doc(
Pastes `src` with its first pixel at (x, y), clipped to this raster, every
plane; takes `src`'s colour tag and gamma even when nothing overlaps.
ValueError unless packing and format match.
)doc")
        .def(
            "flip_vertical",
            [](PyRaster &r) {
                PixelWork w(r);
                py::gil_scoped_release nogil;
                r.raster.flipVertical();
            },
            "Reverses the order of the scanlines. On plane packings only plane 0 is flipped; the other planes stay "
            "(kept).")
        .def(
            "clear",
            [](PyRaster &r, std::optional<std::vector<double>> pixel) {
                IMB_Raster &ras = r.pixels();
                if (!pixel)
                {
                    ras.clear(nullptr);
                    return;
                }
                const IMB_Packing p = ras.getPacking();
                int n = isPlanar(p) ? valueCount(p) : (p == PACK_DUAL || p == PACK_RGB) ? 3 : p == PACK_UV ? 2 : 4;
                if (static_cast<int>(pixel->size()) != n)
                    throw py::value_error("clear: expected " + std::to_string(n) + " stored components, got " +
                                          std::to_string(pixel->size()));
                const std::vector<unsigned char> stored = storedPixel(ras.getFormat(), *pixel);
                PixelWork w(r);
                py::gil_scoped_release nogil;
                ras.clear(stored.data());
            },
            py::arg("pixel") = py::none(), R"doc(
Fills every pixel with one stored pixel: the values as the format stores
them (integers 0 to white for integer formats), as many as a pixel stores (3
for DUAL and RGB, 2 for UV, 4 for RGBA, one per plane for plane packings).
None sets every byte to zero. On plane packings of every format but float32
the first sample of plane 0 keeps its value (kept).
)doc")
        .def(
            "clear_normal",
            [](PyRaster &r, const std::vector<float> &rgba, unsigned black, unsigned white) {
                if (rgba.empty() || rgba.size() > 4)
                    throw py::value_error("clear_normal: expected 1 to 4 values");
                float v[4] = {0, 0, 0, 0};
                std::copy(rgba.begin(), rgba.end(), v);
                IMB_Raster &ras = r.pixels();
                PixelWork w(r);
                py::gil_scoped_release nogil;
                ras.clearNormal(v, black, white);
            },
            py::arg("rgba"), py::arg("black") = 0, py::arg("white") = 0, R"doc(
Fills every pixel with a colour of up to four 0-1 floats (missing ones are
0). Integer formats store trunc(v * (white - black)) + black; black and
white both 0 mean the format's full range.
)doc")
        .def(
            "premultiply",
            [](PyRaster &r, PyRaster *src) {
                IMB_Raster &ras = r.pixels();
                checkAlphaSource(ras, src, "premultiply");
                PixelWork w(r, src);
                py::gil_scoped_release nogil;
                ras.premultiply(src ? &src->raster : nullptr);
            },
            py::arg("alpha_source") = py::none(), R"doc(
Multiplies red, green and blue of every pixel by alpha, through the float
interface of get_pixel/set_pixel (integers are truncated on the way back,
nothing is clamped). Alpha is the pixel's fourth value, or `alpha_source`'s:
its fourth value when it has alpha, else its first (a one-channel matte). A
raster without alpha and no source uses alpha 1. ValueError when
`alpha_source` is given and neither raster has alpha, or the sizes differ.
)doc")
        .def(
            "unpremultiply",
            [](PyRaster &r, PyRaster *src) {
                IMB_Raster &ras = r.pixels();
                checkAlphaSource(ras, src, "unpremultiply");
                PixelWork w(r, src);
                py::gil_scoped_release nogil;
                ras.unpremultiply(src ? &src->raster : nullptr);
            },
            py::arg("alpha_source") = py::none(), R"doc(
Divides red, green and blue by alpha (chosen as for premultiply) where
0 < alpha < 1; integer formats then limit each value to at most 1.0. Other
pixels are not written. Same errors as premultiply.
)doc")
        .def(
            "clamp_alpha",
            [](PyRaster &r) {
                IMB_Raster &ras = r.pixels();
                if (!ras.hasAlpha())
                    throw py::value_error("clamp_alpha: the raster has no alpha");
                PixelWork w(r);
                py::gil_scoped_release nogil;
                ras.clampAlpha();
            },
            "Sets alpha to 1 where 0 < alpha < 1; 0 and alpha above 1 stay. ValueError without alpha.")
        .def(
            "promote_rgb_to_rgba",
            [](PyRaster &r, double alpha) {
                IMB_Raster &ras = r.pixels();
                const IMB_Packing p = ras.getPacking();
                if (p != PACK_RGB && p != PACK_RGB_NI)
                    throw py::value_error("promote_rgb_to_rgba: the raster is not RGB or RGB_NI");
                if (r.busy)
                    throw py::buffer_error("promote_rgb_to_rgba: the raster's pixels are in use by a view");
                // The library leaves the old block to its owner: take it over and
                // free it once the new one is filled.
                void *old = ras.steal();
                ras.promoteRGBToRGBA(alpha);
                std::free(old);
                if (!ras.isValid())
                    throw std::bad_alloc();
            },
            py::arg("alpha"), R"doc(
Turns RGB into RGBA and RGB_NI into RGBA_NI with a new block whose alpha is
`alpha` as one stored sample: uint8 floor(alpha*255+0.5); uint16
floor(alpha*65355+0.5) (65355, kept); uint32 floor(alpha*2147483647+0.5);
float16 the half of alpha; float32 the low 32 bits of the double's bit
pattern (1.0 gives 0.0; kept: write a float alpha afterwards). The bytes are
copied from the old block's start, 16 bytes before its first pixel, and laid
out interleaved even for RGBA_NI (kept). ValueError for other packings;
BufferError while a view of the pixels exists.
)doc")
        .def(
            "get_range",
            [](const PyRaster &r) -> py::object {
                const IMB_Raster &ras = const_cast<PyRaster &>(r).pixels();
                float lo[4], hi[4];
                bool ok;
                {
                    py::gil_scoped_release nogil;
                    ok = ras.getRange(lo, hi);
                }
                if (!ok)
                    return py::none();
                const int n = ras.getPacking() == PACK_DUAL ? 2 : ras.getNumChannels();
                py::list mins, maxs;
                for (int c = 0; c < n; ++c)
                {
                    mins.append(lo[c]);
                    maxs.append(hi[c]);
                }
                return py::make_tuple(py::tuple(mins), py::tuple(maxs));
            },
            R"doc(
Per-channel (minimums, maximums) over the data window (the whole raster
without one), in the units get_pixel reads (integers as fractions of their
full scale). NaN is skipped; a channel of nothing but NaN gives NaN. None
when the data window lies outside the raster.
)doc")
        .def(
            "convert_8bit",
            [](const PyRaster &r, float black, float white, float gamma, IMB_Dither dither) {
                const IMB_Raster &ras = const_cast<PyRaster &>(r).pixels();
                auto out = std::make_unique<PyRaster>();
                bool ok;
                {
                    py::gil_scoped_release nogil;
                    ok = ras.convert8Bit(out->raster, black, white, gamma, dither);
                }
                if (!ok)
                    throw std::bad_alloc(); // every argument was checked; only allocation fails
                return out;
            },
            py::arg("black") = 0.0f, py::arg("white") = 0.0f, py::arg("gamma") = 1.0f,
            py::arg("dither") = IMB_DITHER_NONE, R"doc(
A new uint8 raster of the same packing and size. `black` and `white` are in
the raster's own units (integer codes, or values for float formats; both 0
for the full range). Without dithering the bytes are exactly what imb.fill
gives (rounded half up, clamped, then the gamma table); with a Dither method
the value is raised to 1/gamma before it is quantised. Alpha keeps its full
range, without gamma or dithering.
)doc")
        .def(
            "streak_edges",
            [](PyRaster &r, int x, int y, int width, int height) {
                IMB_Raster &ras = r.pixels();
                PixelWork w(r);
                bool ok;
                {
                    py::gil_scoped_release nogil;
                    ok = ras.streakEdges(BAS_Rect<BAS_DimRectImpl>(x, y, width, height));
                }
                if (!ok)
                    throw py::value_error("streak_edges: the area does not overlap the raster");
            },
            py::arg("x"), py::arg("y"), py::arg("width"), py::arg("height"), R"doc(
Fills every pixel outside the area (clipped to the raster) by repeating the
area's edge pixels outwards: rows first, then the rows above and below, so
corners take the area's corner pixels. ValueError when nothing of the area
lies inside the raster.
)doc")
        .def(
            "adjust_saturation",
            [](PyRaster &r, float s) {
                IMB_Raster &ras = r.pixels();
                PixelWork w(r);
                py::gil_scoped_release nogil;
                ras.adjustSaturation(s);
            },
            py::arg("saturation"), R"doc(
Scales the saturation by `saturation` about the luminance
L = (0.3086 R + 0.6094 G + 0.082 B) * (1 - s) on raw component values: each
of R, G, B becomes c * s + L; integers round half up and clamp (uint32 only
raises negatives to 0). Only RGB and RGBA packings; others are unchanged.
)doc")
        .def(
            "copy", [](const PyRaster &r) { return std::make_unique<PyRaster>(r.raster); },
            "A copy with its own pixels and every property but the display texture.")
        .def(
            "to_bytes",
            [](const PyRaster &r, bool binary) {
                std::ostringstream os;
                Messages msgs;
                if (!r.raster.save(os, binary ? 1 : 0))
                    msgs.fail("imb.Raster: the stream form could not be written");
                return py::bytes(os.str());
            },
            py::arg("binary") = true, R"doc(
The raster's stream form: binary (little-endian header of width, height,
packing, format, black, white and a zero, then the first plane's pixels)
or text (a header line, every plane's bytes uuencoded, "end"). Only the
shape, the points and the pixels are kept.
)doc")
        .def_static(
            "from_bytes",
            [](const py::bytes &data, bool binary) {
                BAS_IStream is(PyBytes_AS_STRING(data.ptr()), static_cast<size_t>(PyBytes_GET_SIZE(data.ptr())),
                               binary);
                auto r = std::make_unique<PyRaster>();
                Messages msgs;
                if (!r->raster.load(is))
                    msgs.fail(std::string("imb.Raster: not a raster in ") + (binary ? "binary" : "text") +
                              " stream form");
                return r;
            },
            py::arg("data"), py::arg("binary") = true, R"doc(
Reads a raster from its stream form (see to_bytes). Plane packings keep
only their first plane in the binary form; the other planes are
uninitialised. imb.Error when `data` is not a raster stream.
)doc")
        .def("__repr__", [](const PyRaster &r) {
            return "<imb.Raster " + std::to_string(r.raster.getXres()) + "x" + std::to_string(r.raster.getYres()) +
                   " " + IMBpacking(r.raster.getPacking()) + " " + IMBdataFormat(r.raster.getFormat()) + ">";
        });

    m.def(
        "color_space_from_name", [](const char *name) { return IMBgetColorSpace(name); }, py::arg("name"), R"doc(
The tag a name stands for, compared case-insensitively against the whole
text: "linear", "gamma2.2" or "gammacorrected2.2", "gamma", "srgb",
"rec709", "opencolorio"; ColorSpace.UNKNOWN for anything else.
)doc");
    m.def(
        "color_space_name", [](IMB_ColorSpace cs) { return IMBgetColorSpaceName(cs); }, py::arg("tag"),
        "The name of a tag (never \"gammacorrected2.2\").");
}
} // namespace imb_python
