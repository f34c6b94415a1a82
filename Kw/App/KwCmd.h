// KwCmd: the parameters of one console command, parsed and typed.
//
// A parameter text such as `5, name = x, port = 1|2` gives positional values under the keys "$1", "$2" ...,
// named values under their name ("name"), and the values of a list under the name and their number
// ("port1", "port2"). Values may stand in single or double quotes; "," ";" and "&" separate parameters.
// Getters never fail: what is missing gives the caller's default.
// Thread-safety: none.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "Kw/KwDefine.h"
#include "Kw/KwMemory.h"

class KW_API KwCmd {
public:
    KW_TRACKED_NEW

    using Values = std::map<std::string, std::string, std::less<>>;

    // Parses `text` up to its terminator in place of what is here. `length` is accepted for callers that
    // have it and not used. False for null and for a text with a fault; what stands before the fault is kept.
    // A parameter number that no single character behind '0' can express (beyond 207) counts as a fault.
    bool Init(const char* text, int length);
    void Clear();

    // Entries stored, positional and named together.
    int GetParamNum() const { return static_cast<int>(values_.size()); }

    // The (key, value) pairs in key order: for (const auto& [key, value] : cmd).
    Values::const_iterator begin() const { return values_.begin(); }
    Values::const_iterator end() const { return values_.end(); }

    // By position, from 1 to 9. Numbers are read from the start of the value, 0 without a digit; a value out of
    // range gives the nearest one. A boolean is true for a number other than 0 and for "true", "yes" and "on" in
    // any case. A string stays valid until the next Init, Clear or the end of this object.
    bool GetBool(int position, bool def) const;
    int GetInt(int position, int def) const;
    long long GetInt64(int position, long long def) const;
    double GetDouble(int position, double def) const;
    const char* GetString(int position, const char* def) const;

    // By name, as it was typed.
    bool GetBool(const std::string& name, bool def) const;
    int GetInt(const std::string& name, int def) const;
    long long GetInt64(const std::string& name, long long def) const;
    double GetDouble(const std::string& name, double def) const;
    const char* GetString(const std::string& name, const char* def) const;

    // By name and number in a list of values, from 1.
    bool GetBoolAnd(const std::string& name, int index, bool def) const;
    int GetIntAnd(const std::string& name, int index, int def) const;
    long long GetInt64(const std::string& name, int index, long long def) const;
    double GetDouble(const std::string& name, int index, double def) const;
    const char* GetString(const std::string& name, int index, const char* def) const;

private:
    // The stored value, null when missing.
    const std::string* Find(int position) const;
    const std::string* Find(const std::string& name) const;
    const std::string* Find(const std::string& name, int index) const;
    void Store(std::string&& key, std::string_view value);

    Values values_;
    int positional_ = 0;  // positional parameters stored
};
