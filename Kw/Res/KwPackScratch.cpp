#include "Kw/Res/KwPackScratch.h"

#include <algorithm>
#include <atomic>

#include "Kw/KwBuffer.h"
#include "Kw/KwModuleEngine.h"

namespace {

constexpr unsigned int kLeast = 1u << 20;

constinit std::atomic<KwBuffer*> g_kept{nullptr};
constinit std::atomic<bool> g_posted{false};

// Frees the kept buffer at the library's release.
class ScratchModule : public KwModuleEngine {
public:
    KW_TRACKED_NEW
    void EndRelease() override {
        if (KwBuffer* kept = g_kept.exchange(nullptr)) kept->Release();
        g_posted = false;
        delete this;
    }
};

}  // namespace

KwPackScratch::KwPackScratch(unsigned int size) : buffer_(g_kept.exchange(nullptr)) {
    if (buffer_ == nullptr) buffer_ = new KwBuffer;
    if (buffer_ != nullptr && buffer_->GetSize() < size) buffer_->Alloc(std::max(size, kLeast));
}

KwPackScratch::~KwPackScratch() {
    if (buffer_ == nullptr) return;
    if (!g_posted.exchange(true)) {
        ScratchModule* module = new ScratchModule;
        if (module == nullptr) {
            g_posted = false;
            buffer_->Release();
            return;
        }
        PostModuleEngine(module);
    }
    // Of two the one that came back last stays.
    if (KwBuffer* other = g_kept.exchange(buffer_)) other->Release();
}

unsigned char* KwPackScratch::GetData() const {
    return buffer_ == nullptr ? nullptr : buffer_->GetData();
}
