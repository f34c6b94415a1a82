#include "StoreCodec.h"

#include "StoreBytes.h"

namespace {

constexpr int kVersion = 1;
constexpr int kSet = 1;
constexpr int kDelete = 2;
constexpr std::size_t kMaxFields = 0xFFFF;

std::string Head(int kind, const std::string& name) {
    std::string payload;
    StorePut(payload, kVersion, 1);
    StorePut(payload, static_cast<std::uint64_t>(kind), 1);
    StorePutText(payload, name, 2);
    return payload;
}

bool IsControl(char ch) {
    return static_cast<unsigned char>(ch) < 0x20 || ch == 0x7F;
}

}  // namespace

const char* StoreCodec::CheckName(std::string_view name) {
    if (name.empty()) return "a name is empty";
    if (name.size() > kMaxName) return "a name is too long";
    for (const char ch : name) {
        if (IsControl(ch)) return "a name has a control character";
    }
    return nullptr;
}

const char* StoreCodec::Check(const std::string& name, const StoreFields& fields) {
    if (const char* why = CheckName(name)) return why;
    if (fields.size() > kMaxFields) return "the object has too many fields";
    std::size_t size = 6 + name.size();
    for (const auto& [field, value] : fields) {
        if (const char* why = CheckName(field)) return why;
        if (value.size() > kMaxPayload) return "the object is too large";
        size += 6 + field.size() + value.size();
    }
    return size > kMaxPayload ? "the object is too large" : nullptr;
}

std::string StoreCodec::EncodeSet(const std::string& name, const StoreFields& fields) {
    std::string payload = Head(kSet, name);
    StorePut(payload, fields.size(), 2);
    for (const auto& [field, value] : fields) {
        StorePutText(payload, field, 2);
        StorePutText(payload, value, 4);
    }
    return payload;
}

std::string StoreCodec::EncodeDelete(const std::string& name) {
    return Head(kDelete, name);
}

const char* StoreCodec::Decode(std::string_view payload, StoreChange& change) {
    StoreReader reader(payload);
    if (reader.Get(1) != kVersion) return "the payload has another version";
    const std::uint64_t kind = reader.Get(1);
    if (kind != kSet && kind != kDelete) return "the payload is of no known kind";
    change.isDelete = kind == kDelete;
    change.name = reader.GetText(2);
    change.fields.clear();
    for (std::uint64_t left = kind == kSet ? reader.Get(2) : 0; left > 0 && reader.IsGood(); --left) {
        const std::string_view field = reader.GetText(2);
        const std::string_view value = reader.GetText(4);
        if (reader.IsGood() && !change.fields.emplace(field, value).second) return "the payload has a field twice";
    }
    if (!reader.IsAtEnd()) return reader.IsGood() ? "the payload is too long" : "the payload is cut";
    return Check(change.name, change.fields);
}

std::string StoreCodec::Describe(const StoreChange& change) {
    std::string text = (change.isDelete ? "delete " : "set ") + change.name;
    for (const auto& [field, value] : change.fields) text.append(",").append(field).append("=").append(value);
    for (char& ch : text) {
        if (IsControl(ch)) ch = '.';
    }
    return text;
}
