// libIMB: pixel and image primitives.
//
// The umbrella header: includes every public header of the library.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_Fill.h>
#include <IMB/IMB_Formats.h>
#include <IMB/IMB_Raster.h>
#include <IMB/IMB_Version.h>
