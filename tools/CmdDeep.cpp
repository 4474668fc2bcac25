// imbtool deep: reads deep sample lists from JSON files and merges,
// compresses, composites, uncomposites or filters them, writing JSON; and
// merges and flattens deep OpenEXR images.
//
//   imbtool deep merge --channels "C:3,Of:3,id:1:ordinal" a.json b.json
//   imbtool deep composite --channels "C:3,Of:1" --opacity Of pixel.json -o out.json
//   imbtool deep merge a.exr b.exr -o merged.exr [--compressor null]
//   imbtool deep flatten merged.exr -o flat.exr
//
// A JSON file holds one list (the array or object form) or an array of lists
// ("[]" stands for a null list). One result is written as a list; several as
// an array of lists.
#include "Command.h"
#include "Progress.h"

#include <IMB/IMB_DeepCompressor.h>
#include <IMB/IMB_DeepSampleFilter.h>
#include <IMB/IMB_DeepSampleList.h>
#include <IMB/platform/BAS_JSONParser.h>
#include <IMB/platform/BAS_JSONWriter.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace
{
using ChannelsPtr = BAS_IntrusivePtr<IMB_DeepChannelList>;
using ListPtr = BAS_IntrusivePtr<IMB_DeepSampleList>;

struct DeepArgs
{
    std::string operation;
    std::string channels;
    std::vector<std::string> inputs;
    std::string output;
    std::string compressor; // "default" for JSON lists, "null" for EXR images
    std::vector<std::string> options;
    int count = 0;
    std::string opacity = "Of";
    bool force = false;
    std::string filter;
    std::string filterChannel;
    bool dump = false;
};

std::vector<std::string> split(const std::string &text, char sep)
{
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(text);
    while (std::getline(in, part, sep))
        parts.push_back(part);
    return parts;
}

// "C:3,Of:3,id:1:ordinal": name, tuple size and an optional "ordinal".
ChannelsPtr parseChannels(const std::string &text)
{
    ChannelsPtr channels(new IMB_DeepChannelList);
    for (const std::string &entry : split(text, ','))
    {
        const std::vector<std::string> f = split(entry, ':');
        if (f.size() < 2 || f.size() > 3 || f[0].empty())
            throw imbtool::Failure("bad channel '" + entry + "' (expected name:size or name:size:ordinal)");
        char *end = nullptr;
        const long size = std::strtol(f[1].c_str(), &end, 10);
        if (!end || *end || size < 1 || size > 64)
            throw imbtool::Failure("bad tuple size in channel '" + entry + "' (1 to 64)");
        if (f.size() == 3 && f[2] != "ordinal")
            throw imbtool::Failure("bad channel flag '" + f[2] + "' (only 'ordinal')");
        channels->addChannel(f[0].c_str(), static_cast<int>(size), f.size() == 3);
    }
    if (channels->channelCount() == 0)
        throw imbtool::Failure("--channels names no channel");
    return channels;
}

// "key=value": integers, then reals, else strings.
BAS_Options parseOptions(const std::vector<std::string> &items)
{
    BAS_Options options;
    for (const std::string &item : items)
    {
        const std::size_t eq = item.find('=');
        if (eq == std::string::npos || eq == 0)
            throw imbtool::Failure("bad option '" + item + "' (expected key=value)");
        const std::string key = item.substr(0, eq), value = item.substr(eq + 1);
        char *end = nullptr;
        const long long i = std::strtoll(value.c_str(), &end, 10);
        if (!value.empty() && end && !*end)
        {
            options.setOptionI(key.c_str(), i);
            continue;
        }
        const double d = std::strtod(value.c_str(), &end);
        if (!value.empty() && end && !*end)
            options.setOptionF(key.c_str(), d);
        else
            options.setOptionS(key.c_str(), value.c_str());
    }
    return options;
}

void reportMessages(const std::string &file, const BAS_JSONParser &parser)
{
    for (const BAS_StringHolder &w : parser.warnings())
        std::fprintf(stderr, "imbtool deep: %s: warning: %s\n", file.c_str(), w.c_str());
    for (const BAS_StringHolder &f : parser.fatals())
        std::fprintf(stderr, "imbtool deep: %s: error: %s\n", file.c_str(), f.c_str());
}

// Every list in the file, in order (null entries for "[]").
void readLists(const std::string &file, const ChannelsPtr &channels, std::vector<ListPtr> &lists)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw imbtool::Failure("cannot read '" + file + "'");
    BAS_JSONParser parser(in);
    const exint start = parser.position();
    bool many = false;
    if (parser.peek() == BAS_JSONParser::Token::BeginArray)
    {
        BAS_JSONParser::Iterator it = parser.beginArray();
        const BAS_JSONParser::Token first = parser.peek();
        many = first == BAS_JSONParser::Token::BeginArray || first == BAS_JSONParser::Token::BeginMap;
        if (many)
        {
            for (; !it.atEnd(); it.advance())
            {
                const BAS_JSONParser::Token t = parser.peek();
                if (t == BAS_JSONParser::Token::BeginArray || t == BAS_JSONParser::Token::BeginMap)
                {
                    // An empty array is a null list; anything else is read.
                    if (t == BAS_JSONParser::Token::BeginArray)
                    {
                        const exint at = parser.position();
                        BAS_JSONParser::Iterator inner = parser.beginArray();
                        if (inner.atEnd())
                        {
                            lists.emplace_back();
                            continue;
                        }
                        parser.rewind(at);
                    }
                    ListPtr l = IMB_DeepSampleList::load(parser, channels);
                    if (!l)
                        break;
                    lists.push_back(l);
                }
                else
                {
                    parser.addWarning("Skipping an item that is not a sample list");
                    parser.skipNextObject();
                }
            }
        }
        else if (first == BAS_JSONParser::Token::EndArray)
        {
            lists.emplace_back(); // "[]": one null list
            reportMessages(file, parser);
            return;
        }
        else
            parser.rewind(start);
    }
    if (!many)
    {
        ListPtr l = IMB_DeepSampleList::load(parser, channels);
        if (l)
            lists.push_back(l);
    }
    reportMessages(file, parser);
    if (parser.hasFatal())
        throw imbtool::Failure("cannot load the sample lists of '" + file + "'");
}

