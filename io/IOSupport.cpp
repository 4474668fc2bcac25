#include "io/IOSupport.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace imb_io
{
bool fail(const std::string &what)
{
    brevanError("%s", what.c_str());
    return false;
}

std::string reasonOf(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    return text.empty() ? std::string("OpenImageIO gave no reason") : text;
}

namespace
{
std::atomic<unsigned> theTempCounter{0};
}

TempFile::TempFile(const std::string &path) : myPath(path)
{
    const std::size_t slash = path.find_last_of('/');
    const std::size_t dot = path.find_last_of('.');
    const bool hasExt = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string base = path.substr(dir.size(), (hasExt ? dot : path.size()) - dir.size());
    const std::string ext = hasExt ? path.substr(dot) : std::string();
    myName = dir + "." + base + ".tmp" + std::to_string(::getpid()) + "-" +
             std::to_string(theTempCounter.fetch_add(1)) + ext;
}

TempFile::~TempFile()
{
    if (!myDone)
        std::remove(myName.c_str());
}

bool TempFile::commit()
{
    if (std::rename(myName.c_str(), myPath.c_str()) != 0)
        return fail("cannot write \"" + myPath + "\": " + std::strerror(errno));
    myDone = true;
    return true;
}
} // namespace imb_io
