// imb.deep: deep channel lists, sample lists (their planes as numpy views),
// the pixel accumulator, compressors, filters and the JSON form.
#include "Bindings.h"

#include <IMB/platform/BAS_JSONParser.h>
#include <IMB/platform/BAS_JSONWriter.h>

#include <pybind11/stl.h>

#include <optional>

// Channel lists, sample lists and filters are held by their intrusive count,
// so a list the library hands back twice is the same Python object.
PYBIND11_DECLARE_HOLDER_TYPE(T, BAS_IntrusivePtr<T>, true);

namespace imb_python
{
namespace
{
using ChannelsPtr = BAS_IntrusivePtr<IMB_DeepChannelList>;
using ListPtr = BAS_IntrusivePtr<IMB_DeepSampleList>;
using FilterPtr = BAS_IntrusivePtr<IMB_DeepSampleFilter>;
using CompressorPtr = std::shared_ptr<IMB_DeepCompressor>;

ChannelsPtr makeChannels(const std::vector<py::tuple> &channels)
{
    ChannelsPtr list(new IMB_DeepChannelList);
    for (const py::tuple &c : channels)
    {
        if (c.size() < 2 || c.size() > 3 || !py::isinstance<py::str>(c[0]) || !PyLong_Check(c[1].ptr()))
            throw py::type_error("ChannelList: each channel is (name, tuple_size) or (name, tuple_size, ordinal)");
        const int size = c[1].cast<int>();
        if (size < 1)
            throw py::value_error("ChannelList: a tuple size must be at least 1");
        list->addChannel(c[0].cast<std::string>(), size, c.size() == 3 && py::bool_(c[2]));
    }
    return list;
}

int channelIndex(const IMB_DeepChannelList &channels, py::handle which, const char *what)
{
    int index;
    if (py::isinstance<py::str>(which))
    {
        index = channels.findChannel(which.cast<std::string>().c_str());
        if (index < 0)
            throw py::value_error(std::string(what) + ": no channel named '" + which.cast<std::string>() + "'");
        return index;
    }
    if (!PyLong_Check(which.ptr()))
        throw py::type_error(std::string(what) + ": a channel is named by its name or its index");
    index = which.cast<int>();
    if (index < 0 || index >= channels.channelCount())
        throw py::value_error(std::string(what) + ": channel index " + std::to_string(index) + " out of range");
    return index;
}

const IMB_DeepChannelList &channelsOf(const IMB_DeepSampleList &l)
{
    static const IMB_DeepChannelList none;
    return l.channels() ? *l.channels() : none;
}

// A plane of `count` x `width` values at `data`, viewed without a copy; the
// view keeps the list (`owner`) alive.
template <typename T> py::array plane(py::handle owner, T *data, int count, int width)
{
    std::vector<py::ssize_t> shape{count}, strides{static_cast<py::ssize_t>(sizeof(T) * width)};
    if (width > 1)
    {
        shape.push_back(width);
        strides.push_back(sizeof(T));
    }
    if (count == 0 || !data)
        return py::array_t<T>(shape);
    return py::array_t<T>(shape, strides, data, owner);
}

// ------------------------------------------------------------ accumulator

struct PyDeepPixel
{
    PyDeepPixel(const ChannelsPtr &channels, int subSamples)
        : pixel(channels, subSamples), subSamples(subSamples), floats(channels->totalSize())
    {
    }
    IMB_DeepPixel pixel;
    int subSamples;
    int floats;
    int mipStores = 0;
    // Stores may run on several threads at once, but not beside closing:
    // stores running without the GIL, and whether a close is.
    int storing = 0;
    bool closing = false;