int channelIndex(const ChannelsPtr &channels, const std::string &name, const char *what)
{
    const int i = channels->findChannel(name.c_str());
    if (i < 0)
        throw imbtool::Failure(std::string("no ") + what + " channel '" + name + "' in --channels");
    return i;
}

void writeResults(const DeepArgs &args, const std::vector<ListPtr> &results, const ChannelsPtr &channels)
{
    std::ofstream file;
    std::ostream *os = &std::cout;
    if (!args.output.empty())
    {
        file.open(args.output, std::ios::binary);
        if (!file)
            throw imbtool::Failure("cannot write '" + args.output + "'");
        os = &file;
    }
    BAS_JSONWriter writer(*os);
    bool ok = true;
    if (results.size() == 1)
        ok = IMB_DeepSampleList::save(writer, results[0], channels);
    else
    {
        ok = writer.jsonBeginArray();
        for (const ListPtr &l : results)
            ok = ok && IMB_DeepSampleList::save(writer, l, channels);
        ok = ok && writer.jsonEndArray();
    }
    ok = ok && writer.flush();
    *os << "\n";
    os->flush();
    if (!ok || !*os)
        throw imbtool::Failure("writing the JSON output failed");
    if (!args.output.empty())
        std::fprintf(stderr, "imbtool deep: wrote %zu list(s) to %s\n", results.size(), args.output.c_str());
}

bool isExr(const std::string &path)
{
    return path.size() > 4 && (path.compare(path.size() - 4, 4, ".exr") == 0 ||
                               path.compare(path.size() - 4, 4, ".EXR") == 0);
}

std::shared_ptr<IMB_DeepCompressor> compressorOrFail(const std::string &name, const ChannelsPtr &channels,
                                                     const BAS_Options &options)
{
    auto compressor = IMB_DeepCompressor::Factory::create(name.c_str(), channels, options);
    if (!compressor)
    {
        BAS_StringArray names;
        IMB_DeepCompressor::Factory::getCompressors(names);
        std::string known;
        for (const BAS_StringHolder &n : names)
            known += (known.empty() ? "" : ", ") + n.toStdString();
        throw imbtool::Failure("unknown compressor '" + name + "' (known: " + known + ")");
    }
    return compressor;
}

