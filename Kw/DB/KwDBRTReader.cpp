#include "Kw/DB/KwDBRTReader.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "Kw/Helper/KwHash.h"
#include "Kw/Helper/KwHashMask.h"

namespace {
constexpr std::size_t kPiece = 256 * 1024;  // stays in the processor's cache
}  // namespace

using State = KwDBRTRecord::State;

KwDBRTReader::KwDBRTReader(void* bytes, std::size_t size)
    : bytes_(static_cast<unsigned char*>(bytes)), filled_(size), end_(size) {}

KwDBRTReader::KwDBRTReader(KwDBFile& file) : file_(&file), end_(file.GetSize()) {}

KwDBRTReader::~KwDBRTReader() = default;

// Sees that `need` bytes from at_ on are there, or all up to the end. False when they cannot be had.
bool KwDBRTReader::Fill(std::uint64_t need) {
    need = std::min(need, end_ - offset_);
    if (filled_ - at_ >= need) return true;
    if (file_ == nullptr) return false;
    const std::size_t kept = filled_ - at_;
    if (room_ < need) {
        const std::uint64_t room = std::max<std::uint64_t>(need, kPiece);
        if (room > SIZE_MAX / 2) return false;
        std::unique_ptr<unsigned char[]> larger(new (std::nothrow) unsigned char[static_cast<std::size_t>(room)]);
        if (larger == nullptr) return false;
        std::copy_n(bytes_ + at_, kept, larger.get());
        own_ = std::move(larger);
        room_ = static_cast<std::size_t>(room);
    } else {
        std::memmove(own_.get(), bytes_ + at_, kept);
    }
    bytes_ = own_.get();
    ahead_ = std::max(ahead_, at_) - at_;
    at_ = 0;
    const std::uint64_t left = end_ - offset_ - kept;
    const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(room_ - kept, left));
    filled_ = kept + file_->Read(offset_ + kept, bytes_ + kept, wanted);
    return filled_ >= need;
}

bool KwDBRTReader::Next() {
    total_ = 0;
    if (state_ != State::kWhole || readError_ || offset_ == end_) return false;
    state_ = KwDBRTRecord::Parse(bytes_ + at_, filled_ - at_, record_);
    if (state_ == State::kCut) {
        // Perhaps only the piece ends here: first the header, then all of the record.
        bool filled = Fill(KwDBRTRecord::kHeaderSize);
        if (filled) state_ = KwDBRTRecord::Parse(bytes_ + at_, filled_ - at_, record_);
        if (filled && state_ == State::kCut && end_ - offset_ >= KwDBRTRecord::kHeaderSize) {
            // A length that runs past the end asks for no memory.
            if (record_.GetTotal() > end_ - offset_) return false;
            filled = Fill(record_.GetTotal());
            if (filled) state_ = KwDBRTRecord::Parse(bytes_ + at_, filled_ - at_, record_);
        }
        readError_ = !filled;
    }
    if (state_ != State::kWhole) return false;
    total_ = static_cast<std::size_t>(record_.GetTotal());
    at_ += total_;
    offset_ += total_;
    return true;
}

bool KwDBRTReader::LookAhead(double& id) {
    KwDBRTRecord record;
    for (ahead_ = std::max(ahead_, at_); ahead_ < filled_;) {
        const State state = KwDBRTRecord::Parse(bytes_ + ahead_, filled_ - ahead_, record);
        // A record of which the end is missing may still become whole.
        if (state != State::kWhole || record.GetTotal() > filled_ - ahead_) return false;
        ahead_ += static_cast<std::size_t>(record.GetTotal());
        if (record.IsEvent()) continue;
        id = record.id;
        return true;
    }
    return false;
}

void KwDBRTReader::UnscramblePayload() {
    if (record_.IsEvent()) return;
    if (mask_ == nullptr) mask_.reset(new (std::nothrow) KwHashMask);
    if (mask_ != nullptr) {
        mask_->Round(GetPayload(), record_.length);
    } else {
        KwHash::RoundData(GetPayload(), record_.length, record_.length);
    }
}
