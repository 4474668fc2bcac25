// imb.ocio: colour management over the configuration named by $OCIO.
#include "Bindings.h"

#include <pybind11/stl.h>

#include <atomic>
#include <climits>
#include <memory>
#include <unordered_map>

namespace imb_python
{
namespace
{
py::object strOrNone(const char *s)
{
    if (!s)
        return py::none();
    return py::str(s);
}

py::list names(void (*query)(BAS_StringArray &))
{
    BAS_StringArray out;
    query(out);
    return listOf(out);
}

// ------------------------------------------------------------ callbacks

// The Python callables registered as configuration-change callbacks, by id.
// The library's registry holds only a functor that knows the id, so it never
// owns a Python object. Never freed: the library may outlive the interpreter.
std::unordered_map<int, py::object> *theCallbacks = new std::unordered_map<int, py::object>;

// Set on the thread running reload(): the library holds its registry lock
// while it calls the callbacks, so a callback that reloads or changes the
// registry would wait for itself.
thread_local bool tlsInReload = false;

void checkNotInCallback(const char *what)
{
    if (tlsInReload)
        throw std::runtime_error(std::string(what) + ": not allowed inside a configuration-change callback");
}

void runCallback(int id)
{
    py::gil_scoped_acquire gil;
    auto it = theCallbacks->find(id);
    if (it == theCallbacks->end())
        return;
    py::object fn = it->second;
    try
    {
        fn();
    }
    catch (py::error_already_set &e)
    {
        e.discard_as_unraisable("imb.ocio configuration-change callback");
    }
    catch (const std::exception &e)
    {
        PyErr_SetString(PyExc_RuntimeError, e.what());
        PyErr_WriteUnraisable(fn.ptr());
    }
}

int addCallback(py::function fn)
{
    checkNotInCallback("add_change_callback");
    auto key = std::make_shared<std::atomic<int>>(0);
    BAS_Functor<void> functor([key] { runCallback(key->load()); });
    int id;
    {
        py::gil_scoped_release nogil;
        id = IMB_OCIO::addConfigChangeCB(std::move(functor));
    }
    (*theCallbacks)[id] = std::move(fn);
    key->store(id);
    return id;
}

void removeCallback(int id)
{
    checkNotInCallback("remove_change_callback");
    {
        py::gil_scoped_release nogil;
        IMB_OCIO::removeConfigChangeCB(id);
    }
    theCallbacks->erase(id);
}

void reload()
{
    checkNotInCallback("reload");
    Messages msgs;
    struct Reloading
    {
        Reloading() { tlsInReload = true; }
        ~Reloading() { tlsInReload = false; }
    } reloading;
    py::gil_scoped_release nogil;
    IMB_OCIO::reload();
}

// ------------------------------------------------------------ processors

struct PyProcessor
{
    IMB_OCIO::PHandle handle;
    std::string description;
};

PyProcessor spaceProcessor(const std::string &src, const std::string &dst, const std::string &looks, bool inverse)
{
    Messages msgs;
    PyProcessor p{IMB_OCIO::lookupProcessor(src, dst, looks, !inverse), "'" + src + "' to '" + dst + "'"};
    if (!p.handle.isValid())
        msgs.fail("imb.ocio: no processor from " + p.description);
    return p;
}

PyProcessor viewProcessor(const std::string &src, std::optional<std::string> display, std::optional<std::string> view,
                          bool inverse)
{
    Messages msgs;
    PyProcessor p;
    if (display || view)
    {
        const char *d = display ? display->c_str() : IMB_OCIO::getDefaultDisplay();
        const std::string ds = d ? d : "";
        const char *v = view ? view->c_str() : IMB_OCIO::getDefaultView(ds.c_str());
        const std::string vs = v ? v : "";
        p = {IMB_OCIO::lookupViewProcessor(src, ds, vs, !inverse), "'" + src + "' to '" + ds + "'/'" + vs + "'"};
    }
    else
        p = {IMB_OCIO::lookupViewProcessor(src, !inverse), "'" + src + "' to the default display and view"};
    if (!p.handle.isValid())
        msgs.fail("imb.ocio: no processor from " + p.description);
    return p;
}

void applyProcessor(const PyProcessor &p, py::handle target)
{
    py::array a;
    if (py::isinstance<py::array>(target))
        a = py::reinterpret_borrow<py::array>(target);
    else if (py::isinstance<PyRaster>(target))
        a = py::module_::import("numpy").attr("asarray")(target);
    else
        throw py::type_error("apply: expected a numpy array or an imb.Raster");
    if (formatOf(a.dtype()) != IMB_FLOAT32)
        throw py::type_error("apply: colour transforms work on float32 pixels");
    if (a.ndim() < 1 || a.shape(a.ndim() - 1) < 3)
        throw py::value_error("apply: the last dimension must hold 3 or more channels per pixel");
    if (!(a.flags() & py::array::c_style))
        throw py::value_error("apply: the pixels must be packed in C order (interleaved RGB or RGBA rasters)");
    if (!a.writeable())
        throw py::value_error("apply: the array is read-only");
    const int channels = static_cast<int>(a.shape(a.ndim() - 1));
    int64 count = a.size() / channels;
    float *px = static_cast<float *>(a.mutable_data());
    Messages msgs;
    bool ok = true;
    {
        py::gil_scoped_release nogil;
        const int64 chunk = INT_MAX / channels;
        for (int64 done = 0; ok && done < count; done += chunk)
            ok = IMB_OCIO::transform(p.handle, px + done * channels,
                                     static_cast<int>(std::min(chunk, count - done)), channels);
    }
    if (!ok)
        msgs.fail("imb.ocio: the transform from " + p.description + " failed (stale after reload?)");
}
} // namespace

void bindColour(py::module_ &m)
{
    py::module_ o = m.def_submodule("ocio", "Colour management (see imb.ocio).");

    o.def(
        "config_path", [] { return IMB_OCIO::configFilePath().toStdString(); },
        "The path of the loaded configuration ($OCIO at the last load); '' when none is loaded.");
    o.def(
        "is_env_set",
        [](bool allow) {
            Messages msgs;
            return IMB_OCIO::isOCIOEnvSet(allow);
        },
        py::arg("allow_active_override") = false, R"doc(
False when no configuration is loaded; True when a load found $OCIO set;
otherwise `allow_active_override` and the last load found
$OCIO_ACTIVE_DISPLAYS or $OCIO_ACTIVE_VIEWS set.
)doc");
    o.def("reload", &reload, R"doc(
Loads the configuration again from the environment, empties the colour-space
and processor caches (every Processor made before becomes stale) and calls
every change callback. Call it while no other thread transforms pixels.
)doc");
    o.def("add_change_callback", &addCallback, py::arg("callback"), R"doc(
Registers a callable, called without arguments after every reload, and
returns its id (1, 2, 3 ... never reused). An exception in the callback is
reported as unraisable and does not stop the reload. Callbacks must not
reload or change the callbacks (RuntimeError).
)doc");
    o.def("remove_change_callback", &removeCallback, py::arg("id"),
          "Removes the callback with that id; an unknown id is ignored.");

    o.def(
        "color_spaces", [] { Messages msgs; return names(IMB_OCIO::getColorSpaces); },
        "The configuration's colour-space names, in configuration order ([] without configuration).");
    o.def(
        "roles", [] { Messages msgs; return names(IMB_OCIO::getRoles); }, "The configuration's role names.");
    o.def(
        "looks", [] { Messages msgs; return names(IMB_OCIO::getLooks); }, "The configuration's look names.");
    o.def(
        "displays",
        [] {
            Messages msgs;
            return names(IMB_OCIO::getActiveDisplays);
        },
        "The active displays: the configuration's active list, or every display.");
    o.def(
        "views",
        [](std::optional<std::string> display) {
            Messages msgs;
            if (!display)
                return names(IMB_OCIO::getActiveViews);
            BAS_StringArray out;
            IMB_OCIO::getViewsForDisplay(display->c_str(), out);
            return listOf(out);
        },
        py::arg("display") = py::none(),
        "The views of `display`; without one, the active views (the configuration's active list, or every view "
        "of the default display).");
    o.def(
        "default_display", [] { Messages msgs; return strOrNone(IMB_OCIO::getDefaultDisplay()); }, R"doc(
The first display of $OCIO_ACTIVE_DISPLAYS when the configuration has it
(compared exactly), else the configuration's default display; None without
configuration.
)doc");
    o.def(
        "default_view",
        [](std::optional<std::string> display) {
            Messages msgs;
            return strOrNone(IMB_OCIO::getDefaultView(display ? display->c_str() : nullptr));
        },
        py::arg("display") = py::none(), R"doc(
For no display or the default display: the configuration's default view
transform name (kept: not a view name). Otherwise the first view of
$OCIO_ACTIVE_VIEWS that the display has, else the display's default view.
)doc");
    o.def(
        "display_view_color_space",
        [](const std::string &d, const std::string &v) {
            Messages msgs;
            return strOrNone(IMB_OCIO::getColorSpaceForDisplayView(d.c_str(), v.c_str()));
        },
        py::arg("display"), py::arg("view"),
        "The colour space of a display/view; the display's name when the view uses \"<USE_DISPLAY_NAME>\".");
    o.def(
        "display_view_looks",
        [](const std::string &d, const std::string &v) {
            Messages msgs;
            return strOrNone(IMB_OCIO::getLooksForDisplayView(d.c_str(), v.c_str()));
        },
        py::arg("display"), py::arg("view"), "The looks of a display/view.");
    o.def(
        "display_view_transform",
        [](const std::string &d, const std::string &v) {
            Messages msgs;
            return strOrNone(IMB_OCIO::getTransformNameForDisplayView(d.c_str(), v.c_str()));
        },
        py::arg("display"), py::arg("view"), "The view transform of a display/view.");
    o.def(
        "viewing_rules",
        [] {
            Messages msgs;
            BAS_StringArray rules;
            IMB_OCIO::viewingRuleNames(rules);
            py::dict out;
            for (const BAS_StringHolder &r : rules)
                out[r.c_str()] = dictOf(IMB_OCIO::viewingRule(r));
            return out;
        },
        R"doc(
The viewing rules captured at the first load, by name: dicts with "name",
"spaces", "encodings" and "custom". Empty after any reload (kept).
)doc");
    o.def(
        "space_info",
        [](const std::string &name) -> py::object {
            Messages msgs;
            BAS_Options info;
            if (!IMB_OCIO::getInfo(IMB_OCIO::lookupSpace(name), info))
                return py::none();
            return dictOf(info);
        },
        py::arg("name"), R"doc(
What the configuration says of a colour space (a name, alias or role):
"name", "family", "equalitygroup", "description", "isdata", "allocation"
("uniform", "lg2" or "<unknown>"), "allocationvars", "bitdepth". None when
the configuration does not know the name.
)doc");
    o.def(
        "well_known_spaces",
        [] {
            Messages msgs;
            py::dict d;
            d["srgb"] = IMB_OCIO::getsRGBColorSpace().toStdString();
            d["rec709"] = IMB_OCIO::getRec709ColorSpace().toStdString();
            d["linear_rec709"] = IMB_OCIO::getLinearRec709ColorSpace().toStdString();
            d["raw"] = IMB_OCIO::getRawColorSpace().toStdString();
            d["file_default"] = IMB_OCIO::getFileDefaultColorSpace().toStdString();
            return d;
        },
        R"doc(
The spaces found at the last load under their canonical names: "srgb",
"rec709", "linear_rec709", "raw" and "file_default" (the space the file
rules give an .exr file); '' where the configuration has none.
)doc");
    o.def(
        "parse_color_space",
        [](const std::string &text) {
            Messages msgs;
            return strOrNone(IMB_OCIO::parseColorSpaceFromString(text.c_str()));
        },
        py::arg("text"),
        "The colour space named by a file path or similar text, by the parsing mode ($IMB_OCIO_PARSE_MODE); "
        "None when none matches.");
    o.def(
        "image_color_space",
        [](const std::string &space) {
            Messages msgs;
            BAS_StringHolder name;
            const IMB_ColorSpace tag = IMB_OCIO::imbImageColorSpace(BAS_StringHolder(space), name);
            return py::make_tuple(tag, name.toStdString());
        },
        py::arg("name"), R"doc(
The raster tag (imb.ColorSpace) and colour-space name for a name: SRGB,
REC709 or LINEAR for the well-known spaces, OCIO for other spaces of the
configuration; names it does not know are read as tag names ("srgb", ...).
)doc");
    o.def(
        "tag_color_space",
        [](IMB_ColorSpace tag, const std::string &ocioName) {
            Messages msgs;
            return IMB_OCIO::imbImageColorSpace(tag, BAS_StringHolder(ocioName)).toStdString();
        },
        py::arg("tag"), py::arg("ocio_name") = "", R"doc(
The colour-space name for a raster tag: LINEAR the linear Rec.709 space,
GAMMA2_2 and SRGB the sRGB space, REC709 the Rec.709 space, OCIO
`ocio_name` when the configuration knows it; '' otherwise.
)doc");

    py::class_<PyProcessor>(o, "Processor", R"doc(
A cached colour transform of the configuration. Made by Processor(src, dst)
between two colour spaces or by Processor.view(src, display, view); stale
after imb.ocio.reload().
)doc")
        .def(py::init(&spaceProcessor), py::arg("src"), py::arg("dst"), py::arg("looks") = "",
             py::arg("inverse") = false, R"doc(
The transform from colour space `src` to `dst` (through `looks`, one look
name; a leading '-' reverses it; an unknown look is left out), or its
inverse. imb.Error without configuration or for an unknown space.
)doc")
        .def_static("view", &viewProcessor, py::arg("src"), py::arg("display") = py::none(),
                    py::arg("view") = py::none(), py::arg("inverse") = false, R"doc(
The transform from colour space `src` to a display and view (the default
display and its default view when both are None).
)doc")
        .def_property_readonly("is_valid", [](const PyProcessor &p) { return p.handle.isValid(); },
                               "True until the next reload.")
        .def_property_readonly("is_3d", [](const PyProcessor &p) { return p.handle.is3D(); },
                               "True when the transform mixes channels (a table of it needs a cube).")
        .def_property_readonly("is_noop", [](const PyProcessor &p) { return p.handle.isNoOp(); },
                               "True when the transform changes nothing (or the processor is stale).")
        .def("apply", &applyProcessor, py::arg("pixels"), R"doc(
Transforms float32 pixels in place: a C-ordered numpy array whose last
dimension holds 3 (RGB) or more (RGBA, further channels untouched) channels,
or an interleaved float32 RGB or RGBA raster. The GIL is released meanwhile.
imb.Error when the processor is stale or the transform fails.
)doc")
        .def("__repr__", [](const PyProcessor &p) { return "<imb.ocio.Processor " + p.description + ">"; });
}
} // namespace imb_python