IMB_DeepImage readDeepImage(const std::string &path)
{
    IMB_DeepImage image;
    BAS_ErrorCapture messages;
    if (!image.read(path.c_str()))
        throw imbtool::Failure(imbtool::reported(messages, "cannot read " + path));
    return image;
}

// merge and flatten of deep OpenEXR images.
void runDeepImages(const DeepArgs &args)
{
    if (args.operation != "merge" && args.operation != "flatten")
        throw imbtool::Failure("deep OpenEXR images can be merged and flattened; '" + args.operation +
                               "' works on JSON sample lists");
    if (args.output.empty())
        throw imbtool::Failure("-o/--output names the image to write");
    const auto t0 = std::chrono::steady_clock::now();
    auto seconds = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(); };
    BAS_ErrorCapture messages;
    if (args.operation == "flatten")
    {
        if (args.inputs.size() != 1)
            throw imbtool::Failure("flatten takes one deep image");
        const IMB_DeepImage image = readDeepImage(args.inputs[0]);
        IMB_Raster flat;
        if (!image.flatten(flat))
            throw imbtool::Failure(imbtool::reported(messages, "cannot flatten " + args.inputs[0]));
        IMB_ImageWindows windows = image.windows();
        IMB_ImageWriteOptions options;
        options.windows = &windows;
        if (!IMB_ImageFile::write(args.output.c_str(), flat, options))
            throw imbtool::Failure(imbtool::reported(messages, "cannot write " + args.output));
        std::fprintf(stderr, "imbtool deep: flattened %s (%d x %d, %lld samples) to %s (%.2f s)\n",
                     args.inputs[0].c_str(), image.width(), image.height(),
                     static_cast<long long>(image.sampleCount()), args.output.c_str(), seconds());
        return;
    }
    // Merging streams the files a band of scan lines at a time.
    const std::string name = args.compressor.empty() ? "null" : args.compressor;
    IMB_DeepCompressor::Factory::initCompressors();
    if (!IMB_DeepCompressor::Factory::create(name.c_str(), nullptr, BAS_Options()))
        compressorOrFail(name, nullptr, BAS_Options()); // the list of known names
    std::vector<const char *> inputs;
    for (const std::string &in : args.inputs)
        inputs.push_back(in.c_str());
    {
        imbtool::ProgressBar bar("merging");
        if (!IMB_DeepImage::mergeFiles(inputs.data(), int(inputs.size()), args.output.c_str(), name.c_str(),
                                       parseOptions(args.options), nullptr, &imbtool::ProgressBar::callback, &bar))
            throw imbtool::Failure(imbtool::reported(messages, "cannot merge into " + args.output));
    }
    std::fprintf(stderr, "imbtool deep: merged %zu image(s) with the '%s' compressor into %s (%.2f s)\n",
                 inputs.size(), name.c_str(), args.output.c_str(), seconds());
}

