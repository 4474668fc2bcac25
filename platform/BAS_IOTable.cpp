#include <IMB/platform/BAS_IOTable.h>

#include <IMB/platform/BAS_Lock.h>

#include <map>
#include <mutex>
#include <vector>

struct BAS_IOTable::Impl
{
    mutable BAS_Lock lock;
    std::vector<Filter> filters;
};

namespace
{
// True when `format` has no "%" sequence but "%s" and "%%".
bool validFormat(const char *format)
{
    if (!format)
        return true;
    for (const char *p = format; *p; ++p)
    {
        if (*p != '%')
            continue;
        if (p[1] != 's' && p[1] != '%')
            return false;
        ++p;
    }
    return true;
}

bool endsWith(const std::string &s, const std::string &tail)
{
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}
} // namespace

BAS_IOTable::BAS_IOTable() : myImpl(std::make_unique<Impl>()) {}

BAS_IOTable::~BAS_IOTable() = default;

BAS_IOTable &BAS_IOTable::getTable(const char *name)
{
    // Tables are never destroyed: a reader may hold a reference to one while
    // static destruction runs elsewhere.
    static BAS_Lock registryLock;
    static auto *tables = new std::map<std::string, std::unique_ptr<BAS_IOTable>>;
    std::lock_guard<BAS_Lock> guard(registryLock);
    std::unique_ptr<BAS_IOTable> &slot = (*tables)[name ? name : ""];
    if (!slot)
        slot.reset(new BAS_IOTable);
    return *slot;
}

bool BAS_IOTable::addFilter(const char *extension, const char *readCommand, const char *writeCommand)
{
    if (!extension || !*extension || !validFormat(readCommand) || !validFormat(writeCommand))
        return false;
    Filter f{extension, readCommand ? readCommand : "", writeCommand ? writeCommand : ""};
    std::lock_guard<BAS_Lock> guard(myImpl->lock);
    for (Filter &existing : myImpl->filters)
    {
        if (existing.extension == f.extension)
        {
            existing = std::move(f);
            return true;
        }
    }
    myImpl->filters.push_back(std::move(f));
    return true;
}

bool BAS_IOTable::removeFilter(const char *extension)
{
    if (!extension)
        return false;
    std::lock_guard<BAS_Lock> guard(myImpl->lock);
    auto &filters = myImpl->filters;
    for (auto it = filters.begin(); it != filters.end(); ++it)
    {
        if (it->extension == extension)
        {
            filters.erase(it);
            return true;
        }
    }
    return false;
}

void BAS_IOTable::clear()
{
    std::lock_guard<BAS_Lock> guard(myImpl->lock);
    myImpl->filters.clear();
}

int BAS_IOTable::entries() const
{
    std::lock_guard<BAS_Lock> guard(myImpl->lock);
    return static_cast<int>(myImpl->filters.size());
}

bool BAS_IOTable::findFilter(const char *path, bool forWriting, Filter &filter) const
{
    if (!path)
        return false;
    const std::string p(path);
    std::lock_guard<BAS_Lock> guard(myImpl->lock);
    const Filter *best = nullptr;
    for (const Filter &f : myImpl->filters)
    {
        const std::string &command = forWriting ? f.writeCommand : f.readCommand;
        if (command.empty() || !endsWith(p, f.extension))
            continue;
        if (!best || f.extension.size() > best->extension.size())
            best = &f;
    }
    if (!best)
        return false;
    filter = *best;
    return true;
}

std::string BAS_IOTable::quotePath(const char *path)
{
    std::string out = "'";
    for (const char *p = path ? path : ""; *p; ++p)
    {
        if (*p == '\'')
            out += "'\\''";
        else
            out.push_back(*p);
    }
    out.push_back('\'');
    return out;
}

bool BAS_IOTable::buildCommand(const std::string &format, const char *path, std::string &command)
{
    command.clear();
    const std::string quoted = quotePath(path);
    for (std::size_t i = 0; i < format.size(); ++i)
    {
        const char c = format[i];
        if (c != '%')
        {
            command.push_back(c);
            continue;
        }
        const char next = i + 1 < format.size() ? format[i + 1] : '\0';
        if (next == 's')
            command += quoted;
        else if (next == '%')
            command.push_back('%');
        else
        {
            command.clear();
            return false;
        }
        ++i;
    }
    return true;
}