    void checkNotClosing() const
    {
        if (closing)
            throw std::runtime_error("DeepPixel: the pixel is being closed in another thread");
    }
};

std::unique_ptr<PyDeepPixel> makePixel(const ChannelsPtr &channels, int subSamples)
{
    if (!channels)
        throw py::value_error("DeepPixel: a channel list is needed");
    if (subSamples < 1)
        throw py::value_error("DeepPixel: subsamples must be at least 1");
    return std::make_unique<PyDeepPixel>(channels, subSamples);
}

void checkId(const PyDeepPixel &p, int id)
{
    if (id >= p.subSamples || id >= 64)
        throw py::value_error("store: sub-sample id " + std::to_string(id) + " is not below the pixel's " +
                              std::to_string(std::min(p.subSamples, 64)) + " positions");
}

void storeSamples(PyDeepPixel &p, py::handle zf, py::handle zb, py::handle vals, py::handle fl, py::handle ids)
{
    using F = py::array_t<float, py::array::c_style | py::array::forcecast>;
    using I = py::array_t<int32, py::array::c_style | py::array::forcecast>;
    F front = F::ensure(zf), back = F::ensure(zb), values = F::ensure(vals);
    if (!front || !back || !values || front.ndim() != 1)
        throw py::type_error("store_samples: zfront, zback and values must be arrays of numbers");
    const py::ssize_t n = front.shape(0);
    if (back.ndim() != 1 || back.shape(0) != n || values.ndim() != 2 || values.shape(0) != n ||
        values.shape(1) != p.floats)
        throw py::value_error("store_samples: expected zfront and zback of shape (n,) and values of shape (n, " +
                              std::to_string(p.floats) + ")");
    I flags, idArr;
    if (!fl.is_none())
    {
        flags = I::ensure(fl);
        if (!flags || flags.ndim() != 1 || flags.shape(0) != n)
            throw py::value_error("store_samples: flags must have shape (n,)");
    }
    if (!ids.is_none())
    {
        idArr = I::ensure(ids);
        if (!idArr || idArr.ndim() != 1 || idArr.shape(0) != n)
            throw py::value_error("store_samples: ids must have shape (n,)");
        for (py::ssize_t i = 0; i < n; ++i)
            checkId(p, idArr.data()[i]);
    }
    const float *f = front.data(), *b = back.data(), *v = values.data();
    const int32 *fp = fl.is_none() ? nullptr : flags.data(), *ip = ids.is_none() ? nullptr : idArr.data();
    p.checkNotClosing();
    struct Storing
    {
        int &count;
        explicit Storing(int &c) : count(c) { ++count; }
        ~Storing() { --count; }
    } storing(p.storing);
    py::gil_scoped_release nogil;
    for (py::ssize_t i = 0; i < n; ++i)
        p.pixel.store(f[i], b[i], v + i * p.floats, fp ? fp[i] : 0, ip ? ip[i] : 0);
}

// ------------------------------------------------------------ filters

struct PyFilter
{
    FilterPtr filter;
    ChannelsPtr input;
};

ListPtr applyFilter(const PyFilter &f, const ListPtr &list)
{
    if (!list)
        return list;
    if (!f.input)
        throw py::value_error("apply: call update_channels with the lists' channel list first");
    if (!list->channels() || !list->channels()->isEqual(*f.input))
        throw py::value_error("apply: the list's channels differ from those given to update_channels");
    return f.filter->apply(list);
}

// ------------------------------------------------------------ JSON

std::string dumps(const ListPtr &list)
{
    BAS_JSONWriter w;
    Messages msgs;
    if (!IMB_DeepSampleList::save(w, list, list ? list->channels() : ChannelsPtr()))
        msgs.fail("imb.deep: the list could not be written as JSON");
    return w.str();
}

py::tuple loads(const std::string &text, const ChannelsPtr &channels)
{
    if (!channels)
        throw py::value_error("loads: a channel list is needed");
    BAS_JSONParser parser(text);
    Messages msgs;
    ListPtr list = IMB_DeepSampleList::load(parser, channels);
    if (!list)
    {
        std::string why;
        for (const BAS_StringHolder &f : parser.fatals())
            why += (why.empty() ? "" : "\n") + f.toStdString();
        msgs.fail("imb.deep: not a deep sample list" + (why.empty() ? std::string() : ": " + why));
    }
    return py::make_tuple(list, listOf(parser.warnings()));
}
} // namespace

void bindDeep(py::module_ &m)
{
    py::module_ d = m.def_submodule("deep", "Deep images (see imb.deep).");

    py::class_<IMB_DeepChannelList, ChannelsPtr>(d, "ChannelList", R"doc(
The value channels every deep sample carries besides its depth range, flags
and coverage: each has a name, a tuple size (floats per sample) and an
offset; ordinal channels (identifiers) are copied, never blended.
)doc")
        .def(py::init(&makeChannels), py::arg("channels") = std::vector<py::tuple>(), R"doc(
A channel list from (name, tuple_size) or (name, tuple_size, ordinal)
tuples, in order.
)doc")
        .def(
            "add_channel",
            [](IMB_DeepChannelList &c, const std::string &name, int size, bool ordinal) {
                if (size < 1)
                    throw py::value_error("add_channel: a tuple size must be at least 1");
                // The Python object holds one reference; more mean that lists share it.
                if (c.use_count() > 1)
                    throw py::value_error("add_channel: the channel list is in use and may no longer change");
                c.addChannel(name, size, ordinal);
            },
            py::arg("name"), py::arg("tuple_size"), py::arg("ordinal") = false,
            "Appends a channel. ValueError once the list is shared by sample lists or other objects.")
        .def("__len__", &IMB_DeepChannelList::channelCount, "Number of channels.")
        .def(
            "__getitem__",
            [](const IMB_DeepChannelList &c, int i) {
                if (i < 0)
                    i += c.channelCount();
                if (i < 0 || i >= c.channelCount())
                    throw py::index_error("channel index out of range");
                return py::make_tuple(c.name(i).toStdString(), c.tupleSize(i), c.offset(i), c.isOrdinal(i));
            },
            py::arg("index"), "Channel `index` as (name, tuple_size, offset, ordinal).")
        .def(
            "find", [](const IMB_DeepChannelList &c, const std::string &name) { return c.findChannel(name.c_str()); },
            py::arg("name"), "Index of the first channel named `name`, or -1.")
        .def_property_readonly("total_size", &IMB_DeepChannelList::totalSize, "Sum of the tuple sizes.")
        .def_property_readonly("max_size", &IMB_DeepChannelList::maxSize, "Largest tuple size.")
        .def(
            "__eq__", [](const IMB_DeepChannelList &a, const IMB_DeepChannelList &b) { return a.isEqual(b); },
            py::arg("other"), "Same channels in the same order (names, tuple sizes, offsets, ordinal flags).");

    py::class_<IMB_DeepSampleList, ListPtr>(d, "SampleList", R"doc(
The samples of one deep pixel: per sample a depth range (zfront, zback), a
flag byte (0x01 volume, 0x02 matte), a 64-bit coverage mask and one float
tuple per channel. zfront, zback, flags, coverage and channel() are numpy
views of the list's planes (no copy; writes go to the list; a view keeps the
list alive).
)doc")
        .def(py::init([](const ChannelsPtr &channels, int count, bool composited) {
                 if (!channels)
                     throw py::value_error("SampleList: a channel list is needed");
                 if (count < 0)
                     throw py::value_error("SampleList: the count must not be negative");
                 ListPtr l(new IMB_DeepSampleList(channels, count, composited));
                 l->zeroData();
                 return l;
             }),
             py::arg("channels"), py::arg("count"), py::arg("composited") = false,
             "A list of `count` samples laid out by `channels`, all values zero.")
        .def("__len__", &IMB_DeepSampleList::sampleCount, "Number of samples.")
        .def_property_readonly("channels", &IMB_DeepSampleList::channels, "The channel list.")
        .def_property("composited", &IMB_DeepSampleList::preComposited, &IMB_DeepSampleList::setPreComposited,
                      "True when the channels hold running composites rather than each sample's own "
                      "contribution.")
        .def_property_readonly(
            "zfront",
            [](py::object self) {
                auto &l = self.cast<IMB_DeepSampleList &>();
                return plane(self, l.zfrontBuffer(), l.sampleCount(), 1);
            },
            "Front depths, float32 view of shape (count,).")
        .def_property_readonly(
            "zback",
            [](py::object self) {
                auto &l = self.cast<IMB_DeepSampleList &>();
                return plane(self, l.zbackBuffer(), l.sampleCount(), 1);
            },
            "Back depths, float32 view of shape (count,).")
        .def_property_readonly(
            "flags",
            [](py::object self) {
                auto &l = self.cast<IMB_DeepSampleList &>();
                return plane(self, l.flagBuffer(), l.sampleCount(), 1);
            },
            "Flag bytes, uint8 view of shape (count,).")
        .def_property_readonly(
            "coverage",
            [](py::object self) {
                auto &l = self.cast<IMB_DeepSampleList &>();
                return plane(self, l.coverageBuffer(), l.sampleCount(), 1);
            },
            "Coverage masks, uint64 view of shape (count,).")
        .def(
            "channel",
            [](py::object self, py::handle which) {
                auto &l = self.cast<IMB_DeepSampleList &>();
                const int ch = channelIndex(channelsOf(l), which, "channel");
                return plane(self, l.channelBuffer(ch), l.sampleCount(), l.channels()->tupleSize(ch));
            },
            py::arg("channel"),
            "The plane of a channel (name or index): float32 view of shape (count,) for tuple size 1, else "
            "(count, tuple_size).")
        .def(
            "composite",
            [](IMB_DeepSampleList &l, py::handle opacity, bool force) {
                l.composite(channelIndex(channelsOf(l), opacity, "composite"), force);
            },
            py::arg("opacity"), py::arg("force") = false, R"doc(
Turns the samples' own contributions into running composites, front to
back, in place, using the opacity channel (name or index; tuple size 1, or 3
and more per component). Nothing when already composited unless `force`.
)doc")
        .def(
            "uncomposite",
            [](IMB_DeepSampleList &l, py::handle opacity, bool force) {
                l.uncomposite(channelIndex(channelsOf(l), opacity, "uncomposite"), force);
            },
            py::arg("opacity"), py::arg("force") = false, R"doc(
The inverse of composite. Components whose previous composited opacity is 0
(per-component opacity) are left as they are (kept).
)doc")
        .def(
            "find_full_opacity",
            [](const IMB_DeepSampleList &l, py::handle opacity, float threshold) {
                return l.findFullOpacity(channelIndex(channelsOf(l), opacity, "find_full_opacity"), threshold);
            },
            py::arg("opacity"), py::arg("threshold") = 1.0f,
            "Number of leading samples needed for every opacity component to reach `threshold` (the count when "
            "none does).")
        .def_static("combine", &IMB_DeepSampleList::combine, py::arg("a"), py::arg("b"), R"doc(
Both lists' samples, each cut at the other's depth boundaries, in ascending
depth order. None or an empty `a` gives `b`; None or an empty `b`, or lists
of different channels or forms, give `a`.
)doc")
        .def(
            "copy", [](const IMB_DeepSampleList &l) { return ListPtr(new IMB_DeepSampleList(l)); },
            "A copy of the samples, sharing the channel list.")
        .def("to_json", [](const ListPtr &l) { return dumps(l); }, "The JSON form (see imb.deep.dumps).");

