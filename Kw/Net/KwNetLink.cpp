#include "Kw/Net/KwNetLink.h"

#include <algorithm>
#include <utility>

#include "Kw/Net/KwNetLoop.h"
#include "Kw/Net/KwNetTls.h"

namespace {

constexpr std::size_t kCipherSize = 32768;
constexpr std::uint64_t kNever = ~std::uint64_t{0};

}  // namespace

KwNetLink::KwNetLink(KwNetLoop& loop, KwNetLinkHost& host, CNetSocketIO& shell)
    : loop_(loop), host_(host), shell_(shell), frames_(host.limits->maxPacket) {}

KwNetLink::~KwNetLink() = default;

// Beginning ---------------------------------------------------------------------------------------------------

void KwNetLink::Begin(State state) {
    stream_->SetOwner(this);
    state_ = state;
    reading_ = writing_ = handed_ = paused_ = ended_ = stopping_ = retired_ = held_ = false;
    bad_ = cut_ = toldOpen_ = told_ = false;
    reason_ = KwNetClose::kLocal;
    detail_.clear();
    since_ = lastIo_ = lastSend_ = loop_.Now();
    partialSince_ = 0;
    closeBy_ = kNever;
    frames_.Clear();
    queue_.clear();
    sending_.clear();
    sent_ = 0;
    packetsQueued_ = 0;
    tell_ = 0;
    full_ = false;
    closeAsked_ = kNone;
    ownQueued_ = 0;
    loop_.AddLink(this);
}

void KwNetLink::Adopt(std::unique_ptr<KwNetStream> stream) {
    stream_ = std::move(stream);
    Begin(State::kOpening);
    OnOpened({});
}

void KwNetLink::Connect(const std::string& address, unsigned short port) {
    stream_ = std::make_unique<KwNetStream>(loop_.GetIo());
    Begin(State::kOpening);
    stream_->Connect(address, port);
}

void KwNetLink::OnOpened(const std::error_code& error) {
    if (state_ == State::kClosed) {
        Retire();
        return;
    }
    if (error) {
        Finish(KwNetClose::kConnect, error.message());
        return;
    }
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        stream_->GetPeer(peer_, peerPort_);
        localPort_ = stream_->GetLocalPort();
    }
    if (host_.tls == nullptr) {
        Established();
        return;
    }
    tls_ = std::make_unique<KwNetTls>(*host_.tls);
    cipher_.resize(kCipherSize);
    state_ = State::kHandshake;
    Handshake();
}

void KwNetLink::Handshake() {
    std::string error;
    const KwNetTls::Result result = tls_->Handshake(error);
    Flush();  // a failure is told to the peer
    if (state_ != State::kHandshake) return;
    if (result == KwNetTls::Result::kFailed) {
        Finish(KwNetClose::kTls, error);
    } else if (result == KwNetTls::Result::kDone) {
        Established();
    } else if (ended_) {
        Finish(KwNetClose::kTls, "the peer left the handshake");
    } else {
        StartRead();
    }
}

void KwNetLink::Established() {
    state_ = State::kOpen;
    lastIo_ = loop_.Now();
    KwNetCounts::Add(host_.counts.connections, 1);
    KwNetCounts::Add(host_.counts.connectionsTotal, 1);
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        sendable_ = true;
    }
    TellHost(kTellOpen);  // reading begins when the host knows
}

// Reading and handing over ------------------------------------------------------------------------------------

void KwNetLink::StartRead() {
    if (reading_ || ended_) return;
    reading_ = true;
    if (tls_ != nullptr) {
        stream_->Read(cipher_.data(), cipher_.size());
    } else {
        std::size_t size = 0;
        unsigned char* const room = frames_.Room(size);
        stream_->Read(room, size);
    }
}

void KwNetLink::OnRead(const std::error_code& error, std::size_t size) {
    if (handed_ && state_ != State::kClosed) {
        held_ = true;
        heldError_ = error;
        heldSize_ = size;
        return;
    }
    reading_ = false;
    if (state_ == State::kClosed) {
        Retire();
        return;
    }
    if (error && !KwNetIsEnd(error)) {
        Finish(KwNetClose::kLost, error.message());
        return;
    }
    ended_ = ended_ || error;
    if (!error) {
        lastIo_ = loop_.Now();
        KwNetCounts::Add(host_.counts.bytesIn, size);
        KwNetCounts::Add(host_.counts.reads, 1);
    }
    if (state_ == State::kClosing || state_ == State::kLingering) {
        frames_.Clear();
        if (ended_ && state_ == State::kLingering) {
            Finish(reason_, detail_);
        } else if (state_ == State::kLingering) {
            StartRead();
        }
        return;
    }
    if (tls_ != nullptr) {
        if (!error) tls_->Feed(cipher_.data(), size);
        if (state_ == State::kHandshake) {
            Handshake();
            return;
        }
    } else if (!error) {
        frames_.Filled(size);
    }
    Continue();
}

