// PLT_Math: small numeric helpers of the system layer.
//
// PLTparseFloat is the one number parser of the library's text readers: it
// accepts a whole token or nothing, so "1.5x" or "" are errors rather than a
// silently truncated value. Free-threaded.
#pragma once

#include <cmath>
#include <string_view>

// Parses all of `text` as a decimal or hexadecimal floating-point number
// ("12", "-0.5", "+1e-3", "inf", "nan", "0x1p-3"). On success stores the value
// and returns true. On failure (empty text, trailing characters, a value
// outside the range of the result type) stores 0 and returns false. The float
// variant parses in double precision and rounds once, so tiny values become
// denormals or 0.
bool PLTparseFloat(std::string_view text, float &value);
bool PLTparseFloat(std::string_view text, double &value);

// Smallest integral value not below x.
inline double PLTceil(double x)
{
    return std::ceil(x);
}
inline float PLTceil(float x)
{
    return std::ceil(x);
}
