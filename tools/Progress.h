// A progress bar on the standard error stream for long imbtool work.
//
// Nothing is drawn until the work has taken a second, nor ever when the
// standard error stream is not a terminal (a pipe, a log file, CI), so
// scripted runs see no control characters.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace imbtool
{
class ProgressBar
{
public:
    explicit ProgressBar(std::string label)
        : myLabel(std::move(label)), myStart(std::chrono::steady_clock::now()), myTerminal(::isatty(2) != 0)
    {
    }
    ~ProgressBar() { finish(); }
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    // Shows `fraction` (0 to 1) of the work done.
    void update(double fraction)
    {
        if (!myTerminal || std::chrono::steady_clock::now() - myStart < std::chrono::seconds(1))
            return;
        const int width = 30, filled = static_cast<int>(fraction * width + 0.5);
        const int percent = static_cast<int>(fraction * 100.0 + 0.5);
        if (percent == myShown)
            return;
        myShown = percent;
        std::fprintf(stderr, "\r%s [%s%s] %3d%%", myLabel.c_str(), std::string(size_t(filled), '#').c_str(),
                     std::string(size_t(width - filled), '.').c_str(), percent);
        std::fflush(stderr);
    }

    // Ends the bar's line, if one was drawn.
    void finish()
    {
        if (myShown >= 0)
            std::fputc('\n', stderr);
        myShown = -1;
    }

    // For callbacks that take a function and a data pointer.
    static void callback(double fraction, void *bar) { static_cast<ProgressBar *>(bar)->update(fraction); }

private:
    std::string myLabel;
    std::chrono::steady_clock::time_point myStart;
    bool myTerminal;
    int myShown = -1;
};
} // namespace imbtool
