// The library's version.
//
// The macros give the version of the headers a client compiled against;
// IMBversion() gives the version of the libIMB.so actually loaded. The build
// checks that the macros match the project version it is configured with.
#pragma once

#include <IMB/IMB_API.h>

#define IMB_VERSION_MAJOR 0
#define IMB_VERSION_MINOR 1
#define IMB_VERSION_PATCH 0
#define IMB_VERSION_STRING "0.1.0"

// Version of the loaded library as "major.minor.patch". Static storage.
IMB_API const char *IMBversion();
