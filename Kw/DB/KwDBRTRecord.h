// KwDBRTRecord: the records of a runtime database's journal, and how they are laid out in its files.
//
// Every number is little-endian, and nothing is padded:
//   login, commit  0 magic 4, 4 type 1, 5 time 8                                          13 bytes
//   data           0 magic 4, 4 type 1, 5 length 4, 9 id 8, 17 file number 4, 21 offset 4, 25 size 4, 29 time 8,
//                  37 payload, scrambled with KwHash::RoundData(payload, length, length)  37 bytes + length
// The entry of a data file: 0 magic 4, 4 id 8, 12 size 4, 16 the data, scrambled in the same way.
// Thread-safety: plain values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "Kw/KwTime.h"

struct KW_API KwDBRTRecord {
    static constexpr unsigned int kMagic = 0x211D71B2;
    static constexpr unsigned int kEventSize = 13;   // bytes of a login or commit record
    static constexpr unsigned int kHeaderSize = 37;  // bytes of a data record before its payload
    static constexpr unsigned int kEntrySize = 16;   // bytes of a data file entry before its data
    enum Type : unsigned char { kData = 1, kCommit = 2, kLogin = 3 };

    // What Parse found. All but kWhole are damage, kCut perhaps only a piece that was read short.
    enum class State { kWhole, kCut, kMagicWrong, kTypeWrong, kLengthZero, kIdWrong };

    unsigned char type = kData;
    unsigned int length = 0;  // bytes of the payload
    double id = 0;
    int fileNumber = -1;
    unsigned int offset = 0;  // of the object's entry in the data file
    unsigned int size = 0;    // of the data in that entry
    STime time{};

    bool IsEvent() const { return type != kData; }
    // Bytes of the whole record.
    std::uint64_t GetTotal() const { return IsEvent() ? kEventSize : std::uint64_t{kHeaderSize} + length; }

    // Reads the record at `bytes`, of which `size` are there. Of a cut data record whose header is whole, the
    // fields are set too.
    static State Parse(const unsigned char* bytes, std::size_t size, KwDBRTRecord& record);
    // Reads the fields of a data record whose 37 bytes of header are there, whatever they say.
    static void ParseFields(const unsigned char* bytes, KwDBRTRecord& record);
    // A short text for people; null for kWhole.
    static const char* Describe(State state);

    // Writes a login or commit record, 13 bytes.
    static void PutEvent(unsigned char* out, Type type, const STime& time);
    // Writes the header of this data record, 37 bytes.
    void PutHeader(unsigned char* out) const;
    // Changes the length field of a written header.
    static void PutLength(unsigned char* record, unsigned int length);
    // Writes the header of a data file entry, 16 bytes, and reads it; false when the magic is wrong.
    static void PutEntry(unsigned char* out, double id, unsigned int size);
    static bool ParseEntry(const unsigned char* bytes, double& id, unsigned int& size);

    // Appends the record's line of the text log: all of it for a login or commit, and up to the tab that stands
    // before a payload's text.
    void AppendText(std::string& out) const;
    // Appends "[hour_minute_second_day_month_year]", two digits each at least.
    static void AppendTime(std::string& out, const STime& time);
};
