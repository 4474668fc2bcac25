// A scratch folder for the file tests, removed with everything in it.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace iotest
{
struct Scratch
{
    std::filesystem::path dir;
    Scratch()
    {
        char name[] = "/tmp/imb_io_XXXXXX";
        dir = ::mkdtemp(name);
    }
    ~Scratch() { std::filesystem::remove_all(dir); }
    std::string operator/(const std::string &file) const { return (dir / file).string(); }
    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const auto &e : std::filesystem::directory_iterator(dir))
            names.push_back(e.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
};
} // namespace iotest
