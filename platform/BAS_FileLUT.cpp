#include <IMB/platform/BAS_FileLUT.h>

#include <cmath>

bool BAS_FileLUT::create(int size, const float *samples, double scale, bool flag, const char *name, int white)
{
    if (size < 1 || !samples)
        return false;
    mySamples.assign(samples, samples + size);
    myScale = scale;
    myFlag = flag;
    myName = BAS_StringHolder(name);
    myWhite = white;
    return true;
}

float BAS_FileLUT::evaluate(float x) const
{
    const int n = getSize();
    if (n == 0)
        return 0.0f;
    if (!(x > 0.0f))
        return mySamples[0];
    if (x >= 1.0f || n == 1)
        return mySamples[static_cast<std::size_t>(n - 1)];
    const float pos = x * static_cast<float>(n - 1);
    const int i = static_cast<int>(pos);
    if (i >= n - 1)
        return mySamples[static_cast<std::size_t>(n - 1)];
    const float f = pos - static_cast<float>(i);
    const float a = mySamples[static_cast<std::size_t>(i)];
    const float b = mySamples[static_cast<std::size_t>(i) + 1];
    return a + (b - a) * f;
}
