// BAS_EnvControl: numbered settings read from the environment.
//
// The library consults a few numbered controls; each maps to one environment
// variable of the library's own (read on every call, so a host may change
// them between calls):
//
//   43  IMB_OCIO_SRGB_SPACE   string  preferred name of the sRGB colour space
//   65  IMB_OCIO_ALWAYS_TAG   int     1: tag every managed raster as colour-managed
//   72  IMB_OCIO_PARSE_MODE   int     parsing of the colour configuration and of
//                                     colour-space names in paths (default 1)
//   97  IMB_OCIO_VERBOSE      int     >0: print colour-management diagnostics
//
// An unknown number, an unset variable or one that is not an integer gives the
// control's default (0 for integers, "" for strings, 1 for control 72).
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_StringHolder.h>

class IMB_API BAS_EnvControl
{
public:
    static int getInt(int id);
    static BAS_StringHolder getString(int id);
    // The environment variable behind a control, or null for an unknown id.
    static const char *variableName(int id);
};
