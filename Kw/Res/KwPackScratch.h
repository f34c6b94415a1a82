// KwPackScratch: the process's buffer for stored bytes on their way to the decompressor. Internal.
//
// One block is kept between uses, of at least 1 MiB and at most what the largest body needs. A second user at the same
// time gets one of its own.
// Thread-safety: from any thread.
#pragma once

class KwBuffer;

class KwPackScratch {
public:
    // Room for `size` bytes; GetData is null when memory is out.
    explicit KwPackScratch(unsigned int size);
    ~KwPackScratch();
    KwPackScratch(const KwPackScratch&) = delete;
    KwPackScratch& operator=(const KwPackScratch&) = delete;

    unsigned char* GetData() const;

private:
    KwBuffer* buffer_;
};
