// KwFilePack: one pack file: many files in one, found by the hash of their name and read from it.
//
// docs/packs.md states the format. A pack is open for reading only. Opening reads its directory, which must be sorted
// by hash, without duplicates, and whose bodies must not overlap one another in part; whether an entry can be read
// shows when it is read. Thread-safety: SearchIndex, GetItem, FindItem, ReadData and ReadItem from any thread, as long
// as nobody changes, opens or closes the pack.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "Kw/KwMemory.h"
#include "Kw/Res/KwFile.h"

class KwBuffer;
class KwFilePack;
class KwPackIndex;

// One file in a pack.
struct SPackFileItem {
    unsigned int hash;          // of its key, see KwPackSource::GetKeyHash
    unsigned int storedSize;    // bytes of its body in the pack, below 2^24
    unsigned int unpackedSize;  // bytes
    unsigned int method;        // in the top byte: 0 stored, 0x01000000 and 0x20000000 NRV2B
    int word;                   // the last word of the directory entry
    unsigned int offset;        // of the body in the pack file
    KwFilePack* pack;
};

class KW_API KwFilePack {
public:
    KW_TRACKED_NEW

    static constexpr unsigned int kUnpackLimit = 256u << 20;

    KwFilePack();
    KwFilePack(const KwFilePack&) = delete;
    KwFilePack& operator=(const KwFilePack&) = delete;
    virtual ~KwFilePack();

    // Opens a pack, through KwFile::Open: resource paths apply. With `inMemory` the whole file is read at once,
    // else its directory. False, without a message and with the pack closed, when it cannot be read or is no pack.
    bool Open(const char* path, bool inMemory);
    // Forgets all items. Does nothing to a pack of a list, which closes it itself.
    void Close();

    // Makes room for `n` items. False when memory is out and for a pack of a list.
    bool SetLimitSize(int n);
    // Adds an item or replaces the one with that hash. `method` is in the top byte, see SPackFileItem. Whether the
    // body is inside the file shows when it is read. Pointers to items are no longer valid then. False when memory is
    // out and for a pack of a list, which does not change.
    bool AddFile(unsigned int hash, unsigned int offset, unsigned int unpackedSize, unsigned int storedSize, int method,
                 int word);

    int GetItemCount() const { return count_; }
    // The index of the item with that hash; -1 minus the index that it would get when there is none.
    int SearchIndex(unsigned int hash) const;
    // The item at that index, in the order of hashes; null outside.
    SPackFileItem* GetItem(int index) const;
    // The item with that hash, or null.
    SPackFileItem* FindItem(unsigned int hash) const;

    // Reads of an item of this pack from `offset` in its body on. Without `unpack`: `outLen` stored bytes (`storedLen`
    // does not count). With `unpack`: unpacks `storedLen` stored bytes into `out`, which they must fill exactly.
    // False, without a message, when the bytes are not all inside the body and the file, or cannot be unpacked.
    bool ReadData(const SPackFileItem* item, unsigned int offset, unsigned int storedLen, unsigned char* out,
                  unsigned int outLen, bool unpack) const;
    // Reads and unpacks a whole item of this pack. `out` keeps its block if that is large enough, else it gets one of
    // exactly that size. False, without a message, when that fails, and when the unpacked size is above the limit;
    // `out` is empty then.
    bool ReadItem(const SPackFileItem* item, KwBuffer* out) const;
    // The largest unpacked size that ReadItem accepts, in bytes; kUnpackLimit at first. From any thread.
    void SetUnpackLimit(unsigned int bytes) { unpackLimit_ = bytes; }

    // As it was given to Open; empty when closed.
    const char* GetPath() const { return path_.c_str(); }
    unsigned int GetPackSize() const { return size_; }  // bytes of the pack file
    bool IsOpen() const { return unpack_ != nullptr; }

private:
    friend class KwFilePackList;
    // `slack`: a byte behind the stored ones can be read, too.
    using Unpack = bool (*)(unsigned int method, const void* stored, unsigned int storedSize, void* out,
                            unsigned int outSize, bool slack);

    void Forget();
    bool OpenFile(bool inMemory);
    bool ReadDirectory();
    bool ReadAt(unsigned int offset, void* out, unsigned int size) const;
    bool UnpackAt(const SPackFileItem& item, unsigned int offset, unsigned int storedLen, void* out,
                  unsigned int outLen) const;
    bool Grow(int capacity);

    KwFile file_;
    KwBuffer* buffer_ = nullptr;  // the whole pack, when it was read into memory
    std::string path_;
    unsigned int size_ = 0;
    SPackFileItem* items_ = nullptr;
    int count_ = 0;
    int capacity_ = 0;
    Unpack unpack_ = nullptr;
    const unsigned char* bytes_ = nullptr;  // the pack, where it is in memory
    std::FILE* stream_ = nullptr;           // else
    std::atomic<unsigned int> unpackLimit_{kUnpackLimit};
    bool fixed_ = false;                  // belongs to a list
    std::unique_ptr<KwPackIndex> index_;  // built while the items are as they were read
};
