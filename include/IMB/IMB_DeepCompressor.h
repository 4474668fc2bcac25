// IMB_DeepCompressor: reduces and merges the sample lists of one deep pixel.
//
// A compressor is created by name through a process-wide registry of
// factories (IMB_DeepCompressor::Factory), configured from a BAS_Options set,
// and shared as std::shared_ptr<IMB_DeepCompressor>. The deep pixel
// accumulator (IMB_DeepPixel) hands it the lists of a pixel's sub-sample
// positions and receives one list back.
//
// Ownership: compressors hold a reference to the channel list they were
// created for; results are new lists (or new references to inputs) owned by
// the caller through BAS_IntrusivePtr.
//
// Thread-safety: compressors are immutable after creation and may be used by
// many threads at once. The registry is built on first use without a lock of
// its own: build it (by a first Factory::create or Factory::initCompressors)
// before threads share it, and register further factories before that too.
//
// Built-in compressors:
//   "null"                     keeps every sample: compress is the identity,
//                              merge interleaves the lists by zfront.
//   "simple", "mip", "default" one shared factory; compress is the identity,
//                              merge combines the lists into one list of
//                              weighted samples (rule below).
//
// Options of the simple factory (missing keys take the default):
//   "deepcompression" int    5      level c, clamped to 0..10; only sets the
//                                   default of "ofbias" to 1 / 2^(10 - c)
//   "zbias"           float  0.001  depth tolerance; negative values give 0
//   "ofbias"          float  1/32   opacity tolerance
//   "ofname"          string "Of"   name of the opacity channel
// The opacity channel's index (_ofidx) is looked up in the channel list (-1
// when absent or without a list); ofsize is max(3, its tuple size), or 0 when
// absent. The null factory ignores the options.
//
// The simple merge. Every input list carries the weight 1/count (count being
// the number of array entries, nulls included), so a merged value is the
// coverage-weighted mean of the sub-sample positions. The lists (each sorted
// by zfront) are walked together front to back. The depth boundaries are the
// zfront of every sample and the zback of every volume sample (flag 0x01
// with zback > zfront). Output samples are groups of neighbouring boundaries:
//
//   * A group opens at a sample's zfront, its first boundary g0. Closing a
//     volume (its zback) never starts a group: the volume's remainder goes to
//     the group that is open then.
//   * The next sample, starting at depth d, joins the open group when
//       - d - g0 <= zbias (depth tolerance, so samples at equal depth always
//         join), or
//       - the opacity channel exists and, for every opacity component c below
//         ofsize, the group's opacity bound plus this sample's weighted
//         opacity stays <= ofbias (opacity tolerance: nearly transparent
//         neighbours are summed, and the error of summing instead of
//         compositing is at most ofbias per merge; ofbias 1 never lets a
//         merged opacity exceed 1),
//     except that a holdout (matte, 0x02) and a visible sample never join:
//     a group keeps the matte bit of the sample that opened it.
//   * Otherwise the group is closed at the split depth z = (b + d) * 0.5,
//     where b is the last boundary the group took in (a zfront or a closed
//     volume's zback), and a new group opens at d.
//   * The group's opacity bound, per component, is the sum of list weight x
//     opacity of every surface that joined it and of every volume that opened
//     in it (whole), plus list weight x remaining fraction x opacity of the
//     volumes carried into it. Opacity component c of a sample is its opacity
//     tuple's component c, or the last component when the tuple is shorter
//     (a one-float opacity applies to all three colour components). Without
//     the opacity channel (_ofidx -1) only zbias merges.
//
// Contributions: a surface adds its list weight in full to the group it
// joined. A volume from zfront to zback adds, at each split depth z that
// falls inside it, r = max(0, (zback - z) / (zback - zfront)) and 1 - r: the
// part in front of z (less what earlier groups took) times its list weight
// goes to the closing group, the part behind z is carried to the next group;
// when the volume ends, its remainder goes to the open group. The first
// contribution to a group is written with copySample scaled by its weight,
// each further one with addSample; the ordinal channels are then taken from
// the contribution with the largest weight (setConditional), an earlier one
// keeping them on equal weights, so identifiers are never blended.
// An output sample spans the union of the (clipped) depth ranges of its
// contributions; it has the volume bit when any contribution was a volume
// part, and the OR of the contributions' other flag bits; its coverage is the
// OR of theirs. Output samples come out front to back and do not overlap.
// The output's pre-composited flag is the first non-empty list's.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_DeepSampleList.h>
#include <IMB/platform/BAS_Array.h>
#include <IMB/platform/BAS_IntrusivePtr.h>
#include <IMB/platform/BAS_Options.h>
#include <IMB/platform/BAS_StringArray.h>

