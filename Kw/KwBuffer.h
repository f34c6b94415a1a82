// KwBuffer: a byte buffer of fixed capacity with a fill mark.
//
// Appends refuse what does not fit; the owner decides when to Alloc or Realloc. Numbers are stored
// little-endian.
// Thread-safety: the reference count is safe, the content belongs to one user at a time.
#pragma once

#include <cstdarg>

#include "Kw/KwInf.h"

class KW_API KwBuffer : public KwInfLock {
public:
    KwBuffer() = default;
    // A copy has a block of its own; count, flag and lock are copied as KwInfLock copies them.
    KwBuffer(const KwBuffer& other);
    KwBuffer& operator=(const KwBuffer& other);
    ~KwBuffer() override;

    // Replaces the block by a zero-filled one of `size` bytes, empty. False for 0, and when memory is
    // out (one line is logged; the buffer has no block then).
    virtual bool Alloc(unsigned int size);
    // Resizes the block; `keep` keeps the fill mark, cut to the new size. False for 0, and when memory is
    // out (one line is logged): the old block is abandoned, so nothing may be appended before an Alloc.
    virtual bool Realloc(unsigned int size, bool keep);

    unsigned char* GetData() const { return data_; }
    unsigned int GetSize() const { return size_; }  // capacity in bytes
    unsigned int GetUsed() const { return used_; }  // bytes filled
    // Neither checks against the capacity.
    void SetUsed(int used) { used_ = static_cast<unsigned int>(used); }
    void AddUsed(int used) { used_ += static_cast<unsigned int>(used); }
    void* GetUserData() const { return userData_; }
    void SetUserData(void* data) { userData_ = data; }

    // Append 1, 2, 4 or 8 bytes, or nothing at all when they do not fit.
    void AddByte(const unsigned char& value);
    void AddWord(const unsigned short& value);
    void AddInt(const int& value);
    void AddDouble(const double& value);

    // Appends `len` bytes. False for null, and when they do not fit.
    bool AddData(const void* data, unsigned int len);
    // Appends `len` characters of `text`, to its terminator when `len` is below 1 or has the top bit set.
    // The terminator is not stored; a wide character takes two bytes. False for null or no room.
    bool AddString(const char* text, unsigned int len);
    bool AddString(const KwWChar* text, unsigned int len);

    // Appends formatted text without a terminator. False, with the mark where it was, when there is no
    // block, nothing was produced or the text does not fit.
    bool AddStringF(const char* format, ...) KW_PRINTF(2, 3);
    bool AddStringV(const char* format, va_list args) KW_PRINTF(2, 0);
    // The wide forms store nothing and return false.
    bool AddStringF(const KwWChar* format, ...);
    bool AddStringV(const KwWChar* format, va_list args);

    // Removes `count` bytes at `pos`. False for a range that is empty or not inside the filled bytes.
    bool Remove(int pos, int count);

private:
    void Append(const void* bytes, unsigned int count);
    void CopyContent(const KwBuffer& other);

    void* userData_ = nullptr;
    unsigned int size_ = 0;
    unsigned int used_ = 0;
    unsigned char* data_ = nullptr;
};