void runDeep(const DeepArgs &args)
{
    if (!args.inputs.empty() && std::all_of(args.inputs.begin(), args.inputs.end(), isExr))
        return runDeepImages(args);
    if (args.channels.empty())
        throw imbtool::Failure("--channels is required for JSON sample lists");
    if (args.operation == "flatten")
        throw imbtool::Failure("flatten works on deep OpenEXR images");
    const ChannelsPtr channels = parseChannels(args.channels);
    std::vector<ListPtr> lists;
    for (const std::string &file : args.inputs)
        readLists(file, channels, lists);

    std::vector<ListPtr> results;
    ChannelsPtr outChannels = channels;
    const std::string &op = args.operation;
    if (op == "merge" || op == "compress")
    {
        auto compressor = compressorOrFail(args.compressor.empty() ? "default" : args.compressor, channels,
                                           parseOptions(args.options));
        if (args.dump)
            compressor->dump("imbtool");
        if (op == "merge")
        {
            // Entries beyond the lists read are null (they still weigh in).
            const int count = args.count > 0 ? args.count : static_cast<int>(lists.size());
            std::vector<ListPtr> entries(lists);
            entries.resize(static_cast<std::size_t>(std::max(count, 0)));
            results.push_back(compressor->merge(entries.data(), count));
        }
        else
            for (const ListPtr &l : lists)
                results.push_back(compressor->compress(l));
    }
    else if (op == "composite" || op == "uncomposite")
    {
        const int opacity = channelIndex(channels, args.opacity, "opacity");
        for (const ListPtr &l : lists)
        {
            if (l)
            {
                if (op == "composite")
                    l->composite(opacity, args.force);
                else
                    l->uncomposite(opacity, args.force);
            }
            results.push_back(l);
        }
    }
    else if (op == "filter")
    {
        BAS_IntrusivePtr<IMB_DeepSampleFilter> filter;
        if (args.filter == "mono")
            filter = IMB_DeepSampleFilter::monochrome(args.filterChannel.empty() ? "C" : args.filterChannel.c_str());
        else if (args.filter == "precomposite")
            filter = IMB_DeepSampleFilter::precomposite(args.filterChannel.empty() ? args.opacity.c_str()
                                                                                   : args.filterChannel.c_str());
        else if (args.filter == "uncomposite")
            filter = IMB_DeepSampleFilter::uncomposite(args.filterChannel.empty() ? args.opacity.c_str()
                                                                                  : args.filterChannel.c_str());
        else
            throw imbtool::Failure("--filter must be mono, precomposite or uncomposite");
        outChannels = filter->updateChannels(channels);
        for (const ListPtr &l : lists)
            results.push_back(l ? filter->apply(l) : l);
    }
    else
        throw imbtool::Failure("unknown operation '" + op + "'");

    if (results.empty())
        results.emplace_back();
    writeResults(args, results, outChannels);
}

void setupDeep(CLI::App &app)
{
    auto args = std::make_shared<DeepArgs>();
    CLI::App *cmd = app.add_subcommand(
        "deep", "Merge, compress, composite or filter deep sample lists (JSON); merge or flatten deep OpenEXR images");
    cmd->add_option("operation", args->operation, "merge | compress | composite | uncomposite | filter | flatten")
        ->required()
        ->check(CLI::IsMember({"merge", "compress", "composite", "uncomposite", "filter", "flatten"}));
    cmd->add_option("inputs", args->inputs,
                    "JSON files, each holding one list or an array of lists; or deep OpenEXR images (.exr) for "
                    "merge (every pixel's samples of all inputs through the pixel accumulator) and flatten "
                    "(each pixel composited front to back into a flat RGBA image)")
        ->required()
        ->check(CLI::ExistingFile);
    cmd->add_option("--channels", args->channels,
                    "Channel list of JSON samples, e.g. \"C:3,Of:3,id:1:ordinal\" (name:size[:ordinal],...)");
    cmd->add_option("-o,--output", args->output,
                    "Write the result to this file (JSON: default standard output; required for images)");
    cmd->add_option("--compressor", args->compressor,
                    "Compressor for merge and compress (default: \"default\" for JSON lists, \"null\" for "
                    "images, whose merged pixels go through its compress step)");
    cmd->add_option("--option", args->options,
                    "Compressor option key=value (zbias, ofbias, ofname, deepcompression); repeatable")
        ->allow_extra_args(false);
    cmd->add_option("--count", args->count,
                    "Entries handed to merge (default: the lists read; extra entries are null)");
    cmd->add_option("--opacity", args->opacity, "Opacity channel for composite, uncomposite and the filters")
        ->capture_default_str();
    cmd->add_flag("--force", args->force, "Composite or uncomposite whatever the list's flag says");
    cmd->add_option("--filter", args->filter, "Filter to apply: mono | precomposite | uncomposite");
    cmd->add_option("--filter-channel", args->filterChannel,
                    "Channel the filter works on (mono: default C; the others: the opacity channel)");
    cmd->add_flag("--dump", args->dump, "Print the compressor's settings first (merge, compress)");
    cmd->callback([args] { runDeep(*args); });
}
} // namespace

IMBTOOL_COMMAND("deep", setupDeep);
