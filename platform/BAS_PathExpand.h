// Variable expansion of file paths.
//
// "$NAME" and "${NAME}" are replaced by the value of the environment variable
// NAME (through hostGetenv); NAME is a run of letters, digits and
// underscores. An unset variable expands to nothing. A "$" that does not start
// a name, and a "${" without its closing "}", are kept as they are.
// Free-threaded (reads the environment only).
#pragma once

#include <string>

std::string BASexpandPath(const char *path);
