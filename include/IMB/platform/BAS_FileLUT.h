// BAS_FileLUT: a one-dimensional curve as kept in a curve lookup file.
//
// Holds a list of float samples spread evenly over the input range, the scale
// of the output (the integer value that stands for 1.0, e.g. 65536), a flag,
// a name and an integer white point. IMB_Lookup::getCineonLUT exports a table
// into one. The object owns its samples and name. Not thread-safe for
// writers; const access may be shared.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_StringHolder.h>

#include <vector>

class IMB_API BAS_FileLUT
{
public:
    BAS_FileLUT() = default;

    // Replaces the contents: `size` samples copied from `samples`, the output
    // scale, the flag, the name (null for none) and the white point. Returns
    // false and leaves the object unchanged when size < 1 or samples is null.
    bool create(int size, const float *samples, double scale, bool flag, const char *name, int white);

    // Number of samples (0 for an object never created).
    int getSize() const { return static_cast<int>(mySamples.size()); }
    // The samples (null when there are none).
    const float *getSamples() const { return mySamples.empty() ? nullptr : mySamples.data(); }
    // Sample i, or 0 outside 0..size-1.
    float getSample(int i) const
    {
        return i >= 0 && i < getSize() ? mySamples[static_cast<std::size_t>(i)] : 0.0f;
    }
    double getScale() const { return myScale; }
    bool getFlag() const { return myFlag; }
    const BAS_StringHolder &getName() const { return myName; }
    int getWhite() const { return myWhite; }

    // The curve at x in [0, 1]: linear interpolation between the samples
    // (x clamped to [0, 1]; 0 when there are no samples; NaN gives sample 0).
    float evaluate(float x) const;

private:
    std::vector<float> mySamples;
    double myScale = 1.0;
    bool myFlag = false;
    BAS_StringHolder myName;
    int myWhite = 0;
};
