// CRV_Clip and CRV_Track: sample storage and linear evaluation of 1D curves.
#include <IMB/platform/CRV_Clip.h>

#include <cmath>

CRV_Track::CRV_Track(std::string name, int64 length, double start)
    : myName(std::move(name)), mySamples(static_cast<std::size_t>(length), 0.0), myStart(start)
{
}

double CRV_Track::evaluateSingle(double pos) const
{
    const int64 n = getLength();
    if (n == 0)
        return 0.0;
    const double p = pos - myStart;
    // Written so that NaN takes the first branch.
    if (!(p > 0.0))
        return mySamples[0];
    if (p >= static_cast<double>(n - 1))
        return mySamples[static_cast<std::size_t>(n - 1)];
    const double fl = std::floor(p);
    const std::size_t i = static_cast<std::size_t>(fl);
    const double f = p - fl;
    const double a = mySamples[i];
    if (f == 0.0)
        return a;
    return a + (mySamples[i + 1] - a) * f;
}

void CRV_Track::evaluate(double start, double end, double *out, int count) const
{
    if (!out || count < 1)
        return;
    if (count == 1)
    {
        out[0] = evaluateSingle(start);
        return;
    }
    const double step = (end - start) / static_cast<double>(count - 1);
    for (int k = 0; k < count; ++k)
        out[k] = evaluateSingle(k == count - 1 ? end : start + step * k);
}

int64 CRV_Track::getMemoryUsage(bool inclusive) const
{
    int64 bytes = static_cast<int64>(mySamples.capacity() * sizeof(double)) +
                  static_cast<int64>(myName.capacity());
    if (inclusive)
        bytes += sizeof(*this);
    return bytes;
}

CRV_Clip::CRV_Clip() : myLength(0), myStart(0.0) {}

CRV_Clip::CRV_Clip(const CRV_Clip &src) : myLength(src.myLength), myStart(src.myStart)
{
    myTracks.reserve(src.myTracks.size());
    for (const auto &t : src.myTracks)
        myTracks.emplace_back(new CRV_Track(*t));
}

CRV_Clip &CRV_Clip::operator=(const CRV_Clip &src)
{
    if (this != &src)
    {
        CRV_Clip tmp(src);
        myTracks.swap(tmp.myTracks);
        myLength = src.myLength;
        myStart = src.myStart;
    }
    return *this;
}

CRV_Clip::~CRV_Clip() = default;

CRV_Track *CRV_Clip::getTrack(int index)
{
    if (index < 0 || index >= getNumTracks())
        return nullptr;
    return myTracks[static_cast<std::size_t>(index)].get();
}

const CRV_Track *CRV_Clip::getTrack(int index) const
{
    if (index < 0 || index >= getNumTracks())
        return nullptr;
    return myTracks[static_cast<std::size_t>(index)].get();
}

CRV_Track *CRV_Clip::addTrack(const char *name)
{
    myTracks.emplace_back(new CRV_Track(name ? name : "", myLength, myStart));
    return myTracks.back().get();
}

bool CRV_Clip::removeTrack(int index)
{
    if (index < 0 || index >= getNumTracks())
        return false;
    myTracks.erase(myTracks.begin() + index);
    return true;
}

void CRV_Clip::destroyAllTracks() { myTracks.clear(); }

void CRV_Clip::setTrackLength(int64 length)
{
    if (length < 0)
        length = 0;
    myLength = length;
    for (auto &t : myTracks)
        t->mySamples.resize(static_cast<std::size_t>(length), 0.0);
}

void CRV_Clip::setStart(double start)
{
    myStart = start;
    for (auto &t : myTracks)
        t->myStart = start;
}

int64 CRV_Clip::getMemoryUsage(bool inclusive) const
{
    int64 bytes = inclusive ? static_cast<int64>(sizeof(*this)) : 0;
    for (const auto &t : myTracks)
        bytes += t->getMemoryUsage(inclusive);
    return bytes;
}
