// imb.luma: one luma value per pixel from the channels of an array or raster.
#include "Bindings.h"

#include <climits>

namespace imb_python
{
namespace
{
py::array convert(py::handle src, IMB_LumFunction func, py::object out)
{
    py::array a = arrayOf(src, false, "convert");
    const Layout s = readableLayout(a);
    if (s.channels > 4)
        throw py::value_error("convert: expected 1 to 4 channels (red, green, blue, alpha), got " +
                              std::to_string(s.channels));
    py::array dst;
    if (out.is_none())
        dst = py::array(dtypeOf(s.format), std::vector<py::ssize_t>{s.height, s.width});
    else
    {
        if (!py::isinstance<py::array>(out))
            throw py::type_error("convert: out must be a numpy array");
        dst = out;
        if (dst.ndim() != 2 || dst.shape(0) != s.height || dst.shape(1) != s.width ||
            !(dst.flags() & py::array::c_style) || formatOf(dst.dtype()) != s.format)
            throw py::value_error("convert: out must be a C-ordered array of shape (height, width) and the "
                                  "source's dtype");
        if (!dst.writeable())
            throw py::value_error("convert: out is read-only");
        if (py::module_::import("numpy").attr("may_share_memory")(a, dst).cast<bool>())
            throw py::value_error("convert: out overlaps the source");
    }
    if (s.height < 1 || s.width < 1)
        return dst;
    const void *ch[4] = {nullptr, nullptr, nullptr, nullptr};
    for (int64 c = 0; c < s.channels; ++c)
        ch[c] = s.channel(c);
    char *d = static_cast<char *>(dst.mutable_data());
    const int64 item = imbDefinesDepth[s.format];
    if (s.xinc > INT_MAX)
        throw py::value_error("convert: the pixel step is too large");
    py::gil_scoped_release nogil;
    // Rows are packed, so the image is one run of height x width pixels; it is
    // cut where the library's 32-bit count ends.
    const int64 total = s.height * s.width, chunk = INT_MAX;
    for (int64 done = 0; done < total; done += chunk)
    {
        const void *p[4];
        for (int c = 0; c < 4; ++c)
            p[c] = ch[c] ? static_cast<const char *>(ch[c]) + done * s.xinc * item : nullptr;
        IMB_LumFuncs::convertToLuma(s.format, d + done * item, func, p[0], p[1], p[2], p[3],
                                    static_cast<int32>(std::min(chunk, total - done)), static_cast<int32>(s.xinc));
    }
    return dst;
}
} // namespace

void bindLuma(py::module_ &m)
{
    py::module_ l = m.def_submodule("luma", "Luma conversion (see imb.luma).");
    l.def("convert", &convert, py::arg("src"), py::arg("function") = IMB_LUM_WEIGHTED, py::arg("out") = py::none(),
          R"doc(
One value per pixel, of the source's dtype, from `src`: a numpy array of
shape (height, width, channels) or a raster, whose channels 0-3 are read as
red, green, blue and alpha (fewer channels: the rest are absent). Returns an
array of shape (height, width), or writes `out`.

`function` (imb.LumFunction): WEIGHTED (0.3086, 0.6094, 0.0820) and NTSC
(0.299, 0.587, 0.114) weighted sums of red, green and blue; MAX, MIN and
AVERAGE of the present channels; RED, GREEN, BLUE, ALPHA copies (0 when
absent). uint8 and uint16 sums truncate each term separately ((c * w) >> 8
or >> 16 with integer weights), so white gives 253 in uint8, not 255
(kept). The GIL is released meanwhile.
)doc");
}
} // namespace imb_python
