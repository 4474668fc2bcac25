// The extension module imb._imb and the helpers shared by its bindings.
#include "Bindings.h"

#include <pybind11/stl.h>

namespace imb_python
{
namespace
{
// imb._types, imported once at module import and kept for the life of the
// process (never released: the interpreter may be gone when static objects
// are destroyed).
py::module_ *theTypes = nullptr;
} // namespace

void loadTypes()
{
    theTypes = new py::module_(py::module_::import("imb._types"));
}

py::handle typesClass(const char *name)
{
    return theTypes->attr(name);
}

void raiseError(const std::string &what)
{
    PyErr_SetString(typesClass("Error").ptr(), what.c_str());
    throw py::error_already_set();
}

Messages::~Messages()
{
    if (myCapture.empty())
        return;
    // An exception may be on its way out: keep its error indicator aside.
    py::error_scope pending;
    try
    {
        py::module_::import("sys").attr("stderr").attr("write")(myCapture.text());
    }
    catch (py::error_already_set &e)
    {
        e.discard_as_unraisable("imb: passing on the library's messages");
    }
}

void Messages::fail(const std::string &what)
{
    std::string text = what;
    if (!myCapture.empty())
    {
        std::string collected = myCapture.text();
        while (!collected.empty() && (collected.back() == '\n' || collected.back() == ' '))
            collected.pop_back();
        text += ":\n" + collected;
        myCapture.clear();
    }
    raiseError(text);
}

// ------------------------------------------------------------------ numpy

py::dtype dtypeOf(IMB_DataFormat format)
{
    switch (format)
    {
    case IMB_INT8: return py::dtype("uint8");
    case IMB_INT16: return py::dtype("uint16");
    case IMB_INT32: return py::dtype("uint32");
    case IMB_FLOAT32: return py::dtype("float32");
    case IMB_FLOAT16: return py::dtype("float16");
    default: throw py::value_error("no numpy type for an undefined format");
    }
}

IMB_DataFormat formatOf(const py::dtype &dtype)
{
    const char kind = dtype.kind();
    const bool native = dtype.attr("isnative").cast<bool>();
    if (native && kind == 'u')
        switch (dtype.itemsize())
        {
        case 1: return IMB_INT8;
        case 2: return IMB_INT16;
        case 4: return IMB_INT32;
        }
    if (native && kind == 'f')
        switch (dtype.itemsize())
        {
        case 2: return IMB_FLOAT16;
        case 4: return IMB_FLOAT32;
        }
    throw py::type_error("unsupported dtype " + py::str(py::handle(dtype)).cast<std::string>() +
                         ": expected uint8, uint16, uint32, float32 or float16");
}

py::array arrayOf(py::handle obj, bool written, const char *what)
{
    if (py::isinstance<py::array>(obj))
        return py::reinterpret_borrow<py::array>(obj);
    if (py::isinstance<PyRaster>(obj) || !written)
        return py::module_::import("numpy").attr("asarray")(obj);
    throw py::type_error(std::string(what) + ": expected a numpy array or an imb.Raster to write into");
}

bool layoutOf(const py::array &a, Layout &out)
{
    out.format = formatOf(a.dtype());
    const auto nd = a.ndim();
    if (nd != 2 && nd != 3)
        throw py::value_error("expected an array of shape (height, width) or (height, width, channels), got " +
                              std::to_string(nd) + " dimensions");
    const int64 item = a.itemsize();
    out.data = static_cast<char *>(const_cast<void *>(a.data()));
    out.height = a.shape(0);
    out.width = a.shape(1);
    out.channels = nd == 3 ? a.shape(2) : 1;
    const int64 s0 = a.strides(0), s1 = a.strides(1), s2 = nd == 3 ? a.strides(2) : 0;
    // Strides of dimensions of length 1 mean nothing; take what the others
    // imply.
    int64 pixelBytes = s1;
    if (out.width == 1)
        pixelBytes = out.height > 1 ? s0 : item;
    if (pixelBytes < item || pixelBytes % item != 0)
        return false;
    out.xinc = pixelBytes / item;
    if (out.height > 1 && s0 != out.width * pixelBytes)
        return false;
    out.channelStep = out.channels > 1 ? s2 : 0;
    if (out.channelStep % item != 0)
        return false;
    return true;
}

Layout writableLayout(const py::array &a, const char *what)
{
    Layout l;
    if (!layoutOf(a, l))
        throw py::value_error(std::string(what) +
                              ": the array's rows must be packed one after another (a numpy array in C "
                              "order, a view of its channels, or a raster's view)");
    if (!a.writeable())
        throw py::value_error(std::string(what) + ": the array is read-only");
    return l;
}

Layout readableLayout(py::array &a)
{
    Layout l;
    if (layoutOf(a, l))
        return l;
    a = py::module_::import("numpy").attr("ascontiguousarray")(a);
    layoutOf(a, l);
    return l;
}

// ------------------------------------------------------------------ options

BAS_Options optionsOf(const py::dict &d)
{
    BAS_Options o;
    for (auto item : d)
    {
        if (!py::isinstance<py::str>(item.first))
            throw py::type_error("option names must be str");
        const std::string key = item.first.cast<std::string>();
        py::handle v = item.second;
        if (PyBool_Check(v.ptr()))
            o.setOptionB(key, v.cast<bool>());
        else if (PyLong_Check(v.ptr()))
            o.setOptionI(key, v.cast<int64>());
        else if (PyFloat_Check(v.ptr()))
            o.setOptionF(key, v.cast<double>());
        else if (py::isinstance<py::str>(v))
            o.setOptionS(key, v.cast<std::string>());
        else if (py::isinstance<py::dict>(v))
            o.setOptionDict(key, optionsOf(v.cast<py::dict>()));
        else if (py::isinstance<py::list>(v) || py::isinstance<py::tuple>(v))
        {
            py::sequence seq = v.cast<py::sequence>();
            bool allStr = true, allNum = true;
            for (py::handle e : seq)
            {
                allStr = allStr && py::isinstance<py::str>(e);
                allNum = allNum && !PyBool_Check(e.ptr()) && (PyLong_Check(e.ptr()) || PyFloat_Check(e.ptr()));
            }
            if (allStr)
            {
                BAS_StringArray names;
                for (py::handle e : seq)
                    names.append(e.cast<std::string>());
                o.setOptionSArray(key, names);
            }
            else if (allNum)
                o.setOptionV(key, seq.cast<std::vector<double>>());
            else
                throw py::type_error("option '" + key + "': a list must hold only str or only numbers");
        }
        else
            throw py::type_error("option '" + key + "': unsupported value type " +
                                 py::str(py::type::of(v)).cast<std::string>());
    }
    return o;
}

py::dict dictOf(const BAS_Options &options)
{
    py::dict d;
    for (int i = 0; i < options.getNumOptions(); ++i)
    {
        const BAS_StringHolder &key = options.getOptionName(i);
        const char *k = key.c_str();
        switch (options.getOptionType(key))
        {
        case BAS_Options::Type::Int: d[k] = options.getOptionI(key); break;
        case BAS_Options::Type::Float: d[k] = options.getOptionF(key); break;
        case BAS_Options::Type::Bool: d[k] = options.getOptionB(key); break;
        case BAS_Options::Type::String: d[k] = options.getOptionS(key).toStdString(); break;
        case BAS_Options::Type::StringArray: d[k] = listOf(options.getOptionSArray(key)); break;
        case BAS_Options::Type::NumberVector: d[k] = options.getOptionV(key); break;
        case BAS_Options::Type::Dict: d[k] = dictOf(options.getOptionDict(key)); break;
        case BAS_Options::Type::None: d[k] = py::none(); break;
        }
    }
    return d;
}

py::list listOf(const BAS_StringArray &names)
{
    py::list l;
    for (const BAS_StringHolder &n : names)
        l.append(n.toStdString());
    return l;
}
} // namespace imb_python

PYBIND11_MODULE(_imb, m)
{
    m.doc() = "The compiled part of the imb package; use the package (import imb), not this module.";
    imb_python::loadTypes();
    imb_python::bindRaster(m);
    imb_python::bindFill(m);
    imb_python::bindLookup(m);
    imb_python::bindColour(m);
    imb_python::bindLuma(m);
    imb_python::bindDeep(m);
}
