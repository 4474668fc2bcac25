#include <IMB/platform/BAS_ErrorLog.h>
#include <IMB/platform/hostGetenv.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace
{
std::atomic<BAS_ErrorLogSink> theSink{nullptr};
thread_local BAS_ErrorCapture *theCapture = nullptr;

void emit(bool isError, const char *fmt, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    if (n < 0)
        return;
    std::string text(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), fmt, args);
    text.resize(static_cast<std::size_t>(n));
    if (isError && BAS_ErrorCapture::collect(text.data(), text.size()))
        return;
    if (BAS_ErrorLogSink sink = theSink.load())
    {
        sink(isError, text.c_str());
        return;
    }
    if (text.empty() || text.back() != '\n')
        text.push_back('\n');
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}
} // namespace

bool isBrevanVerbose(int level)
{
    const char *v = hostGetenv("IMB_VERBOSE");
    return v && *v && std::atoi(v) >= level;
}

void brevanPrintf(int level, const char *fmt, ...)
{
    if (!isBrevanVerbose(level))
        return;
    va_list args;
    va_start(args, fmt);
    emit(false, fmt, args);
    va_end(args);
}

void brevanError(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    emit(true, fmt, args);
    va_end(args);
}

BAS_ErrorLogSink BASsetErrorLogSink(BAS_ErrorLogSink sink)
{
    return theSink.exchange(sink);
}

BAS_ErrorCapture::BAS_ErrorCapture() : myOuter(theCapture) { theCapture = this; }

BAS_ErrorCapture::~BAS_ErrorCapture() { theCapture = myOuter; }

bool BAS_ErrorCapture::collect(const char *text, std::size_t size)
{
    BAS_ErrorCapture *capture = theCapture;
    if (!capture)
        return false;
    capture->myText.append(text, size);
    if (size == 0 || text[size - 1] != '\n')
        capture->myText.push_back('\n');
    return true;
}
