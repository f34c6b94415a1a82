#include "Kw/App/KwCmd.h"

#include <charconv>

#include "Kw/Helper/KwMath.h"

namespace {

constexpr int kLastNumber = 255 - '0';  // the number of a parameter is one character behind '0'

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

const char* SkipBlanks(const char* text) {
    while (IsBlank(*text)) ++text;
    return text;
}

bool IsWordStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool EndsToken(char c) {
    return c == '\0' || c == ',' || c == ';' || c == '&' || c == '=' || c == '|' || IsBlank(c);
}

// Reads the token at `text`, between its quotes if it has them, and steps behind it. False for a quote
// that is not closed. A backslash keeps the quote behind it from closing, and stays in the token.
bool ReadToken(const char*& text, std::string_view& token) {
    const char* start = text;
    const char quote = *text;
    if (quote != '"' && quote != '\'') {
        while (!EndsToken(*text)) ++text;
        token = {start, static_cast<std::size_t>(text - start)};
        return true;
    }
    for (const char* end = start + 1; *end != '\0'; ++end) {
        if (*end == quote && end[-1] != '\\') {
            token = {start + 1, static_cast<std::size_t>(end - start - 1)};
            text = end + 1;
            return true;
        }
    }
    return false;
}

std::string NumberedKey(std::string_view name, int number) {
    std::string key(name);
    key += static_cast<char>('0' + number);
    return key;
}

char Folded(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

bool EqualFolded(const std::string& text, std::string_view lower) {
    if (text.size() != lower.size()) return false;
    for (std::size_t i = 0; i < lower.size(); ++i) {
        if (Folded(text[i]) != lower[i]) return false;
    }
    return true;
}

bool ToBool(const std::string& text) {
    return KwMath::ToInt(text.c_str()) != 0 || EqualFolded(text, "true") || EqualFolded(text, "yes") ||
           EqualFolded(text, "on");
}

}  // namespace

bool KwCmd::Init(const char* text, int) {
    Clear();
    if (text == nullptr) return false;
    std::string_view name;
    bool hasName = false;
    int index = 0;  // values of a list stored for the waiting name
    while (*text != '\0') {
        text = SkipBlanks(text);
        std::string_view token;
        if (!ReadToken(text, token)) return false;
        text = SkipBlanks(text);
        const char separator = *text;
        switch (separator) {
            case '=':
                if (hasName || token.empty()) return false;
                name = token;
                hasName = true;
                break;
            case '|':
                if (!hasName) return false;
                [[fallthrough]];
            case '\0':
            case ',':
            case ';':
            case '&':
                if (!hasName) {
                    if (positional_ >= kLastNumber) return false;
                    Store(NumberedKey("$", ++positional_), token);
                    break;
                }
                if (!IsWordStart(name[0])) return false;
                if (separator == '|' || index > 0) {
                    if (index >= kLastNumber) return false;
                    Store(NumberedKey(name, ++index), token);
                } else {
                    Store(std::string(name), token);
                }
                if (separator != '|') {
                    hasName = false;
                    index = 0;
                }
                break;
            default: return false;
        }
        if (separator != '\0') ++text;
    }
    return !hasName;
}

void KwCmd::Clear() {
    values_.clear();
    positional_ = 0;
}

void KwCmd::Store(std::string&& key, std::string_view value) {
    // Positional keys and most hand-typed names come in order.
    values_.insert_or_assign(values_.end(), std::move(key), value);
}

const std::string* KwCmd::Find(int position) const {
    // Keys beyond "$9" are other characters than digits, which no decimal position spells.
    if (position < 1 || position > positional_ || position > 9) return nullptr;
    const char key[2] = {'$', static_cast<char>('0' + position)};
    const auto found = values_.find(std::string_view(key, 2));
    return found == values_.end() ? nullptr : &found->second;
}

const std::string* KwCmd::Find(const std::string& name) const {
    const auto found = values_.find(name);
    return found == values_.end() ? nullptr : &found->second;
}

const std::string* KwCmd::Find(const std::string& name, int index) const {
    return Find(name + std::to_string(index));
}

bool KwCmd::GetBool(int position, bool def) const {
    const std::string* value = Find(position);
    return value == nullptr ? def : ToBool(*value);
}

int KwCmd::GetInt(int position, int def) const {
    const std::string* value = Find(position);
    return value == nullptr ? def : KwMath::ToInt(value->c_str());
}

long long KwCmd::GetInt64(int position, long long def) const {
    const std::string* value = Find(position);
    return value == nullptr ? def : KwMath::ToInt64(value->c_str());
}

double KwCmd::GetDouble(int position, double def) const {
    const std::string* value = Find(position);
    return value == nullptr ? def : KwMath::ToDouble(value->c_str());
}

const char* KwCmd::GetString(int position, const char* def) const {
    const std::string* value = Find(position);
    return value == nullptr ? def : value->c_str();
}

bool KwCmd::GetBool(const std::string& name, bool def) const {
    const std::string* value = Find(name);
    return value == nullptr ? def : ToBool(*value);
}

int KwCmd::GetInt(const std::string& name, int def) const {
    const std::string* value = Find(name);
    return value == nullptr ? def : KwMath::ToInt(value->c_str());
}

long long KwCmd::GetInt64(const std::string& name, long long def) const {
    const std::string* value = Find(name);
    return value == nullptr ? def : KwMath::ToInt64(value->c_str());
}

double KwCmd::GetDouble(const std::string& name, double def) const {
    const std::string* value = Find(name);
    return value == nullptr ? def : KwMath::ToDouble(value->c_str());
}

const char* KwCmd::GetString(const std::string& name, const char* def) const {
    const std::string* value = Find(name);
    return value == nullptr ? def : value->c_str();
}

bool KwCmd::GetBoolAnd(const std::string& name, int index, bool def) const {
    const std::string* value = Find(name, index);
    return value == nullptr ? def : ToBool(*value);
}

int KwCmd::GetIntAnd(const std::string& name, int index, int def) const {
    const std::string* value = Find(name, index);
    return value == nullptr ? def : KwMath::ToInt(value->c_str());
}

long long KwCmd::GetInt64(const std::string& name, int index, long long def) const {
    const std::string* value = Find(name, index);
    return value == nullptr ? def : KwMath::ToInt64(value->c_str());
}

double KwCmd::GetDouble(const std::string& name, int index, double def) const {
    const std::string* value = Find(name, index);
    return value == nullptr ? def : KwMath::ToDouble(value->c_str());
}

const char* KwCmd::GetString(const std::string& name, int index, const char* def) const {
    const std::string* value = Find(name, index);
    return value == nullptr ? def : value->c_str();
}
