// KwDBRTReader: walks the records of a journal, or of its copy, from memory or from a file of any size.
//
//   KwDBRTReader reader(bytes, size);
//   while (reader.Next()) Use(reader.GetRecord(), reader.GetPayload());
//   if (reader.GetState() != KwDBRTRecord::State::kWhole) Report(reader.GetOffset(), ...);
//
// It stops in front of the first record that is damaged; nothing behind it is looked at.
// Thread-safety: a reader belongs to one thread at a time.
#pragma once

#include <memory>

#include "Kw/DB/KwDBFiles.h"
#include "Kw/DB/KwDBRTRecord.h"

class KwHashMask;

class KW_API KwDBRTReader {
public:
    KW_TRACKED_NEW

    // Walks `size` bytes, which stay the caller's and are not changed until UnscramblePayload.
    KwDBRTReader(void* bytes, std::size_t size);
    // Walks a file, which stays the caller's, in pieces. What is appended meanwhile is not seen.
    explicit KwDBRTReader(KwDBFile& file);
    KwDBRTReader(const KwDBRTReader&) = delete;
    KwDBRTReader& operator=(const KwDBRTReader&) = delete;
    ~KwDBRTReader();

    // Goes to the next record. False at the end and in front of damage.
    bool Next();

    // Looks at the headers of the records behind the current one, each once: gives the id of the next data record
    // that was not looked at yet. False when that is not in memory yet, or damaged. Whether its payload is whole,
    // Next finds out.
    bool LookAhead(double& id);

    // The record that Next went to, and the place of its first byte.
    const KwDBRTRecord& GetRecord() const { return record_; }
    std::uint64_t GetRecordOffset() const { return offset_ - total_; }
    // Its bytes as they stand in the file; valid until Next.
    const unsigned char* GetBytes() const { return bytes_ + at_ - total_; }
    // Its payload, scrambled until UnscramblePayload, which is called once a record at most.
    unsigned char* GetPayload() { return bytes_ + at_ - record_.length; }
    void UnscramblePayload();

    // After Next gave false: kWhole at the end of the records, else what is wrong, and where the damaged
    // record begins (the end, when all is well).
    KwDBRTRecord::State GetState() const { return state_; }
    std::uint64_t GetOffset() const { return offset_; }
    // The file could not be read where GetOffset says, although it is longer.
    bool IsReadError() const { return readError_; }

private:
    bool Fill(std::uint64_t need);

    KwDBFile* file_ = nullptr;
    std::unique_ptr<unsigned char[]> own_;  // the piece of a file
    std::unique_ptr<KwHashMask> mask_;      // made when first needed
    std::size_t room_ = 0;
    unsigned char* bytes_ = nullptr;
    std::size_t filled_ = 0;  // bytes in `bytes_`
    std::size_t at_ = 0;      // behind the current record
    std::size_t ahead_ = 0;   // behind the last record looked at
    std::size_t total_ = 0;   // bytes of the current record
    std::uint64_t offset_ = 0;
    std::uint64_t end_ = 0;  // of the file
    KwDBRTRecord record_;
    KwDBRTRecord::State state_ = KwDBRTRecord::State::kWhole;
    bool readError_ = false;
};
