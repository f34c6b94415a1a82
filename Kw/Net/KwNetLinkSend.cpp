// The sending half of KwNetLink: the queue, its limit, and what other threads ask for.
#include <algorithm>

#include "Kw/Net/KwNetLink.h"
#include "Kw/Net/KwNetLoop.h"
#include "Kw/Net/KwNetTls.h"

namespace {

constexpr std::size_t kKept = 256 * 1024;  // capacity that an empty queue keeps

void Append(std::vector<unsigned char>& to, const void* data, unsigned int size) {
    const auto* const bytes = static_cast<const unsigned char*>(data);
    to.insert(to.end(), bytes, bytes + size);
}

// Empties a queue; one that grew large gives its memory back.
void Empty(std::vector<unsigned char>& queue) {
    queue.clear();
    if (queue.capacity() > kKept) queue.shrink_to_fit();
}

}  // namespace

bool KwNetLink::Send(const void* data, unsigned int size) {
    if (data == nullptr || size == 0 || !IsOpen()) return false;
    const std::size_t limit = host_.limits->queueBytes;
    if (loop_.IsMine()) {
        if (limit != 0 && GetQueued() + size > limit) return Overflow(size);
        Append(queue_, data, size);
        ++packetsQueued_;
        ownQueued_.store(ownQueued_.load(std::memory_order_relaxed) + size, std::memory_order_relaxed);
        Dirty();
        return true;
    }
    KwNetPump* const pump = loop_.GetPump();
    bool post = false, full = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (!sendable_) return false;
        full = limit != 0 && GetQueued() + size > limit;
        if (!full) {
            Append(posted_, data, size);
            postedQueued_.store(posted_.size(), std::memory_order_relaxed);
            ++packetsPosted_;
            if (pump != nullptr && pump->IsMine()) {
                // Goes out with all others of this pass.
                if (!inPump_ && !inPosted_) {
                    inPump_ = true;
                    pump->AddDirty(this);
                }
            } else {
                post = !inPosted_;
                inPosted_ = true;
            }
        }
    }
    if (full) return Overflow(size);
    if (post) loop_.PostLink(this);
    return true;
}

bool KwNetLink::Overflow(unsigned int) {
    KwNetCounts::Add(host_.counts.queueDrops, 1);
    if (!host_.limits->tellQueueFull) {
        AskClose(kFull);
    } else if (!full_.exchange(true)) {
        TellHost(kTellFull);
    }
    return false;
}

void KwNetLink::Close(bool now) {
    if (IsOpen()) AskClose(now ? kNow : kInOrder);
}

void KwNetLink::AskClose(CloseAsked how) {
    int before = closeAsked_.load();
    while (before < how && !closeAsked_.compare_exchange_weak(before, how)) {
    }
    if (loop_.IsMine()) {
        Dirty();
    } else {
        PostOpen();
    }
}

void KwNetLink::Dirty() {
    if (inDirty_) return;
    inDirty_ = true;
    loop_.AddDirty(this);
}

// From other threads: while it is open its loop is there, and a link in the loop's list is waited for.
void KwNetLink::PostOpen() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (!sendable_ || inPosted_) return;
        inPosted_ = true;
    }
    loop_.PostLink(this);
}

// The pump's promise, which also holds the link.
void KwNetLink::PostPending() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        inPump_ = false;
        if (inPosted_) return;
        inPosted_ = true;
    }
    loop_.PostLink(this);
}

void KwNetLink::PostReturn() {
    bool post = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        returned_ = true;
        post = !inPosted_;
        inPosted_ = true;
    }
    if (post) loop_.PostLink(this);
}

void KwNetLink::MergePosted() {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (posted_.empty()) return;
    if (queue_.empty()) {
        queue_.swap(posted_);
    } else {
        queue_.insert(queue_.end(), posted_.begin(), posted_.end());
    }
    ownQueued_.store(ownQueued_.load(std::memory_order_relaxed) + postedQueued_.load(std::memory_order_relaxed),
                     std::memory_order_relaxed);
    postedQueued_.store(0, std::memory_order_relaxed);
    packetsQueued_ += packetsPosted_;
    packetsPosted_ = 0;
    Empty(posted_);
}

void KwNetLink::OnPosted() {
    bool returned = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        inPosted_ = false;
        returned = returned_;
        returned_ = false;
    }
    MergePosted();
    if (returned) {
        handed_ = false;
        Continue();
    }
    if (tell_.load(std::memory_order_relaxed) != 0) Ready();
    if (!queue_.empty() || closeAsked_.load(std::memory_order_relaxed) != kNone) Dirty();
    Retire();
}

void KwNetLink::OnDirty() {
    inDirty_ = false;
    switch (closeAsked_.load(std::memory_order_relaxed)) {
        case kFull: Finish(KwNetClose::kQueueFull, "more waits to be sent than the limit"); break;
        case kNow: Finish(KwNetClose::kLocal); break;
        case kInOrder: BeginClose(KwNetClose::kLocal); break;
        default: break;
    }
    Flush();
    Retire();
}

void KwNetLink::FillSending() {
    if (tls_ != nullptr) {
        const bool whole = queue_.empty() || tls_->Write(queue_.data(), queue_.size());
        Empty(queue_);
        tls_->Take(sending_);
        if (!whole) Finish(KwNetClose::kTls, "what is to be sent cannot be encrypted");
    } else {
        sending_.swap(queue_);
    }
    if (packetsQueued_ != 0) KwNetCounts::Add(host_.counts.packetsOut, packetsQueued_);
    packetsQueued_ = 0;
}

// Sends what the system takes; the rest waits for it.
void KwNetLink::Flush() {
    if (state_ == State::kClosed || state_ == State::kIdle || state_ == State::kOpening) return;
    while (!writing_) {
        if (sent_ == sending_.size()) {
            Empty(sending_);
            sent_ = 0;
            FillSending();
            if (state_ == State::kClosed) return;
            if (sending_.empty()) break;
        }
        std::error_code error;
        const std::size_t size = stream_->TryWrite(sending_.data() + sent_, sending_.size() - sent_, error);
        if (error) {
            Finish(KwNetClose::kLost, error.message());
            return;
        }
        KwNetCounts::Add(host_.counts.writes, 1);
        lastSend_ = loop_.Now();
        if (size != 0) {
            lastIo_ = lastSend_;
            KwNetCounts::Add(host_.counts.bytesOut, size);
        }
        sent_ += size;
        if (sent_ < sending_.size()) {
            writing_ = true;
            stream_->Write(sending_.data() + sent_, sending_.size() - sent_);
        }
    }
    UpdateQueued();
    if (state_ == State::kClosing && !writing_) EndSend();
}

void KwNetLink::UpdateQueued() {
    const std::size_t queued = queue_.size() + sending_.size() - sent_;
    ownQueued_.store(queued, std::memory_order_relaxed);
    if (full_.load(std::memory_order_relaxed) && queued <= host_.limits->queueBytes / 2) {
        full_ = false;
        TellHost(kTellDrained);
    }
    if (paused_ && queued <= PauseAt() / 2) {
        paused_ = false;
        Continue();
    }
}

void KwNetLink::OnWritten(const std::error_code& error, std::size_t size) {
    writing_ = false;
    if (state_ == State::kClosed) {
        Retire();
        return;
    }
    if (error) {
        Finish(KwNetClose::kLost, error.message());
        return;
    }
    lastSend_ = lastIo_ = loop_.Now();
    KwNetCounts::Add(host_.counts.bytesOut, size);
    sent_ += size;
    Flush();
}
