// KwFileIni: values read and set as numbers, texts and bytes.
#include <string>

#include "Kw/Helper/KwMath.h"
#include "Kw/KwStr.h"
#include "Kw/Res/KwBuildIni.h"

namespace {

// A double with six decimals: up to 309 digits, a sign, the point and the terminator.
constexpr int kNumberSize = 352;
constexpr int kStructText = 512;  // a longer one is refused

bool ToBool(const SIniMem& mem) {
    return KwMath::ToInt(mem.value, mem.valueLen) != 0;
}

unsigned int ToUint(const SIniMem& mem) {
    return KwMath::TruncateToUint(KwMath::ToDouble(mem.value, mem.valueLen));
}

template <typename Value>
void Put(Value* out, Value value) {
    if (out != nullptr) *out = value;
}

int FromDigit(char ch) {
    return ch >= '0' && ch <= '9' ? ch - '0' : static_cast<unsigned char>(ch) - 55;
}

}  // namespace

const char* KwFileIni::GetString(const char* sec, const char* key, const char* def, int* len) {
    const SIniMem* mem = FindValue(sec, key);
    Put(len, mem != nullptr ? mem->valueLen : KwStr::Len(def));
    return mem != nullptr ? mem->value : def;
}

int KwFileIni::GetInt(const char* sec, const char* key, int def) {
    const SIniMem* mem = FindValue(sec, key);
    return mem != nullptr ? KwMath::ToInt(mem->value, mem->valueLen) : def;
}

unsigned int KwFileIni::GetUint(const char* sec, const char* key, unsigned int def) {
    const SIniMem* mem = FindValue(sec, key);
    return mem != nullptr ? ToUint(*mem) : def;
}

double KwFileIni::GetDouble(const char* sec, const char* key, double def) {
    const SIniMem* mem = FindValue(sec, key);
    return mem != nullptr ? KwMath::ToDouble(mem->value, mem->valueLen) : def;
}

bool KwFileIni::GetBool(const char* sec, const char* key, bool def) {
    const SIniMem* mem = FindValue(sec, key);
    return mem != nullptr ? ToBool(*mem) : def;
}

bool KwFileIni::GetString(const char* sec, const char* key, char* out, int size, const char* def, int* len) {
    const SIniMem* mem = FindValue(sec, key);
    const int full = mem != nullptr ? mem->valueLen : KwStr::Len(def);
    KwStr::CpyLen(out, size, mem != nullptr ? mem->value : def, full);
    Put(len, full);
    return mem != nullptr;
}

bool KwFileIni::GetString(const char* sec, const char* key, const char* def, char* out, int size) {
    return GetString(sec, key, out, size, def, nullptr);
}

bool KwFileIni::GetInt(const char* sec, const char* key, int* out, int def) {
    const SIniMem* mem = FindValue(sec, key);
    Put(out, mem != nullptr ? KwMath::ToInt(mem->value, mem->valueLen) : def);
    return mem != nullptr;
}

bool KwFileIni::GetInt(const char* sec, const char* key, int def, int* out) {
    return GetInt(sec, key, out, def);
}

bool KwFileIni::GetUint(const char* sec, const char* key, unsigned int* out, unsigned int def) {
    const SIniMem* mem = FindValue(sec, key);
    Put(out, mem != nullptr ? ToUint(*mem) : def);
    return mem != nullptr;
}

bool KwFileIni::GetDouble(const char* sec, const char* key, double* out, double def) {
    const SIniMem* mem = FindValue(sec, key);
    Put(out, mem != nullptr ? KwMath::ToDouble(mem->value, mem->valueLen) : def);
    return mem != nullptr;
}

bool KwFileIni::GetBool(const char* sec, const char* key, bool* out, bool def) {
    const SIniMem* mem = FindValue(sec, key);
    Put(out, mem != nullptr ? ToBool(*mem) : def);
    return mem != nullptr;
}

bool KwFileIni::GetInt2(const char* sec, const char* key, int* a, int* b) {
    const SIniMem* mem = FindValue(sec, key);
    KwStr::Sscanf(mem != nullptr ? mem->value : "", "%d,%d", a, b);
    return mem != nullptr;
}

bool KwFileIni::GetStruct(const char* sec, const char* key, void* out, int size) {
    const SIniMem* mem = FindValue(sec, key);
    if (mem == nullptr || out == nullptr || mem->valueLen == 0 || mem->valueLen / 2 != size) return false;
    auto* bytes = static_cast<unsigned char*>(out);
    for (int i = 0; i < size; ++i) {
        const char* pair = mem->value + 2 * i;
        // Other characters than the digits are not looked for: whoever wrote lower case reads wrong bytes.
        bytes[i] = static_cast<unsigned char>(FromDigit(pair[0]) * 16 + FromDigit(pair[1]));
    }
    return true;
}

void* KwFileIni::SetMember(void* sec, const char* key, int value, int keyLen) {
    char text[16];
    return SetMember(sec, key, text, KwStr::Format(text, sizeof(text), "%d", value), keyLen);
}

void* KwFileIni::SetMember(void* sec, const char* key, unsigned int value, int keyLen) {
    char text[16];
    return SetMember(sec, key, text, KwStr::Format(text, sizeof(text), "%u", value), keyLen);
}

void* KwFileIni::SetMember(void* sec, const char* key, double value, int keyLen) {
    char text[kNumberSize];
    return SetMember(sec, key, text, KwStr::Format(text, sizeof(text), "%f", value), keyLen);
}

void* KwFileIni::SetMember(void* sec, const char* key, bool value, int keyLen) {
    return SetMember(sec, key, value ? "1" : "0", 1, keyLen);
}

void* KwFileIni::SetMemberStruct(void* sec, const char* key, const void* data, int size, int keyLen) {
    if (size < 0 || size >= kStructText / 2 || (data == nullptr && size != 0)) return nullptr;
    char text[kStructText];
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (int i = 0; i < size; ++i) {
        text[2 * i] = "0123456789ABCDEF"[bytes[i] >> 4];
        text[2 * i + 1] = "0123456789ABCDEF"[bytes[i] & 15];
    }
    return SetMember(sec, key, text, 2 * size, keyLen);
}
