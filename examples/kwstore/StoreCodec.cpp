#include "StoreCodec.h"

#include <cstring>

#include "StoreBytes.h"

namespace {

constexpr int kVersion = 1;
constexpr int kSet = 1;
constexpr int kDelete = 2;

unsigned char* Put(unsigned char* out, std::size_t value, int bytes) {
    for (; bytes > 0; --bytes, value >>= 8) *out++ = static_cast<unsigned char>(value & 0xFF);
    return out;
}

unsigned char* PutText(unsigned char* out, std::string_view text, int bytes) {
    out = Put(out, text.size(), bytes);
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
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
    for (const auto& [field, value] : fields) {
        if (const char* why = CheckName(field)) return why;
    }
    return GetSetSize(name, fields) > kMaxPayload ? "the object is too large" : nullptr;
}

std::size_t StoreCodec::GetSetSize(const std::string& name, const StoreFields& fields) {
    std::size_t size = 6 + name.size();
    for (const auto& [field, value] : fields) size += 6 + field.size() + value.size();
    return size;
}

unsigned char* StoreCodec::EncodeSet(const std::string& name, const StoreFields& fields, unsigned char* out) {
    *out++ = kVersion;
    *out++ = kSet;
    out = Put(PutText(out, name, 2), fields.size(), 2);
    for (const auto& [field, value] : fields) out = PutText(PutText(out, field, 2), value, 4);
    return out;
}

std::string StoreCodec::EncodeSet(const std::string& name, const StoreFields& fields) {
    std::string payload(GetSetSize(name, fields), '\0');
    EncodeSet(name, fields, reinterpret_cast<unsigned char*>(payload.data()));
    return payload;
}

std::string StoreCodec::EncodeDelete(const std::string& name) {
    std::string payload;
    StorePut(payload, kVersion, 1);
    StorePut(payload, kDelete, 1);
    StorePutText(payload, name, 2);
    return payload;
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

void StoreCodec::Describe(std::string_view payload, std::string& out) {
    const std::size_t start = out.size();
    StoreReader reader(payload);
    reader.Get(1);
    const bool isSet = reader.Get(1) == kSet;
    out.append(isSet ? "set " : "delete ").append(reader.GetText(2));
    for (std::uint64_t left = isSet ? reader.Get(2) : 0; left > 0 && reader.IsGood(); --left) {
        out.append(",").append(reader.GetText(2));
        out.append("=").append(reader.GetText(4));
    }
    if (!reader.IsAtEnd()) out.append(" ...");
    for (std::size_t i = start; i < out.size(); ++i) {
        if (IsControl(out[i])) out[i] = '.';
    }
}
