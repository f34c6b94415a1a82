// StoreBytes: little-endian numbers and texts, appended to and read from bytes.
//
// The reader never leaves its bytes: what is not there reads as 0 or empty, and IsGood stays false from then on.
// Thread-safety: plain values.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Appends the low `bytes` bytes of `value`.
inline void StorePut(std::string& out, std::uint64_t value, int bytes) {
    for (; bytes > 0; --bytes, value >>= 8) out += static_cast<char>(value & 0xFF);
}

// Appends a text behind its length of `bytes` bytes, which the caller has checked to be enough.
inline void StorePutText(std::string& out, std::string_view text, int bytes) {
    StorePut(out, text.size(), bytes);
    out += text;
}

// FNV-1a. Every change of one byte changes it.
inline std::uint64_t StoreHash(std::string_view bytes) {
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3u;
    return hash;
}

class StoreReader {
public:
    explicit StoreReader(std::string_view bytes) : left_(bytes) {}

    std::uint64_t Get(int bytes) {
        const std::string_view raw = GetBytes(static_cast<std::size_t>(bytes));
        std::uint64_t value = 0;
        for (std::size_t i = raw.size(); i-- > 0;) value = value << 8 | static_cast<unsigned char>(raw[i]);
        return value;
    }
    std::uint32_t GetInt() { return static_cast<std::uint32_t>(Get(4)); }
    double GetDouble() { return std::bit_cast<double>(Get(8)); }
    // A text behind its length of `bytes` bytes.
    std::string_view GetText(int bytes) { return GetBytes(static_cast<std::size_t>(Get(bytes))); }

    bool IsGood() const { return good_; }
    bool IsAtEnd() const { return good_ && left_.empty(); }

private:
    std::string_view GetBytes(std::size_t count) {
        good_ = good_ && count <= left_.size();
        if (!good_) return {};
        const std::string_view bytes = left_.substr(0, count);
        left_.remove_prefix(count);
        return bytes;
    }

    std::string_view left_;
    bool good_ = true;
};
