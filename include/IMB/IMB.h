// libIMB: pixel and image primitives.
//
// The umbrella header: includes every public header of the library.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_Fill.h>
#include <IMB/IMB_Formats.h>
#include <IMB/IMB_Raster.h>
#include <IMB/IMB_Lookup.h>
#include <IMB/IMB_OCIO.h>
#include <IMB/platform/BAS_FileLUT.h>
#include <IMB/platform/BAS_IOTable.h>
#include <IMB/IMB_LumFuncs.h>
#include <IMB/IMB_Version.h>
#include <IMB/IMB_DeepPixel.h>
#include <IMB/IMB_DeepSampleFilter.h>
