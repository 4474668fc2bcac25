// Host environment lookup.
//
// Every environment read of the library goes through this one function, so a
// host application can be sure where the library looks. Thread-safe as long
// as nobody calls setenv() concurrently (the C library's own rule).
#pragma once

#include <IMB/IMB_API.h>

// Returns the value of the environment variable `name`, or null when it is
// unset (or `name` is null). The pointer belongs to the process environment.
IMB_API const char *hostGetenv(const char *name);
