#include "Kw/Net/KwNetClient.h"

#include <algorithm>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Net/KwNetClientWork.h"

namespace {

constexpr char kPlace[] = "net client";

}  // namespace

ICBNetClient::~ICBNetClient() = default;
void ICBNetClient::OnConnect(CNetClient*) {}
void ICBNetClient::OnClose(CNetClient*, KwNetClose) {}
void ICBNetClient::OnError(CNetClient*, const char* text) {
    KwLogSystem::Push("net client: %s", text);
}
void ICBNetClient::OnDrained(CNetClient*) {}

CNetClient::CNetClient() = default;
CNetClient::~CNetClient() = default;

bool CNetClient::Send(const void* data, unsigned int size) {
    return SendBytes(data, size);
}

void CNetClient::Close() {
    work_->Stop(~0u);
}

void CNetClient::Abort() {
    work_->Stop(0);
}

bool CNetClient::IsDone() const {
    return work_->IsDone();
}

SNetCounters CNetClient::GetCounters() const {
    SNetCounters counters;
    work_->counts.AddTo(counters);
    return counters;
}

// Behind it ---------------------------------------------------------------------------------------------------

KwNetClientWork::KwNetClientWork(KwNetWork& net, CNetClient& shell, const SNetClientSettings& settings,
                                 ICBNetClient* handler)
    : net_(net),
      shell_(shell),
      settings_(settings),
      handler_(handler),
      loop_(net.NextLoop()),
      random_(std::random_device{}()) {
    limits = &settings_.limits;
    openMs = settings_.connectMs;
    pauseMs_ = std::max(settings_.firstPauseMs, 1u);
}

KwNetClientWork::~KwNetClientWork() = default;

bool KwNetClientWork::Start(std::string& error) {
    if (settings_.tls.on) {
        SNetTls settings = settings_.tls;
        if (settings.hostName.empty()) settings.hostName = settings_.address;
        tlsContext_ = KwNetTlsContext::Make(settings, false, error);
        if (tlsContext_ == nullptr) return false;
        tls = tlsContext_.get();
    }
    net_.NeedTicks(settings_.limits);
    loop_.NeedTick(settings_.connectMs);
    if (settings_.reconnect) loop_.NeedTick(settings_.firstPauseMs);
    shell_.link_ = std::make_unique<KwNetLink>(loop_, *this, shell_);
    ++net_.live;
    shell_.AddRef();  // until it is done
    KwNetPost(loop_, shell_, [this] {
        if (done_) return;
        loop_.AddTimed(this);
        Attempt();
    });
    return true;
}

void KwNetClientWork::Attempt() {
    attemptAt_ = 0;
    opened_ = false;
    shell_.link_->Connect(settings_.address, settings_.port);
}

void KwNetClientWork::OnTick(std::uint64_t now) {
    if (attemptAt_ == 0 || now < attemptAt_ || stopping_) return;
    KwNetCounts::Add(counts.reconnects, 1);
    Attempt();
}

void KwNetClientWork::Stop(unsigned int ms) {
    const std::lock_guard<std::mutex> guard(endMutex_);
    if (done_) return;
    stopping_ = true;
    KwNetPost(loop_, shell_, [this, ms] {
        if (done_) return;
        if (shell_.link_->IsAtWork()) {
            shell_.link_->Stop(ms == ~0u ? settings_.limits.closeMs : ms);
        } else {
            Done();
        }
    });
}

void KwNetClientWork::Done() {
    {
        const std::lock_guard<std::mutex> guard(endMutex_);
        if (done_) return;
        done_ = true;
    }
    loop_.RemoveTimed(this);
    --net_.live;
    shell_.Release();
}

void KwNetClientWork::OnRetired(KwNetLink&) {
    if (stopping_ || !settings_.reconnect) {
        Done();
        return;
    }
    const unsigned int longest = std::max(settings_.longestPauseMs, settings_.firstPauseMs);
    if (opened_ && loop_.Now() - connectedAt_ >= longest) pauseMs_ = std::max(settings_.firstPauseMs, 1u);
    const unsigned int pause = pauseMs_ - static_cast<unsigned int>(random_() % (pauseMs_ / 2 + 1));
    attemptAt_ = loop_.Now() + pause;
    pauseMs_ = std::max(std::min(pauseMs_ * 2, longest), 1u);
}

void KwNetClientWork::OnOpened(KwNetLink&) {
    opened_ = true;
    connectedAt_ = loop_.Now();
    KwNetCallback(counts, kPlace, [&] { handler_->OnConnect(&shell_); });
}

void KwNetClientWork::OnPacket(KwNetLink&, const unsigned char* packet, unsigned int size) {
    KwNetCallback(counts, kPlace, [&] { handler_->OnPacket(&shell_, packet, size); });
}

void KwNetClientWork::OnClosed(KwNetLink&, KwNetClose reason, bool wasOpen, const std::string& detail) {
    if (!wasOpen && reason != KwNetClose::kLocal) {
        const std::string text = settings_.address + " " + std::to_string(settings_.port) + ": " + detail;
        KwNetCallback(counts, kPlace, [&] { handler_->OnError(&shell_, text.c_str()); });
    }
    if (wasOpen || !settings_.reconnect) KwNetCallback(counts, kPlace, [&] { handler_->OnClose(&shell_, reason); });
}

void KwNetClientWork::OnQueueFull(KwNetLink&) {
    KwNetCallback(counts, kPlace, [&] { handler_->OnError(&shell_, Kw_NetCloseText(KwNetClose::kQueueFull)); });
}

void KwNetClientWork::OnDrained(KwNetLink&) {
    KwNetCallback(counts, kPlace, [&] { handler_->OnDrained(&shell_); });
}
