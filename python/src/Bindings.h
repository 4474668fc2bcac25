// Shared pieces of the Python module: errors, the library's enumerations as
// the package's IntEnums, numpy formats, option dictionaries.
//
// Every binding checks its arguments before it calls the library, so a wrong
// type, shape or value raises TypeError or ValueError and no library code
// runs. A library call that can fail runs inside a Messages block, which
// collects what the library reports on this thread; a failure becomes
// imb.Error with that text, and the text of a call that succeeds goes on to
// sys.stderr, where the library would have printed it.
#pragma once

#include <IMB/IMB.h>
#include <IMB/platform/BAS_ErrorLog.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <string>
#include <vector>

namespace py = pybind11;

namespace imb_python
{
// ------------------------------------------------------------------ errors

// Collects the library's messages on the calling thread while it lives. The
// capture is per thread, so it keeps working while the GIL is released.
class Messages
{
public:
    Messages() = default;
    Messages(const Messages &) = delete;
    Messages &operator=(const Messages &) = delete;
    // Passes uncollected text on to sys.stderr (needs the GIL, which every
    // binding holds again by the time it returns).
    ~Messages();

    // Raises imb.Error: `what`, followed by the collected messages.
    [[noreturn]] void fail(const std::string &what);

private:
    BAS_ErrorCapture myCapture;
};

// Raises imb.Error with `what`.
[[noreturn]] void raiseError(const std::string &what);

// Imports imb._types, which holds imb.Error and the IntEnums. Called once at
// module import, with the GIL.
void loadTypes();

// A class of imb._types by name ("Format", "Error", ...).
py::handle typesClass(const char *name);

// ------------------------------------------------------------------ rasters

// A raster as Python holds it: the library's raster and a count of what
// relies on its pixel block staying where it is (live numpy views and
// operations running without the GIL). Reshaping is refused while the count
// is above 0, as numpy refuses to resize an array that has views.
struct PyRaster
{
    PyRaster() = default;
    PyRaster(IMB_Packing packing, IMB_DataFormat format, int64 width, int64 height, bool clear)
        : raster(packing, format, width, height, clear ? 1 : 0, 1)
    {
    }
    explicit PyRaster(const IMB_Raster &src) : raster(src) {}
    PyRaster(const IMB_Raster &src, int64 x1, int64 y1, int64 x2, int64 y2) : raster(src, x1, y1, x2, y2) {}

    // The raster, which must hold pixels (ValueError otherwise: only a failed
    // reshape leaves a Python raster without them).
    IMB_Raster &pixels();

