#include "platform/BAS_PathExpand.h"

#include <IMB/platform/hostGetenv.h>

namespace
{
bool isNameChar(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

void appendVariable(std::string &out, const std::string &name)
{
    if (const char *value = hostGetenv(name.c_str()))
        out += value;
}
} // namespace

std::string BASexpandPath(const char *path)
{
    std::string out;
    if (!path)
        return out;
    const std::string in(path);
    const std::size_t n = in.size();
    std::size_t i = 0;
    while (i < n)
    {
        const char c = in[i];
        if (c != '$' || i + 1 >= n)
        {
            out.push_back(c);
            ++i;
            continue;
        }
        if (in[i + 1] == '{')
        {
            const std::size_t close = in.find('}', i + 2);
            bool valid = close != std::string::npos && close > i + 2;
            for (std::size_t k = i + 2; valid && k < close; ++k)
                valid = isNameChar(in[k]);
            if (!valid)
            {
                out.push_back(c);
                ++i;
                continue;
            }
            appendVariable(out, in.substr(i + 2, close - i - 2));
            i = close + 1;
            continue;
        }
        std::size_t k = i + 1;
        while (k < n && isNameChar(in[k]))
            ++k;
        if (k == i + 1)
        {
            out.push_back(c);
            ++i;
            continue;
        }
        appendVariable(out, in.substr(i + 1, k - i - 1));
        i = k;
    }
    return out;
}
