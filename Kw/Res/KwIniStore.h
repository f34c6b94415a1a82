// KwIniStore: what an INI file keeps beside its lists: storage, hash tables and the text that was loaded. Internal.
//
// Loading cuts nodes and tables from a few large blocks, which go when the file is cleared; texts stay in one copy of
// what was read, terminated in place. What is set later has tracked blocks of its own, so that setting for ever
// does not grow.
// Thread-safety: as the file it belongs to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Kw/Res/KwBuildIni.h"
#include "Kw/Res/KwParseError.h"

class KwIniStore {
public:
    KW_TRACKED_NEW

    KwIniStore();
    ~KwIniStore() { Clear(); }
    KwIniStore(const KwIniStore&) = delete;
    KwIniStore& operator=(const KwIniStore&) = delete;

    // Gives every block back. What was cut from them must not be used any more.
    void Clear();

    // Copies the text twice, one of them to be kept as it is; both are terminated. False when memory is out.
    bool KeepText(const char* data, std::size_t size);
    const char* GetText() const { return text_; }
    std::size_t GetTextSize() const { return size_; }
    char* GetParts() const { return parts_; }  // the copy in which parts are terminated

    // `bytes` bytes aligned for a pointer, not cleared; null when memory is out.
    void* Cut(std::size_t bytes) {
        const std::size_t whole = (bytes + 7) & ~std::size_t{7};
        if (static_cast<std::size_t>(end_ - next_) < whole && !Refill(whole)) return nullptr;
        unsigned char* part = next_;
        next_ += whole;
        return part;
    }

    // Empty slots for a table, from the store while a text is loaded: what is made later comes and goes. Null
    // slots when memory is out. Freeing is for the tables of what leaves the file, and sets the table back.
    KwIniTable NewTable(unsigned int capacity);
    static void FreeTable(KwIniTable& table);

    // A terminated copy in a block of its own; null when memory is out.
    static char* NewText(const char* text, int len);
    static void FreeText(char* text);

    // Of bytes; not to be guessed from outside, so that no text makes the tables slow.
    unsigned int Hash(const char* text, int len) const {
        std::uint64_t hash = seed_ ^ static_cast<std::uint64_t>(len);
        for (; len > 8; text += 8, len -= 8) hash = Mix(hash, Word<8>(text));
        hash = Mix(hash, Tail(text, len));
        return static_cast<unsigned int>(hash * 0x9E3779B97F4A7C15u >> 32);
    }

    KwIniTable sections;
    bool edited = false;  // something has a block of its own
    bool loading = false;
    bool complete = true;  // the text was read to its end
    KwParseError error;

private:
    template <std::size_t Bytes>
    static std::uint64_t Word(const char* text) {
        std::uint64_t word = 0;
        std::memcpy(&word, text, Bytes);
        return word;
    }
    // Up to 8 bytes; the length is in the hash already, so reading some of them twice does no harm.
    static std::uint64_t Tail(const char* text, int len) {
        if (len >= 4) return Word<4>(text) | Word<4>(text + len - 4) << 32;
        if (len >= 2) return Word<2>(text) | Word<2>(text + len - 2) << 16;
        return len == 1 ? Word<1>(text) : 0;
    }
    static std::uint64_t Mix(std::uint64_t hash, std::uint64_t word) {
        hash = (hash ^ word) * 0xD6E8FEB86659FD93u;
        return hash ^ hash >> 29;
    }
    bool Refill(std::size_t whole);

    struct Block;
    Block* blocks_ = nullptr;
    unsigned char* next_ = nullptr;  // the newest block is free from here to end_
    unsigned char* end_ = nullptr;
    std::size_t blockSize_ = 0;  // bytes of the block after it
    char* text_ = nullptr;
    char* parts_ = nullptr;
    std::size_t size_ = 0;
    std::uint64_t seed_;
};