    IMB_Raster raster;
    int busy = 0;
};

// Marks rasters busy for the life of the guard. Declare it before a
// py::gil_scoped_release so that the count drops only once the GIL is back.
class PixelWork
{
public:
    explicit PixelWork(PyRaster &a, PyRaster *b = nullptr) : myA(a), myB(b)
    {
        ++myA.busy;
        if (myB)
            ++myB->busy;
    }
    ~PixelWork()
    {
        --myA.busy;
        if (myB)
            --myB->busy;
    }
    PixelWork(const PixelWork &) = delete;
    PixelWork &operator=(const PixelWork &) = delete;

private:
    PyRaster &myA;
    PyRaster *myB;
};

// ------------------------------------------------------------------ enums

// What the casters below need to know of each enumeration: the class that
// stands for it in Python and which values an argument may take.
template <typename E> struct EnumInfo;

template <> struct EnumInfo<IMB_DataFormat>
{
    static constexpr const char *className = "Format";
    static constexpr auto sig = py::detail::const_name("imb.Format");
    // IMB_MAX_DATA_FORMAT names no format a buffer can have.
    static bool valid(long long v) { return v >= IMB_INT8 && v <= IMB_FLOAT16; }
};
template <> struct EnumInfo<IMB_Packing>
{
    static constexpr const char *className = "Packing";
    static constexpr auto sig = py::detail::const_name("imb.Packing");
    static bool valid(long long v) { return v >= PACK_SINGLE && v <= PACK_UV; }
};
template <> struct EnumInfo<IMB_ColorSpace>
{
    static constexpr const char *className = "ColorSpace";
    static constexpr auto sig = py::detail::const_name("imb.ColorSpace");
    static bool valid(long long v) { return v >= IMB_CS_UNKNOWN && v <= IMB_CS_OCIO; }
};
template <> struct EnumInfo<IMB_LumFunction>
{
    static constexpr const char *className = "LumFunction";
    static constexpr auto sig = py::detail::const_name("imb.LumFunction");
    static bool valid(long long v) { return v >= IMB_LUM_WEIGHTED && v <= IMB_LUM_ALPHA; }
};
template <> struct EnumInfo<IMB_Dither>
{
    static constexpr const char *className = "Dither";
    static constexpr auto sig = py::detail::const_name("imb.Dither");
    static bool valid(long long v) { return v >= IMB_DITHER_NONE && v <= IMB_DITHER_FLOYD_STEINBERG; }
};
template <> struct EnumInfo<IMB_LookupType>
{
    static constexpr const char *className = "LookupType";
    static constexpr auto sig = py::detail::const_name("imb.LookupType");
    // The ten kinds of table; the log-sampling flag is a separate property.
    static bool valid(long long v)
    {
        switch (v)
        {
        case IMB_LUT_R: case IMB_LUT_G: case IMB_LUT_B: case IMB_LUT_A: case IMB_LUT_RGB:
        case IMB_LUT_RGBA: case IMB_LUT_C: case IMB_LUT_ALL: case IMB_LUT_3D: case IMB_LUT_3D_1D:
            return true;
        default:
            return false;
        }
    }
};

// Python int (an IntEnum member included) to the enumeration, checked; the
// enumeration to its IntEnum member. A bool or a non-integer does not match
// (TypeError); an integer outside the valid values raises ValueError.
template <typename E> struct EnumCaster
{
    PYBIND11_TYPE_CASTER(E, EnumInfo<E>::sig);

    bool load(py::handle src, bool)
    {
        if (!src || PyBool_Check(src.ptr()) || !PyLong_Check(src.ptr()))
            return false;
        const long long v = PyLong_AsLongLong(src.ptr());
        if (v == -1 && PyErr_Occurred())
        {
            PyErr_Clear();
            throw py::value_error(std::string("integer out of range for imb.") + EnumInfo<E>::className);
        }
        if (!EnumInfo<E>::valid(v))
            throw py::value_error(std::to_string(v) + " is not a valid imb." + EnumInfo<E>::className);
        value = static_cast<E>(v);
        return true;
    }

    static py::handle cast(E v, py::return_value_policy, py::handle)
    {
        py::object cls = py::reinterpret_borrow<py::object>(typesClass(EnumInfo<E>::className));
        return cls(static_cast<long long>(v)).release();
    }
};

// ------------------------------------------------------------------ numpy

// The numpy dtype of a format's components (float16 for IMB_FLOAT16).
py::dtype dtypeOf(IMB_DataFormat format);
// The format of a numpy dtype: native uint8, uint16, uint32, float32 or
// float16; TypeError for any other.
IMB_DataFormat formatOf(const py::dtype &dtype);

// How fill, luma and colour transforms walk a numpy array of components:
// (height, width) or (height, width, channels), rows packed one after another
// (row stride = width x pixel stride), pixels `xinc` components apart, and
// channel c at `channelStep` bytes from channel 0.
struct Layout
{
    char *data = nullptr;
    int64 height = 0;
    int64 width = 0;
    int64 channels = 1;
    int64 xinc = 1;
    int64 channelStep = 0;
    IMB_DataFormat format = IMB_INT8;

    char *channel(int64 c) const { return data + c * channelStep; }
};

// An ndarray as it is, or a raster's view (numpy.asarray, no copy); other
// objects (lists) are converted when the library only reads them, and raise
// TypeError when it would write into them.
py::array arrayOf(py::handle obj, bool written, const char *what);

// The layout of `a`, or false when its strides do not fit (negative, not a
// multiple of the item size, rows not packed). Checks the dtype (TypeError)
// and the number of dimensions (ValueError) first.
bool layoutOf(const py::array &a, Layout &out);
// The layout of an array the library will write: as layoutOf, but strides
// that do not fit and read-only arrays raise ValueError.
Layout writableLayout(const py::array &a, const char *what);
// The layout of an array the library will read: as layoutOf, but an array
// whose strides do not fit is first replaced by a packed copy.
Layout readableLayout(py::array &a);

// ------------------------------------------------------------------ options

// A dict of str keys to int, float, bool, str, lists of str or of numbers
// and nested dicts, as BAS_Options; TypeError for anything else.
BAS_Options optionsOf(const py::dict &d);
// BAS_Options as a dict (the reverse of optionsOf).
py::dict dictOf(const BAS_Options &options);
// A list of str.
py::list listOf(const BAS_StringArray &names);

// ------------------------------------------------------------------ modules

void bindRaster(py::module_ &m);
void bindFill(py::module_ &m);
void bindLookup(py::module_ &m);
void bindColour(py::module_ &m);
void bindLuma(py::module_ &m);
void bindDeep(py::module_ &m);
} // namespace imb_python

namespace pybind11::detail
{
template <> struct type_caster<IMB_DataFormat> : imb_python::EnumCaster<IMB_DataFormat>
{
};
template <> struct type_caster<IMB_Packing> : imb_python::EnumCaster<IMB_Packing>
{
};
template <> struct type_caster<IMB_ColorSpace> : imb_python::EnumCaster<IMB_ColorSpace>
{
};
template <> struct type_caster<IMB_LumFunction> : imb_python::EnumCaster<IMB_LumFunction>
{
};
template <> struct type_caster<IMB_LookupType> : imb_python::EnumCaster<IMB_LookupType>
{
};
template <> struct type_caster<IMB_Dither> : imb_python::EnumCaster<IMB_Dither>
{
};
} // namespace pybind11::detail
