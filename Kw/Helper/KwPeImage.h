// KwPeImage: the portable half of the loader that maps 32-bit Windows libraries from memory.
//
// It checks the headers of an image, lays the image out in a block, moves it to its address, and reads its tables
// there. Nothing in an image is trusted: every read is bounded when it happens, for moving and binding change what was
// checked before, and the work is bounded by the image's size. An address here is an offset from the block's start.
// Order of use: Open, Lay, Move, then the tables. A false leaves the object fit for Open only.
// Thread-safety: none; FindExport may run on many threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Kw/KwDefine.h"

// What binds an import: sets `out` to the address that the name stands for; false refuses the image. `name` is null for
// an import by number.
class KW_API KwPeBinder {
public:
    virtual ~KwPeBinder();
    // Called once a library, before its names.
    virtual bool OnLibrary(const char* library) = 0;
    virtual bool OnImport(const char* name, unsigned int ordinal, std::uint32_t& out) = 0;
};

class KW_API KwPeImage {
public:
    struct Section {
        std::uint32_t address;
        std::uint32_t size;    // in memory
        std::uint32_t offset;  // in the file
        std::uint32_t stored;  // bytes of it in the file that belong to memory
        bool writable;
        bool executable;
    };
    struct Export {
        std::uint32_t address = 0;        // 0: there is no such name
        const char* forwarder = nullptr;  // "LIBRARY.name" or "LIBRARY.#number" when another library has it
    };

    // Checks the headers of the image of `size` bytes; 0 believes them. `data` stays until Lay. An image that bears a
    // checksum must match it, where the size is known.
    bool Open(const void* data, std::size_t size);

    std::uint32_t GetSize() const { return size_; }  // bytes of the block
    std::uint32_t GetBase() const { return base_; }  // where it would like to be
    std::uint32_t GetHeaderSize() const { return headerSize_; }
    std::uint32_t GetEntry() const { return entry_; }  // 0: none
    const std::vector<Section>& GetSections() const { return sections_; }

    // Copies headers and sections to `block`, GetSize() bytes that are 0. The data may go, the block stays.
    void Lay(unsigned char* block);
    // Corrects the image for the address at which it will run.
    bool Move(std::uint32_t base);
    // Walks the imports; with null it only checks them.
    bool Bind(KwPeBinder* binder);
    // The image's own functions for attach and detach beside its entry. Refuses thread variables that only the system's
    // loader could lay out.
    bool ReadCallbacks(std::vector<std::uint32_t>& out) const;
    // Makes the index that FindExport needs; an image without exports has an empty one.
    bool ReadExports();
    // Valid while the block is.
    Export FindExport(const char* name) const;

private:
    struct Range {
        std::uint32_t address = 0;
        std::uint32_t size = 0;
    };
    struct Name {
        std::uint32_t hash = 0;
        std::uint32_t text = 0;
        std::uint32_t address = 0;
    };

    bool ReadHeaders(std::uint32_t at);
    bool ReadSections(std::uint32_t at, unsigned int count);
    bool CheckFileTail(std::uint32_t symbols, std::uint32_t symbolCount, const Range& certificates) const;
    bool HasChecksum(std::uint32_t at, std::uint32_t expected) const;
    bool IsExecutable(std::uint32_t address) const;
    bool MovePage(std::uint32_t page, std::uint32_t entries, std::uint32_t count, std::uint32_t delta);
    bool BindLibrary(std::uint32_t names, std::uint32_t slots, KwPeBinder* binder, std::uint64_t& budget);
    // In the block, once Lay has run.
    bool Has(std::uint32_t address, std::uint64_t size) const { return address <= size_ && size <= size_ - address; }
    std::uint32_t Get16(std::uint32_t address) const;
    std::uint32_t Get32(std::uint32_t address) const;
    void Put32(std::uint32_t address, std::uint32_t value);
    // A terminated text, whose bytes are taken from the budget; null when there is none.
    const char* Text(std::uint32_t address, std::uint64_t& budget) const;
    const char* TextOf(const Name& name) const { return reinterpret_cast<const char*>(block_ + name.text); }

    enum Directory : unsigned int { kExports, kImports, kCertificates = 4, kMoves, kThread = 9, kManaged = 14 };
    static constexpr unsigned int kDirectories = 16;

    const unsigned char* data_ = nullptr;  // the file, until Lay
    std::uint64_t limit_ = 0;              // bytes of it that may be read
    bool limitKnown_ = false;
    unsigned char* block_ = nullptr;
    std::uint32_t size_ = 0;
    std::uint32_t base_ = 0;
    std::uint32_t headerSize_ = 0;
    std::uint32_t entry_ = 0;
    bool movable_ = false;
    Range directories_[kDirectories];
    std::vector<Section> sections_;
    std::vector<Name> names_;  // by hash and text
};
