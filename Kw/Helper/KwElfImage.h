// KwElfImage: looks a 64-bit shared library through before the dynamic loader of the system sees it.
//
// That loader believes what a file says: it follows offsets out of the file, stops the process at a table that it does
// not like, and calls what the tables name. An image that passes has its headers, segments, symbols, hash tables,
// versions, relocations, notes and start functions inside its own bounds and in agreement with each other, with its
// section headers too where it has them. What its code does is another matter.
// Nothing is changed and nothing is run. Thread-safety: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "Kw/KwDefine.h"

class KW_API KwElfImage {
public:
    enum Machine : unsigned int { kX64 = 62, kArm64 = 183 };

    // Whether the image of `size` bytes is sound; 0 believes the headers. `page` is the system's, in bytes.
    bool Check(const void* data, std::size_t size, unsigned int machine, unsigned int page);
    // After a Check that gave true: the bytes from the start that belong to the image.
    std::uint64_t GetFileSize() const { return fileSize_; }

private:
    struct Segment {
        std::uint32_t type;
        std::uint32_t flags;
        std::uint64_t offset, address, fileSize, size, align;
    };
    struct Section {
        std::uint32_t name, type;
        std::uint64_t flags, address, offset, size;
        std::uint32_t link;
    };
    struct Symbol {
        std::uint32_t name;
        unsigned int type, binding, visibility, section;
        std::uint64_t value;
    };
    struct Range {
        std::uint64_t address = 0;
        std::uint64_t size = 0;
    };
    // Functions that the loader calls by a table of addresses.
    struct Calls {
        std::uint64_t address;
        std::vector<bool> filled;
    };
    enum Rights : std::uint32_t { kExecute = 1, kWrite = 2, kRead = 4 };

    // KwElfImage.cpp: headers and segments.
    bool ReadHeader(unsigned int machine);
    bool ReadSegments();
    bool TakeSegment(const Segment& segment);
    bool CheckLoads() const;
    bool CheckParts() const;
    bool CheckNotes(const Segment& notes) const;
    bool InFile(std::uint64_t offset, std::uint64_t size);
    // Of the segment that a range of memory lies in; null when there is none.
    const Segment* LoadOf(std::uint64_t address, std::uint64_t size) const;
    bool Has(std::uint64_t address, std::uint64_t size, std::uint32_t rights) const;
    // The bytes that the file gives to a range of memory; null when not all come from it.
    const unsigned char* At(std::uint64_t address, std::uint64_t size) const;
    const Segment* Part(std::uint32_t type) const;

    // KwElfSections.cpp: agreement with the section headers.
    bool ReadSections();
    bool CheckSections() const;
    bool CheckSection(const Section& section) const;
    bool IsTable(const Section& section, std::uint64_t tag, std::uint64_t sizeTag) const;
    bool IsFunction(std::uint64_t address) const;
    std::string_view NameOf(const Section& section) const;

    // KwElfDynamic.cpp: the dynamic section, strings, symbols and hash tables.
    bool ReadDynamic();
    bool CheckTags() const;
    bool CheckStrings();
    bool ReadHash();
    bool ReadGnuHash();
    bool CheckGnuNames();
    bool CheckSymbols() const;
    bool HasTag(std::uint64_t tag) const { return tags_.count(tag) != 0; }
    std::uint64_t Tag(std::uint64_t tag) const;
    // All or none of three tags, and the range that they give.
    bool TakeTable(std::uint64_t at, std::uint64_t size, std::uint64_t unitTag, std::uint64_t unit, Range& out) const;
    const char* Text(std::uint64_t offset) const;  // null outside
    Symbol SymbolAt(std::uint64_t index) const;

    // KwElfVersions.cpp
    bool CheckVersions();
    bool ReadNeeds(std::uint64_t& highest);
    bool ReadDefinitions(std::uint64_t& highest);
    bool TakeVersion(std::uint32_t hash, std::uint32_t name, std::uint32_t index, std::uint64_t& highest);

    // KwElfRelocations.cpp
    bool CheckRelocations();
    bool CheckTable(const Range& table, std::uint64_t leading, bool forCalls);
    bool CheckPacked();
    bool CheckEntry(std::uint64_t at, std::uint32_t type, std::uint32_t symbol, std::uint64_t addend);
    bool CheckThreadEntry(std::uint64_t at, std::uint32_t type, std::uint32_t symbol, std::uint64_t addend);
    bool CheckSlot(std::uint64_t at, std::uint32_t symbol, std::uint64_t addend, bool forCalls);
    bool CheckPointer(std::uint64_t at, std::uint64_t target);
    bool TakeTarget(std::uint64_t at, std::uint64_t size);
    bool AreTargetsApart();
    bool Fill(std::uint64_t at, std::uint64_t size, bool callable);
    bool TakeCalls(std::uint64_t tag, std::uint64_t sizeTag);

    const unsigned char* data_ = nullptr;
    std::uint64_t limit_ = 0;
    std::uint64_t fileSize_ = 0;
    std::uint64_t page_ = 4096;
    unsigned int machine_ = 0;
    bool isGnu_ = false;
    std::uint64_t headers_ = 0;  // offset of the program headers
    std::uint64_t headersSize_ = 0;
    std::uint64_t sectionTable_ = 0;
    std::uint32_t sectionCount_ = 0;
    std::uint32_t sectionNames_ = 0;
    std::vector<Segment> loads_;
    std::vector<Segment> parts_;  // segments inside the loaded ones
    std::vector<Section> sections_;
    std::map<std::uint64_t, std::uint64_t> tags_;  // the last of each kind, as the loader takes it
    std::vector<std::uint64_t> needed_;            // texts
    const unsigned char* strings_ = nullptr;
    std::uint64_t stringsSize_ = 0;
    const unsigned char* symbols_ = nullptr;
    std::uint64_t symbolCount_ = 0;
    std::uint64_t firstHashed_ = 0;
    std::uint64_t chains_ = 0;  // address of the hash of symbol firstHashed_
    std::vector<bool> versions_;
    std::vector<Calls> calls_;
    std::vector<Range> tables_;   // what no relocation may touch
    std::vector<Range> targets_;  // what relocations change
    // Where the second words of thread variables are to be, and are: (address, symbol).
    std::vector<std::pair<std::uint64_t, std::uint32_t>> pairs_, places_;
    enum Use : unsigned char { kByAddress = 1, kByCall = 2 };
    std::vector<unsigned char> uses_;  // of each symbol
};
