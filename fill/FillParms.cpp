// IMB_FillParms: defaults, the area and type setters.
#include <IMB/IMB_Fill.h>

#include <algorithm>
#include <atomic>

namespace
{
// Set once the first parameter block has probed the processor. Two first
// constructions racing probe twice, which is harmless.
std::atomic<bool> theProcCapsProbed{false};

// Stores the type and decides the fast flag; only a genuine custom range of an
// integer format is stored. A black equal to white, a float format or the
// format's own full range leave the stored black and white as they were.
void setType(IMB_DataFormat type, uint32 black, uint32 white, IMB_DataFormat &outType, int32 &outFast,
             uint32 &outBlack, uint32 &outWhite)
{
    outType = type;
    if (black != white)
    {
        outFast = 0;
        const bool isInteger = type != IMB_FLOAT32 && type != IMB_FLOAT16;
        if (isInteger)
        {
            // Outside 0-4 there is no white value; any range counts as custom.
            const bool known = type >= IMB_INT8 && type < IMB_MAX_DATA_FORMAT;
            if (!known || black != 0 || white != imbDefinesWhite[type])
            {
                outBlack = black;
                outWhite = white;
                return;
            }
        }
    }
    outFast = 1;
}
} // namespace

IMB_FillParms::IMB_FillParms()
{
    myGamma8 = new tbl_gamma8;
    myGamma16 = new tbl_gamma16;
    if (!theProcCapsProbed.load(std::memory_order_relaxed))
    {
        IMBdetermineProcCaps();
        theProcCapsProbed.store(true, std::memory_order_relaxed);
    }
}

IMB_FillParms::~IMB_FillParms()
{
    delete myGamma8;
    delete myGamma16;
}

void IMB_FillParms::setSourceArea(int64 x1, int64 y1, int64 x2, int64 y2)
{
    mySourceArea = IMB_FillArea{std::min(x1, x2), std::min(y1, y2), std::max(x1, x2), std::max(y1, y2)};
}

void IMB_FillParms::setDestArea(int64 x1, int64 y1, int64 x2, int64 y2)
{
    myDestArea = IMB_FillArea{std::min(x1, x2), std::min(y1, y2), std::max(x1, x2), std::max(y1, y2)};
}

void IMB_FillParms::setSourceType(IMB_DataFormat type, uint32 black, uint32 white)
{
    setType(type, black, white, mySourceType, mySourceFast, mySourceBlack, mySourceWhite);
}

void IMB_FillParms::setDestType(IMB_DataFormat type, uint32 black, uint32 white)
{
    setType(type, black, white, myDestType, myDestFast, myDestBlack, myDestWhite);
}

void IMB_FillParms::debugPrint(std::ostream &) const {}