    py::class_<PyDeepPixel>(d, "DeepPixel", R"doc(
Gathers the samples of one pixel and closes them into one sample list with
a compressor: start, any number of stores of one style, close. Raw stores
(single samples with a sub-sample id) may come from several threads at once;
list stores (whole lists, at most four per pixel) are taken as they are.
Starting or closing while stores run in other threads, and storing while
the pixel closes, raise RuntimeError.
)doc")
        .def(py::init(&makePixel), py::arg("channels"), py::arg("subsamples") = 1,
             "An accumulator for samples of `channels` over `subsamples` sub-pixel positions (ids 0 to "
             "subsamples - 1).")
        .def(
            "start",
            [](PyDeepPixel &p, int x, int y, bool composited) {
                if (x < 0 || y < 0)
                    throw py::value_error("start: x and y must not be negative");
                p.checkNotClosing();
                if (p.storing)
                    throw std::runtime_error("DeepPixel: stores are running in other threads");
                p.pixel.startPixel(x, y, composited);
            },
            py::arg("x"), py::arg("y"), py::arg("composited") = true,
            "Opens the pixel at (x, y); the lists closing builds get the `composited` flag.")
        .def(
            "store",
            [](PyDeepPixel &p, float zfront, float zback, const std::vector<float> &values, int flags, int id) {
                if (static_cast<int>(values.size()) != p.floats)
                    throw py::value_error("store: expected " + std::to_string(p.floats) + " channel values, got " +
                                          std::to_string(values.size()));
                checkId(p, id);
                p.checkNotClosing();
                p.pixel.store(zfront, zback, values.data(), flags, id);
            },
            py::arg("zfront"), py::arg("zback"), py::arg("values"), py::arg("flags") = 0, py::arg("id") = 0, R"doc(
Stores one raw sample: its depth range, total_size channel values in
channel order, its flag byte and its sub-sample id (a negative id gives
coverage 0).
)doc")
        .def("store_samples", &storeSamples, py::arg("zfront"), py::arg("zback"), py::arg("values"),
             py::arg("flags") = py::none(), py::arg("ids") = py::none(), R"doc(
Stores n raw samples at once from arrays: zfront and zback of shape (n,),
values (n, total_size), flags and ids (n,) or None for 0. The GIL is
released meanwhile, so threads may store into one pixel together.
)doc")
        .def(
            "store_list",
            [](PyDeepPixel &p, const ListPtr &list) {
                if (!list)
                    return;
                if (p.mipStores >= 4)
                    throw py::value_error("store_list: at most four lists per pixel");
                p.checkNotClosing();
                ++p.mipStores;
                p.pixel.store(list);
            },
            py::arg("list"), "Stores a whole sample list (at most four per pixel); None is ignored.")
        .def(
            "close",
            [](PyDeepPixel &p, const CompressorPtr &compressor) {
                p.checkNotClosing();
                if (p.storing)
                    throw std::runtime_error("DeepPixel: stores are running in other threads");
                struct Closing
                {
                    bool &flag;
                    explicit Closing(bool &f) : flag(f) { flag = true; }
                    ~Closing() { flag = false; }
                } closing(p.closing);
                ListPtr out;
                {
                    py::gil_scoped_release nogil;
                    out = p.pixel.closePixel(compressor);
                }
                p.mipStores = 0;
                return out;
            },
            py::arg("compressor") = py::none(), R"doc(
Closes the pixel: sorts the raw samples by id and depth into one list per
id (or takes the stored lists), compresses each and, with more than one
sub-sample position, merges them. Returns the list, or None for a pixel
without samples. The GIL is released meanwhile.
)doc")
        .def_property_readonly("is_open", [](const PyDeepPixel &p) { return p.pixel.isOpen(); },
                               "True between start and close.")
        .def_property_readonly("position", [](const PyDeepPixel &p) { return py::make_tuple(p.pixel.x(), p.pixel.y()); },
                               "(x, y) of the open pixel; (-1, -1) when closed.");

