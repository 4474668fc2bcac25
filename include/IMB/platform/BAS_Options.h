// BAS_Options: an ordered dictionary of typed option values.
//
// Keys keep the order in which they were first set; setting an existing key
// replaces its value (and type) in place. Value types: 64-bit integer, double,
// bool, string, string array, vector of numbers and nested options. The typed
// getters convert between the numeric types (int, float, bool) and return the
// caller's default when the key is missing or holds a non-numeric value.
// A plain value type; not locked.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/platform/BAS_StringArray.h>
#include <IMB/platform/BAS_StringHolder.h>
#include <IMB/platform/BAS_Types.h>

#include <memory>
#include <utility>
#include <variant>
#include <vector>

class IMB_API BAS_Options
{
public:
    enum class Type
    {
        None,
        Int,
        Float,
        Bool,
        String,
        StringArray,
        NumberVector,
        Dict,
    };

    BAS_Options();
    BAS_Options(const BAS_Options &);
    BAS_Options(BAS_Options &&) noexcept;
    BAS_Options &operator=(const BAS_Options &);
    BAS_Options &operator=(BAS_Options &&) noexcept;
    ~BAS_Options();

    void setOptionI(const BAS_StringHolder &key, int64 v);
    void setOptionF(const BAS_StringHolder &key, double v);
    void setOptionB(const BAS_StringHolder &key, bool v);
    void setOptionS(const BAS_StringHolder &key, const BAS_StringHolder &v);
    void setOptionSArray(const BAS_StringHolder &key, const BAS_StringArray &v);
    void setOptionV(const BAS_StringHolder &key, const std::vector<double> &v);
    void setOptionDict(const BAS_StringHolder &key, const BAS_Options &v);

    bool hasOption(const BAS_StringRef &key) const;
    Type getOptionType(const BAS_StringRef &key) const;
    bool removeOption(const BAS_StringRef &key);
    void clear();
    int getNumOptions() const;
    bool isEmpty() const { return getNumOptions() == 0; }
    // Keys in insertion order.
    const BAS_StringHolder &getOptionName(int i) const;
    BAS_StringArray getOptionNames() const;

    // Typed reads; `def` when the key is missing or of an unconvertible type.
    int64 getOptionI(const BAS_StringRef &key, int64 def = 0) const;
    double getOptionF(const BAS_StringRef &key, double def = 0) const;
    bool getOptionB(const BAS_StringRef &key, bool def = false) const;
    BAS_StringHolder getOptionS(const BAS_StringRef &key, const BAS_StringHolder &def = BAS_StringHolder()) const;
    BAS_StringArray getOptionSArray(const BAS_StringRef &key) const;
    std::vector<double> getOptionV(const BAS_StringRef &key) const;
    // The nested options, or an empty set.
    const BAS_Options &getOptionDict(const BAS_StringRef &key) const;

    // Reads into `out` only when the key exists with a convertible type;
    // returns whether it did.
    bool importOption(const BAS_StringRef &key, int &out) const;
    bool importOption(const BAS_StringRef &key, int64 &out) const;
    bool importOption(const BAS_StringRef &key, float &out) const;
    bool importOption(const BAS_StringRef &key, double &out) const;
    bool importOption(const BAS_StringRef &key, bool &out) const;
    bool importOption(const BAS_StringRef &key, BAS_StringHolder &out) const;

    friend IMB_API bool operator==(const BAS_Options &a, const BAS_Options &b);
    friend bool operator!=(const BAS_Options &a, const BAS_Options &b) { return !(a == b); }

private:
    using Value = std::variant<std::monostate, int64, double, bool, BAS_StringHolder, BAS_StringArray,
                               std::vector<double>, std::shared_ptr<BAS_Options>>;
    struct Entry
    {
        BAS_StringHolder key;
        Value value;
    };

    const Entry *find(const BAS_StringRef &key) const;
    void set(const BAS_StringHolder &key, Value v);

    std::vector<Entry> myEntries;
};
