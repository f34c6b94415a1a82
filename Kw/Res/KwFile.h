// KwFile: one file object over a file on disk, a file inside a pack, and a buffer in memory.
//
// Opening for reading looks for the name on disk (see KwRes for the resource paths) and then, by its 8-bit
// name, in the packs. Every open operation closes the file before it; each failure is false, and logged
// in one line unless stated otherwise. A failed read or write leaves the position where it was.
// Sizes and positions are 32-bit: a file may have up to 4 GiB - 2 bytes (kMaxSize). A larger one is not opened,
// and a write that would make it larger is refused.
// What is written to disk is held back in a small buffer until that is full, or until Flush, Close or
// a call of GetHandle. Bytes that a full disk refuses stay in the buffer, and the next attempt takes them.
// Thread-safety: an object belongs to one thread at a time.
#pragma once

#include <cstdarg>
#include <string>

#include "Kw/KwMemory.h"

class KwBuffer;
class KwFileWriter;
class KwPackSource;

class KW_API KwFile {
public:
    KW_TRACKED_NEW

    static constexpr unsigned int kMaxSize = 0xFFFFFFFEu;

    KwFile() = default;
    // An open file has one owner: a copy starts closed, and assigning closes the target.
    KwFile(const KwFile&) {}
    KwFile& operator=(const KwFile& other);
    virtual ~KwFile();

    // Opens for reading. A name that is not found gives false without a message. A file on disk must be
    // a file, no folder. The wide form looks on disk only.
    bool Open(const char* name);
    bool Open(const KwWChar* name);
    // The same with `packs` in place of the process's source of packed files; null: looks on disk only.
    bool Open(const char* name, KwPackSource* packs);
    // Opens the pack entry with that key hash (see KwPackSource::GetKeyHash).
    bool OpenFromPack(unsigned int hash);
    // Opens the filled bytes of `buffer`, to which a reference is taken until Close. The content does
    // not grow. Nobody else may shorten or replace the buffer's block meanwhile.
    bool OpenFromBuffer(KwBuffer* buffer, bool canRead, bool canWrite);

    // Opens `out` for writing: everything goes to its end, as to a file on disk opened for appending. It stays the
    // caller's and lives until Close.
    bool OpenToString(std::string* out);

    // Creates or empties a file, for writing. The path is taken as it is: resource paths are for reading.
    bool Create(const char* path);
    bool Create(const KwWChar* path);
    // Opens for writing at the end, making the file if it is missing. Whatever the position, writes go to the end.
    bool Append(const char* path);
    bool Append(const KwWChar* path);

    // Writes out what is held back and closes. False when a disk refused bytes, which are lost then (one
    // line is logged); true for a closed file.
    bool Close();
    // Hands what is held back to the system; with `toDisk`, waits until it is on the disk. False when
    // the disk refuses: the bytes stay held back. True for files that hold nothing.
    bool Flush(bool toDisk = false);

    // Reads exactly `size` bytes. False for a null buffer, size 0, and without read access, all three
    // without a message; and when fewer bytes are left.
    bool Read(void* out, unsigned int size);
    // Reads the whole file into `buffer`, whatever the position was: `before` zero bytes, then the content up
    // to the fill mark, then `after` zero bytes. The block is kept when `keepBlock` is set and it is
    // large enough, else replaced by one of exactly that size (at least 1). The position is then at the end.
    bool ReadAll(KwBuffer* buffer, unsigned int before, unsigned int after, bool keepBlock);
    // Writes all bytes or none. False without write access, without a message.
    bool Write(const void* data, unsigned int size);
    // Writes `text` up to its terminator (`len` is not used) and a line feed. Null writes the line feed.
    bool WriteLine(const char* text, int len);
    // Write formatted text to a file on disk (or a string), wide text as UTF-8. WriteV is silent about a null format, a
    // missing write access and other kinds of file.
    bool WriteF(const char* format, ...) KW_PRINTF(2, 3);
    bool WriteF(const KwWChar* format, ...);
    bool WriteV(const char* format, va_list args) KW_PRINTF(2, 0);
    bool WriteV(const KwWChar* format, va_list args);
    // Appends `size` bytes of `source`, from its `offset` on, at this file's position, through `work`, whose
    // content is overwritten. False at the first failed read or write, and when `work` has no block.
    bool ReadAndWrite(KwFile* source, KwBuffer* work, unsigned int offset, unsigned int size);

    // Bytes, with those held back. Of a file opened for reading: as it was when it was opened.
    unsigned int Size();
    // Moves to `pos` from the start (whence 0), from the position (1) or from the end (2), cut to 0 and
    // Size(); returns the new position. With 1 and 2 `pos` is signed: 0xFFFFFFFF is one byte back.
    // Other values of `whence` change nothing.
    unsigned int Seek(unsigned int pos, int whence);
    unsigned int Tell();

    bool CanRead() const { return (access_ & kRead) != 0; }
    bool CanWrite() const { return (access_ & kWrite) != 0; }
    // The pack entry's key hash; 0 for other kinds.
    unsigned int IsPackFile() const;
    bool IsFileOut() const { return kind_ == kDisk || kind_ == kDiskWide; }
    bool IsMemory() const { return kind_ == kMemory; }
    // The stdio stream, the KwPackEntry or the KwBuffer; null when closed and for a string. What is held back is
    // written out first. Whoever writes through the stream does so before the next operation of this object.
    void* GetHandle();

private:
    enum : unsigned short { kClosed, kDisk, kPack, kMemory, kDiskWide, kText };  // kind_
    enum : unsigned short { kRead = 1, kWrite = 2 };                             // access_

    bool OpenEntry(KwPackSource* source, unsigned int hash);
    bool OpenDisk(const char* name, unsigned short kind);
    bool OpenForWrite(const char* path, bool append, unsigned short kind);
    bool ReadDisk(void* out, unsigned int size);
    bool ReadAllInto(unsigned char* out);
    bool WriteDisk(const void* data, unsigned int size);
    void Written(unsigned int size);
    unsigned char* Content(unsigned int size) const;
    void SyncWithStream();

    void* handle_ = nullptr;
    unsigned int size_ = 0;
    unsigned short kind_ = kClosed;
    unsigned short access_ = 0;
    unsigned int position_ = 0;
    // Behind the stated fields.
    KwFileWriter* writer_ = nullptr;  // of files on disk with write access
    KwPackSource* source_ = nullptr;  // of the pack entry
    bool untouched_ = false;          // nothing was read from the stream yet
    bool append_ = false;             // writes go to the end
    bool shared_ = false;             // the host has the stream, too
};