// Moves what TLS has to the frames; false when the connection ended of it.
bool KwNetLink::PullTls() {
    while (!frames_.HasPacket()) {
        std::size_t size = 0, got = 0;
        unsigned char* const room = frames_.Room(size);
        std::string error;
        const KwNetTls::Result result = tls_->Read(room, size, got, error);
        if (result == KwNetTls::Result::kMore) break;
        if (result == KwNetTls::Result::kFailed) {
            if (error.empty()) {
                ended_ = true;  // the peer said so
                break;
            }
            Finish(KwNetClose::kTls, error);
            return false;
        }
        frames_.Filled(got);
    }
    if (tls_->HasOutput()) Dirty();  // TLS answers, too
    return true;
}

// What comes next, on the loop's thread, whenever the link has come to rest.
void KwNetLink::Continue() {
    if (handed_) return;
    if (held_) {
        held_ = false;
        if (state_ != State::kClosed) {
            OnRead(heldError_, heldSize_);
            return;
        }
    }
    if (tell_.load(std::memory_order_relaxed) != 0) Ready();
    if (state_ == State::kClosed) {
        Retire();
        return;
    }
    if (state_ == State::kLingering && !reading_) {
        frames_.Clear();
        StartRead();
    }
    if (state_ != State::kOpen || inReady_) return;
    if (bad_) {
        BeginClose(KwNetClose::kFrame, "a length that no packet can have");  // behind the answers before it
        return;
    }
    // A read under way fills the room behind what is there.
    if (tls_ != nullptr && !reading_ && !PullTls()) return;
    if (frames_.HasPacket()) {
        if (GetQueued() > PauseAt()) {
            Flush();
            if (state_ != State::kOpen) return;
            paused_ = GetQueued() > PauseAt() / 2 && writing_;
        }
        if (!paused_) Ready();
        return;
    }
    if (cut_ || frames_.GetRest() == 0) partialSince_ = 0;
    cut_ = false;
    if (frames_.GetRest() != 0 && partialSince_ == 0) partialSince_ = loop_.Now();
    if (stopping_ || ended_) {
        BeginClose(stopping_ ? KwNetClose::kLocal : KwNetClose::kPeer);
    } else {
        StartRead();
    }
}

unsigned int KwNetLink::PauseAt() const {
    constexpr unsigned int kUnlimited = 4 << 20;
    return (host_.limits->queueBytes == 0 ? kUnlimited : host_.limits->queueBytes) / 2;
}

unsigned int KwNetLink::Deliver(unsigned int budget) {
    if (loop_.GetPump() == nullptr) inReady_ = false;
    unsigned int done = 0;
    const unsigned int tell = tell_.exchange(0, std::memory_order_acquire);
    if ((tell & kTellOpen) != 0) {
        toldOpen_ = true;
        host_.OnOpened(*this);
        ++done;
    }
    if ((tell & kTellFull) != 0) host_.OnQueueFull(*this);
    if ((tell & kTellDrained) != 0) host_.OnDrained(*this);
    if ((tell & kTellClose) != 0) {
        told_ = true;
        host_.OnClosed(*this, reason_, toldOpen_, detail_);
        return done + 1;
    }
    if (!toldOpen_) return done;
    unsigned int packets = 0;
    const std::size_t pauseAt = PauseAt();
    while (done < budget && !bad_ && closeAsked_.load(std::memory_order_relaxed) == kNone && GetQueued() <= pauseAt) {
        const unsigned char* packet = nullptr;
        unsigned int size = 0;
        const KwNetFrame::Cut cut = frames_.Next(packet, size);
        if (cut == KwNetFrame::Cut::kMore) break;
        if (cut == KwNetFrame::Cut::kBad) {
            bad_ = true;
            break;
        }
        ++packets;
        ++done;
        host_.OnPacket(*this, packet, size);
    }
    if (packets != 0) {
        cut_ = true;
        KwNetCounts::Add(host_.counts.packetsIn, packets);
        if (host_.wantsPassEnd) {
            if (loop_.GetPump() != nullptr) {
                loop_.GetPump()->AddTouched(&host_);
            } else {
                loop_.AddTouched(&host_);
            }
        }
    }
    return done;
}

void KwNetLink::OnDelivered() {
    Continue();
}

void KwNetLink::Ready() {
    if (inReady_ || handed_) return;
    inReady_ = true;
    loop_.AddReady(this);
}

void KwNetLink::TellHost(unsigned int what) {
    tell_.fetch_or(what, std::memory_order_release);
    if (loop_.IsMine()) {
        Ready();
    } else {
        PostOpen();
    }
}

// Time --------------------------------------------------------------------------------------------------------

