#include <IMB/platform/BAS_Options.h>

namespace
{
const BAS_Options &emptyOptions()
{
    static const BAS_Options empty;
    return empty;
}

template <typename T> bool numericOf(const std::variant<std::monostate, int64, double, bool, BAS_StringHolder,
                                                        BAS_StringArray, std::vector<double>,
                                                        std::shared_ptr<BAS_Options>> &v,
                                     T &out)
{
    if (auto *i = std::get_if<int64>(&v))
        out = static_cast<T>(*i);
    else if (auto *d = std::get_if<double>(&v))
        out = static_cast<T>(*d);
    else if (auto *b = std::get_if<bool>(&v))
        out = static_cast<T>(*b ? 1 : 0);
    else
        return false;
    return true;
}
} // namespace

BAS_Options::BAS_Options() = default;
BAS_Options::BAS_Options(const BAS_Options &o)
{
    *this = o;
}
BAS_Options::BAS_Options(BAS_Options &&) noexcept = default;
BAS_Options &BAS_Options::operator=(BAS_Options &&) noexcept = default;
BAS_Options::~BAS_Options() = default;

BAS_Options &BAS_Options::operator=(const BAS_Options &o)
{
    if (this == &o)
        return *this;
    // Nested dictionaries are deep-copied so that two option sets never share
    // mutable state.
    std::vector<Entry> copy;
    copy.reserve(o.myEntries.size());
    for (const Entry &e : o.myEntries)
    {
        if (auto *d = std::get_if<std::shared_ptr<BAS_Options>>(&e.value))
            copy.push_back({e.key, std::make_shared<BAS_Options>(**d)});
        else
            copy.push_back(e);
    }
    myEntries = std::move(copy);
    return *this;
}

const BAS_Options::Entry *BAS_Options::find(const BAS_StringRef &key) const
{
    for (const Entry &e : myEntries)
        if (e.key == key)
            return &e;
    return nullptr;
}

void BAS_Options::set(const BAS_StringHolder &key, Value v)
{
    for (Entry &e : myEntries)
        if (e.key == key)
        {
            e.value = std::move(v);
            return;
        }
    myEntries.push_back({key, std::move(v)});
}

void BAS_Options::setOptionI(const BAS_StringHolder &key, int64 v) { set(key, v); }
void BAS_Options::setOptionF(const BAS_StringHolder &key, double v) { set(key, v); }
void BAS_Options::setOptionB(const BAS_StringHolder &key, bool v) { set(key, v); }
void BAS_Options::setOptionS(const BAS_StringHolder &key, const BAS_StringHolder &v) { set(key, v); }
void BAS_Options::setOptionSArray(const BAS_StringHolder &key, const BAS_StringArray &v) { set(key, v); }
void BAS_Options::setOptionV(const BAS_StringHolder &key, const std::vector<double> &v) { set(key, v); }
void BAS_Options::setOptionDict(const BAS_StringHolder &key, const BAS_Options &v)
{
    set(key, std::make_shared<BAS_Options>(v));
}

bool BAS_Options::hasOption(const BAS_StringRef &key) const { return find(key) != nullptr; }

BAS_Options::Type BAS_Options::getOptionType(const BAS_StringRef &key) const
{
    const Entry *e = find(key);
    if (!e)
        return Type::None;
    return static_cast<Type>(e->value.index());
}

bool BAS_Options::removeOption(const BAS_StringRef &key)
{
    for (auto it = myEntries.begin(); it != myEntries.end(); ++it)
        if (it->key == key)
        {
            myEntries.erase(it);
            return true;
        }
    return false;
}

void BAS_Options::clear() { myEntries.clear(); }
int BAS_Options::getNumOptions() const { return static_cast<int>(myEntries.size()); }
const BAS_StringHolder &BAS_Options::getOptionName(int i) const { return myEntries[static_cast<std::size_t>(i)].key; }

BAS_StringArray BAS_Options::getOptionNames() const
{
    BAS_StringArray names;
    for (const Entry &e : myEntries)
        names.append(e.key);
    return names;
}

int64 BAS_Options::getOptionI(const BAS_StringRef &key, int64 def) const
{
    int64 v = def;
    importOption(key, v);
    return v;
}

double BAS_Options::getOptionF(const BAS_StringRef &key, double def) const
{
    double v = def;
    importOption(key, v);
    return v;
}

bool BAS_Options::getOptionB(const BAS_StringRef &key, bool def) const
{
    bool v = def;
    importOption(key, v);
    return v;
}

BAS_StringHolder BAS_Options::getOptionS(const BAS_StringRef &key, const BAS_StringHolder &def) const
{
    BAS_StringHolder v = def;
    importOption(key, v);
    return v;
}

BAS_StringArray BAS_Options::getOptionSArray(const BAS_StringRef &key) const
{
    const Entry *e = find(key);
    if (e)
        if (auto *a = std::get_if<BAS_StringArray>(&e->value))
            return *a;
    return BAS_StringArray();
}

std::vector<double> BAS_Options::getOptionV(const BAS_StringRef &key) const
{
    const Entry *e = find(key);
    if (e)
        if (auto *a = std::get_if<std::vector<double>>(&e->value))
            return *a;
    return {};
}

const BAS_Options &BAS_Options::getOptionDict(const BAS_StringRef &key) const
{
    const Entry *e = find(key);
    if (e)
        if (auto *d = std::get_if<std::shared_ptr<BAS_Options>>(&e->value))
            return **d;
    return emptyOptions();
}

bool BAS_Options::importOption(const BAS_StringRef &key, int &out) const
{
    const Entry *e = find(key);
    return e && numericOf(e->value, out);
}
bool BAS_Options::importOption(const BAS_StringRef &key, int64 &out) const
{
    const Entry *e = find(key);
    return e && numericOf(e->value, out);
}
bool BAS_Options::importOption(const BAS_StringRef &key, float &out) const
{
    const Entry *e = find(key);
    return e && numericOf(e->value, out);
}
bool BAS_Options::importOption(const BAS_StringRef &key, double &out) const
{
    const Entry *e = find(key);
    return e && numericOf(e->value, out);
}
bool BAS_Options::importOption(const BAS_StringRef &key, bool &out) const
{
    const Entry *e = find(key);
    int64 v = 0;
    if (!e || !numericOf(e->value, v))
        return false;
    out = v != 0;
    return true;
}
bool BAS_Options::importOption(const BAS_StringRef &key, BAS_StringHolder &out) const
{
    const Entry *e = find(key);
    if (!e)
        return false;
    if (auto *s = std::get_if<BAS_StringHolder>(&e->value))
    {
        out = *s;
        return true;
    }
    return false;
}

bool operator==(const BAS_Options &a, const BAS_Options &b)
{
    if (a.myEntries.size() != b.myEntries.size())
        return false;
    for (std::size_t i = 0; i < a.myEntries.size(); ++i)
    {
        const auto &ea = a.myEntries[i];
        const auto &eb = b.myEntries[i];
        if (ea.key != eb.key || ea.value.index() != eb.value.index())
            return false;
        if (auto *da = std::get_if<std::shared_ptr<BAS_Options>>(&ea.value))
        {
            if (!(**da == *std::get<std::shared_ptr<BAS_Options>>(eb.value)))
                return false;
        }
        else if (!(ea.value == eb.value))
            return false;
    }
    return true;
}
