// KwNetFrame: takes a byte stream apart into packets. Internal.
//
// A packet of the stream is a type byte, the 16-bit little-endian length of the whole packet, and the rest. What was
// read is handed out in place; the buffer grows with the packets up to 64 KB.
// Thread-safety: an object belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <memory>

class KwNetFrame {
public:
    static constexpr unsigned int kHeader = 3;  // bytes: type and length
    static constexpr unsigned int kMaxPacket = 65535;

    enum class Cut {
        kPacket,
        kMore,  // what is left is not a whole packet
        kBad,   // a length below 3 or above the limit; for good
    };

    // `maxPacket` in bytes, at least 3.
    explicit KwNetFrame(unsigned int maxPacket) : maxPacket_(maxPacket) {}

    // Where the next bytes go: at least one. Moves what is not handed out yet, so packets handed out are void.
    unsigned char* Room(std::size_t& size);
    // `size` bytes were put into the room.
    void Filled(std::size_t size) { end_ += size; }

    // The next packet, valid until Room.
    Cut Next(const unsigned char*& packet, unsigned int& size);
    // Whether Next would have a packet or a fault to tell.
    bool HasPacket() const;

    // Bytes of a packet that is not whole.
    std::size_t GetRest() const { return end_ - begin_; }
    // Forgets everything.
    void Clear() { begin_ = end_ = 0; }

private:
    unsigned int LengthAt(std::size_t at) const {
        return static_cast<unsigned int>(buffer_[at + 1] | buffer_[at + 2] << 8);
    }

    std::unique_ptr<unsigned char[]> buffer_;
    std::size_t size_ = 0;
    std::size_t begin_ = 0;  // of what is not handed out yet
    std::size_t end_ = 0;
    unsigned int maxPacket_;
};