void KwNetLink::OnTick(std::uint64_t now) {
    const auto past = [now](std::uint64_t since, unsigned int limit) {
        return limit != 0 && now > since && now - since > limit;
    };
    const SNetLimits& limits = *host_.limits;
    switch (state_) {
        case State::kOpening:
        case State::kHandshake:
            if (past(since_, host_.openMs)) {
                Finish(KwNetClose::kStalled,
                       state_ == State::kOpening ? "no connection in time" : "no handshake in time");
            }
            break;
        case State::kOpen:
            if (writing_ && past(lastSend_, limits.sendStalledMs)) {
                Finish(KwNetClose::kStalled, "the peer does not read");
            } else if (now > closeBy_) {
                Finish(reason_, detail_);
            } else if (handed_ || inReady_) {
                // The host's time is not the peer's.
            } else if (reading_ && partialSince_ != 0 && past(partialSince_, limits.stalledMs)) {
                Finish(KwNetClose::kStalled, "a packet that does not end");
            } else if (reading_ && !writing_ && past(lastIo_, limits.idleMs)) {
                BeginClose(KwNetClose::kIdle);
            }
            break;
        case State::kClosing:
        case State::kLingering:
            if (now > closeBy_) Finish(reason_, detail_);
            break;
        default: break;
    }
}

// Ending ------------------------------------------------------------------------------------------------------

void KwNetLink::Stop(unsigned int ms) {
    if (state_ == State::kClosed || stream_ == nullptr) return;
    stopping_ = true;
    closeBy_ = std::min(closeBy_, loop_.Now() + ms);
    if (state_ == State::kOpening || state_ == State::kHandshake || ms == 0) {
        Finish(KwNetClose::kLocal);
    } else if (state_ == State::kOpen && !inReady_ && !paused_) {
        Continue();
    }
}

void KwNetLink::StopSending() {
    const std::lock_guard<std::mutex> guard(mutex_);
    sendable_ = false;
}

void KwNetLink::BeginClose(KwNetClose reason, const std::string& detail) {
    if (state_ != State::kOpen) return;
    reason_ = reason;
    detail_ = detail;
    StopSending();
    MergePosted();
    state_ = State::kClosing;
    const unsigned int ms = host_.limits->closeMs;
    if (ms != 0) closeBy_ = std::min(closeBy_, loop_.Now() + ms);
    if (tls_ != nullptr) {
        FillSending();
        tls_->Close();
    }
    Flush();
}

// All is sent. Bytes of the peer that nobody reads would make the system reset the connection and the peer lose what
// it has not read yet: they are read away until the peer has closed, too.
void KwNetLink::EndSend() {
    if (ended_) {
        Finish(reason_, detail_);
        return;
    }
    state_ = State::kLingering;
    stream_->Shutdown();
    Continue();
}

void KwNetLink::Finish(KwNetClose reason, const std::string& detail) {
    if (state_ == State::kClosed || state_ == State::kIdle) return;
    const bool wasOpen = state_ != State::kOpening && state_ != State::kHandshake;
    const bool reset = (state_ == State::kOpen || state_ == State::kClosing) && !ended_;
    reason_ = reason;
    detail_ = detail;
    StopSending();
    state_ = State::kClosed;
    CountClose(reason);
    if (wasOpen) host_.counts.connections.fetch_sub(1, std::memory_order_relaxed);
    stream_->Close(reset);
    TellHost(kTellClose);
}

void KwNetLink::CountClose(KwNetClose reason) {
    KwNetCounts& counts = host_.counts;
    switch (reason) {
        case KwNetClose::kFrame: KwNetCounts::Add(counts.frameErrors, 1); break;
        case KwNetClose::kStalled:
        case KwNetClose::kIdle: KwNetCounts::Add(counts.timeouts, 1); break;
        case KwNetClose::kLost: KwNetCounts::Add(counts.lost, 1); break;
        case KwNetClose::kTls: KwNetCounts::Add(counts.tlsFailures, 1); break;
        case KwNetClose::kConnect: KwNetCounts::Add(counts.connectErrors, 1); break;
        default: break;
    }
}

void KwNetLink::Retire() {
    if (retired_ || state_ != State::kClosed || handed_ || inReady_ || inDirty_ || !told_) return;
    if (stream_->GetPending() != 0) return;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (inPosted_ || inPump_) return;
    }
    retired_ = true;
    loop_.AddRetired(this);
}

void KwNetLink::OnRetire() {
    loop_.RemoveLink(this);
    stream_.reset();
    tls_.reset();
    state_ = State::kIdle;
    MergePosted();
    queue_ = {};
    sending_ = {};
    cipher_ = {};
    ownQueued_ = 0;
    sent_ = 0;
    host_.OnRetired(*this);
}

void KwNetLink::GetPeer(std::string& address, unsigned short& port, unsigned short& local) const {
    const std::lock_guard<std::mutex> guard(mutex_);
    address = peer_;
    port = peerPort_;
    local = localPort_;
}

void KwNetCounts::AddTo(SNetCounters& to) const {
    to.connections += connections;
    to.connectionsTotal += connectionsTotal;
    to.connectionsRefused += connectionsRefused;
    to.connectErrors += connectErrors;
    to.reconnects += reconnects;
    to.packetsIn += packetsIn;
    to.packetsOut += packetsOut;
    to.bytesIn += bytesIn;
    to.bytesOut += bytesOut;
    to.reads += reads;
    to.writes += writes;
    to.queueDrops += queueDrops;
    to.frameErrors += frameErrors;
    to.timeouts += timeouts;
    to.lost += lost;
    to.tlsFailures += tlsFailures;
    to.exceptions += exceptions;
}