#include <memory>

class IMB_API IMB_DeepCompressor
{
public:
    using ListPtr = BAS_IntrusivePtr<IMB_DeepSampleList>;
    using ChannelsPtr = BAS_IntrusivePtr<IMB_DeepChannelList>;

    virtual ~IMB_DeepCompressor();

    // The channel list the compressor was created for (may be null).
    virtual const ChannelsPtr &channels() const = 0;
    // The compressor's name ("null", "simple", ...); never null.
    virtual const char *name() const = 0;

    // Compresses one list. The built-in compressors return the same list
    // object (a new reference); a null list gives a null list.
    ListPtr compress(const ListPtr &list) const { return doCompress(list); }

    // Merges `count` lists into one, laid out by the compressor's channel
    // list (or the first non-empty list's when the compressor has none).
    // Null and empty entries are allowed and skipped (they still count
    // towards the simple merge's weights), and so are lists whose channel
    // list is not equal to that layout. Each list must be ordered by zfront.
    // Only skipped entries, or a count of 0 or below, give a null list.
    ListPtr merge(const ListPtr *lists, int count) const { return doMerge(lists, count); }
    // Same, over the array's entries.
    ListPtr merge(const BAS_Array<ListPtr> &lists) const
    {
        return doMerge(lists.data(), static_cast<int>(lists.size()));
    }

    // Prints "<label> <name> =" (label "IMB_DeepCompressor" when null or
    // empty) and the compressor's settings to the standard output stream, then
    // flushes it.
    void dump(const char *label = nullptr) const;

    // Creates compressors of one kind. Factories are registered by name and
    // shared through std::shared_ptr.
    class IMB_API Factory
    {
    public:
        virtual ~Factory();

        // Creates a compressor for the channel list, configured from options.
        virtual std::shared_ptr<IMB_DeepCompressor> create(const ChannelsPtr &channels,
                                                           const BAS_Options &options) const = 0;

        // Creates a compressor by registered name (exact match). Builds the
        // registry on first use. An unknown or null name gives an empty
        // pointer.
        static std::shared_ptr<IMB_DeepCompressor> create(const char *name, const ChannelsPtr &channels,
                                                          const BAS_Options &options);

        // Adds or replaces the factory registered under `name`; a null name
        // is ignored. Registering a built-in name before the registry is built
        // is undone when it is built: call initCompressors() first.
        static void registerCompressor(const char *name, const std::shared_ptr<Factory> &factory);

        // Replaces `names` by every registered name, sorted. Does not build
        // the registry: before the first create() or initCompressors() it
        // lists only what registerCompressor() added.
        static void getCompressors(BAS_StringArray &names);

        // (Re)registers the built-ins: "null" (the null factory) and "mip",
        // "simple", "default" (one shared simple factory). Other entries are
        // kept.
        static void initCompressors();
    };

protected:
    IMB_DeepCompressor() = default;
    IMB_DeepCompressor(const IMB_DeepCompressor &) = default;
    IMB_DeepCompressor &operator=(const IMB_DeepCompressor &) = default;

    // Merges count lists (the array may hold nulls).
    virtual ListPtr doMerge(const ListPtr *lists, int count) const = 0;
    // Compresses one list.
    virtual ListPtr doCompress(const ListPtr &list) const = 0;
    // Prints the settings to the standard output stream; prints nothing here.
    virtual void doDump() const;
};