    py::class_<IMB_DeepCompressor, CompressorPtr>(d, "Compressor", R"doc(
Reduces and merges the sample lists of one pixel. "null" keeps every sample
(merging interleaves the lists by depth); "simple", "mip" and "default" merge
neighbouring samples within a depth tolerance ("zbias", default 0.001) or
an opacity tolerance ("ofbias", default 1/32, or 1 / 2**(10 - c) for
"deepcompression" c) of the opacity channel ("ofname", default "Of").
)doc")
        .def(py::init([](const std::string &name, const ChannelsPtr &channels, py::kwargs options) {
                 BAS_Options o = optionsOf(options);
                 CompressorPtr c = IMB_DeepCompressor::Factory::create(name.c_str(), channels, o);
                 if (!c)
                     throw py::value_error("Compressor: no compressor named '" + name + "'");
                 return c;
             }),
             py::arg("name"), py::arg("channels") = ChannelsPtr(),
             "The compressor registered as `name` for `channels`, configured by keyword options. ValueError for "
             "an unknown name.")
        .def_property_readonly("name", &IMB_DeepCompressor::name, "The compressor's name (\"null\", \"simple\").")
        .def_property_readonly("channels", &IMB_DeepCompressor::channels, "The channel list it was made for.")
        .def(
            "compress", [](const IMB_DeepCompressor &c, const ListPtr &l) { return c.compress(l); }, py::arg("list"),
            "Compresses one list (the built-in compressors return the same list).")
        .def(
            "merge",
            [](const IMB_DeepCompressor &c, const std::vector<ListPtr> &lists) {
                py::gil_scoped_release nogil;
                return c.merge(lists.data(), static_cast<int>(lists.size()));
            },
            py::arg("lists"), R"doc(
Merges lists (each ordered by zfront; None entries allowed and counted in
the simple merge's weights) into one, or None when all are None or empty.
)doc");
    d.def(
        "compressor_names",
        [] {
            IMB_DeepCompressor::Factory::initCompressors();
            BAS_StringArray names;
            IMB_DeepCompressor::Factory::getCompressors(names);
            return listOf(names);
        },
        "The registered compressor names, sorted.");

    py::class_<PyFilter>(d, "Filter", R"doc(
Transforms sample lists of one channel layout: tell it the input channels
with update_channels, then apply it to lists of that layout.
)doc")
        .def_static(
            "null", [] { return PyFilter{IMB_DeepSampleFilter::nullFilter(), {}}; }, "Passes lists unchanged.")
        .def_static(
            "monochrome", [](const std::string &n) { return PyFilter{IMB_DeepSampleFilter::monochrome(n), {}}; },
            py::arg("channel"), "Replaces the named channel's tuple by the mean of its components (tuple size 1).")
        .def_static(
            "precomposite", [](const std::string &n) { return PyFilter{IMB_DeepSampleFilter::precomposite(n), {}}; },
            py::arg("opacity"), "Turns lists into running composites using the named opacity channel.")
        .def_static(
            "uncomposite", [](const std::string &n) { return PyFilter{IMB_DeepSampleFilter::uncomposite(n), {}}; },
            py::arg("opacity"), "Turns running composites back into individual contributions.")
        .def(
            "update_channels",
            [](PyFilter &f, const ChannelsPtr &input) {
                if (!input)
                    throw py::value_error("update_channels: a channel list is needed");
                f.input = input;
                return f.filter->updateChannels(input);
            },
            py::arg("channels"), "Takes the input channel list and returns the output channel list.")
        .def_property_readonly("channels", [](const PyFilter &f) { return f.filter->channels(); },
                               "The output channel list (None before update_channels).")
        .def(
            "filtered_tuple_size",
            [](const PyFilter &f, const std::string &name, int size) {
                return f.filter->filteredTupleSize(name.c_str(), size);
            },
            py::arg("name"), py::arg("tuple_size"), "The tuple size the named channel has after filtering.")
        .def("apply", &applyFilter, py::arg("list"), R"doc(
The filtered list, or `list` itself when there is nothing to change.
ValueError before update_channels or for a list of other channels.
)doc");

    d.def("dumps", &dumps, py::arg("list"), "The JSON form of a sample list; None gives \"[]\".");
    d.def("loads", &loads, py::arg("text"), py::arg("channels"),
          "Reads a list from its JSON form; returns (list, warnings). See imb.deep.loads.");
}
} // namespace imb_python
