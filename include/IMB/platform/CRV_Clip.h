// CRV_Clip and CRV_Track: the channel-curve storage behind 1D lookup tables.
//
// A clip is an ordered set of named tracks that share one length (samples
// per track) and one start position. A track is an array of 64-bit samples
// placed at positions start, start + 1, ..., start + length - 1; between two
// samples its value is the straight line joining them, and outside the
// samples it holds the end value.
//
// Ownership: the clip owns its tracks; track pointers stay valid until the
// track is removed or the clip destroyed (adding or removing other tracks
// does not move them). Thread-safety: none for changes; const evaluation may
// run concurrently.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_Types.h>

#include <memory>
#include <string>
#include <vector>

class CRV_Clip;

class IMB_API CRV_Track
{
public:
    // The track's name, as given when it was added.
    const std::string &getName() const { return myName; }
    // Number of samples (equal to the owning clip's track length).
    int64 getLength() const { return static_cast<int64>(mySamples.size()); }
    // Position of sample 0 (equal to the owning clip's start).
    double getStart() const { return myStart; }
    // The sample array; null when the track is empty.
    double *getData() { return mySamples.empty() ? nullptr : mySamples.data(); }
    const double *getData() const { return mySamples.empty() ? nullptr : mySamples.data(); }

    // Value at absolute position `pos` (sample index pos - start): linear
    // interpolation between the two neighbouring samples, the first sample
    // below the start and the last at or beyond start + length - 1; NaN
    // positions read the first sample. 0 for an empty track.
    double evaluateSingle(double pos) const;
    // Fills `out` with `count` values taken at evenly spaced positions from
    // `start` to `end` inclusive (count 1: the value at `start`), each as
    // evaluateSingle. Nothing happens when count < 1 or out is null.
    void evaluate(double start, double end, double *out, int count) const;

    // Bytes used by the samples, plus the object itself when inclusive.
    int64 getMemoryUsage(bool inclusive) const;

private:
    friend class CRV_Clip;
    CRV_Track(std::string name, int64 length, double start);

    std::string myName;
    std::vector<double> mySamples;
    double myStart;
};

class IMB_API CRV_Clip
{
public:
    // An empty clip: no tracks, length 0, start 0.
    CRV_Clip();
    // Deep copies: the tracks with their names and samples.
    CRV_Clip(const CRV_Clip &src);
    CRV_Clip &operator=(const CRV_Clip &src);
    ~CRV_Clip();

    int getNumTracks() const { return static_cast<int>(myTracks.size()); }
    // Track `index`, or null when the index is out of range.
    CRV_Track *getTrack(int index);
    const CRV_Track *getTrack(int index) const;

    // Appends a track of the current length, filled with zeros, and returns it.
    CRV_Track *addTrack(const char *name);
    // Removes track `index`; later tracks move down by one. False when the
    // index is out of range.
    bool removeTrack(int index);
    // Removes every track (the length and start stay).
    void destroyAllTracks();

    // Samples per track.
    int64 getTrackLength() const { return myLength; }
    // Changes every track's length, keeping the first min(old, new) samples;
    // new samples are zero. Negative lengths count as 0.
    void setTrackLength(int64 length);

    // Position of sample 0 of every track.
    double getStart() const { return myStart; }
    void setStart(double start);

    // Bytes used by every track's samples, plus the object (and the track
    // objects) when inclusive.
    int64 getMemoryUsage(bool inclusive) const;

private:
    std::vector<std::unique_ptr<CRV_Track>> myTracks;
    int64 myLength;
    double myStart;
};
