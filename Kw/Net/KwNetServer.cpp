#include "Kw/Net/KwNetServer.h"

#include <utility>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Net/KwNetConnect.h"
#include "Kw/Net/KwNetServerWork.h"

namespace {

constexpr std::uint64_t kAcceptPause = 100;  // ms after a failure: mostly the process is out of descriptors
constexpr char kPlace[] = "net server";

CNetConnect* ShellOf(KwNetLink& link) {
    return static_cast<CNetConnect*>(&link.GetShell());
}

}  // namespace

ICBNetServer::~ICBNetServer() = default;
void ICBNetServer::OnConnect(CNetConnect*) {}
void ICBNetServer::OnClose(CNetConnect*, KwNetClose) {}
void ICBNetServer::OnError(CNetConnect*, const char* text) {
    KwLogSystem::Push("net server: %s", text);
}
void ICBNetServer::OnDrained(CNetConnect*) {}
void ICBNetServer::OnPassEnd() {}

CNetServer::CNetServer() = default;
CNetServer::~CNetServer() = default;

unsigned short CNetServer::GetPort() const {
    return work_->GetPort();
}

void CNetServer::Stop(unsigned int deadlineMs) {
    work_->Stop(deadlineMs);
}

bool CNetServer::IsStopped() const {
    return work_->IsStopped();
}

SNetCounters CNetServer::GetCounters() const {
    SNetCounters counters;
    work_->counts.AddTo(counters);
    return counters;
}

// Behind it ---------------------------------------------------------------------------------------------------

KwNetServerWork::KwNetServerWork(KwNetWork& net, CNetServer& shell, const SNetServerSettings& settings,
                                 ICBNetServer* handler)
    : net_(net),
      shell_(shell),
      settings_(settings),
      handler_(handler),
      loop_(net.NextLoop()),
      listener_(loop_.GetIo(), this) {
    limits = &settings_.limits;
    openMs = settings_.limits.stalledMs;
    wantsPassEnd = true;
}

KwNetServerWork::~KwNetServerWork() = default;

bool KwNetServerWork::Listen(std::string& error) {
    if (settings_.tls.on) {
        tlsContext_ = KwNetTlsContext::Make(settings_.tls, true, error);
        if (tlsContext_ == nullptr) return false;
        tls = tlsContext_.get();
    }
    std::error_code code;
    if (!listener_.Open(settings_.address, settings_.port, settings_.backlog, code)) {
        error = code.message();
        return false;
    }
    port_ = listener_.GetPort();
    net_.NeedTicks(settings_.limits);
    ++net_.live;
    shell_.AddRef();  // until it has stopped
    KwNetPost(loop_, shell_, [this] {
        if (closed_) return;
        loop_.AddTimed(this);
        listener_.Accept();
    });
    return true;
}

std::unique_ptr<KwNetStream> KwNetServerWork::MakeStream() {
    nextLoop_ = &net_.NextLoop();
    return std::make_unique<KwNetStream>(nextLoop_->GetIo());
}

void KwNetServerWork::OnAccepted(const std::error_code& error, std::unique_ptr<KwNetStream> stream) {
    if (closed_) {
        CheckStopped();
        return;
    }
    if (error) {
        KwNetCounts::Add(counts.connectErrors, 1);
        acceptAt_ = loop_.Now() + kAcceptPause;
        shell_.AddRef();
        loop_.CallHost([this, text = "cannot accept: " + error.message()] {
            KwNetCallback(counts, kPlace, [&] { handler_->OnError(nullptr, text.c_str()); });
            shell_.Release();
        });
        return;
    }
    KwNetLoop& loop = *nextLoop_;
    CNetConnect* const connect = links_ < settings_.maxConnections ? new CNetConnect : nullptr;
    if (connect == nullptr) {
        KwNetCounts::Add(counts.connectionsRefused, 1);
        stream->Close(false);
        stream.reset();
    } else {
        connect->link_ = std::make_unique<KwNetLink>(loop, *this, *connect);
        ++links_;
        if (&loop == &loop_) {
            connect->link_->Adopt(std::move(stream));
        } else {
            // std::function wants what can be copied.
            auto shared = std::make_shared<std::unique_ptr<KwNetStream>>(std::move(stream));
            loop.Post([connect, shared] { connect->link_->Adopt(std::move(*shared)); });
        }
    }
    listener_.Accept();
}

void KwNetServerWork::OnTick(std::uint64_t now) {
    if (acceptAt_ == 0 || now < acceptAt_ || closed_) return;
    acceptAt_ = 0;
    listener_.Accept();
}

void KwNetServerWork::Stop(unsigned int ms) {
    const std::lock_guard<std::mutex> guard(endMutex_);
    if (stopped_) return;
    KwNetPost(loop_, shell_, [this, ms] {
        if (!closed_) {
            closed_ = true;
            loop_.RemoveTimed(this);
            listener_.Close();
        }
        // No connection is added behind this. Each loop asks those that it has.
        for (const std::unique_ptr<KwNetLoop>& loop : net_.loops) {
            KwNetPost(*loop, shell_, [this, ms, at = loop.get()] {
                const std::vector<KwNetLink*> links = at->GetLinks();
                for (KwNetLink* link : links) {
                    if (&link->GetHost() == this) link->Stop(ms);
                }
            });
        }
        CheckStopped();
    });
}

void KwNetServerWork::CheckStopped() {
    if (!closed_ || stopped_ || listener_.GetPending() != 0 || links_ != 0) return;
    {
        const std::lock_guard<std::mutex> guard(endMutex_);
        stopped_ = true;
    }
    --net_.live;
    shell_.Release();
}

void KwNetServerWork::OnOpened(KwNetLink& link) {
    KwNetCallback(counts, kPlace, [&] { handler_->OnConnect(ShellOf(link)); });
}

void KwNetServerWork::OnPacket(KwNetLink& link, const unsigned char* packet, unsigned int size) {
    KwNetCallback(counts, kPlace, [&] { handler_->OnPacket(ShellOf(link), packet, size); });
}

void KwNetServerWork::OnClosed(KwNetLink& link, KwNetClose reason, bool wasOpen, const std::string& detail) {
    KwNetCallback(counts, kPlace, [&] {
        if (wasOpen) {
            handler_->OnClose(ShellOf(link), reason);
        } else if (reason != KwNetClose::kLocal) {
            const std::string text = ShellOf(link)->GetPeerAddress() + ": " + Kw_NetCloseText(reason) + ": " + detail;
            handler_->OnError(nullptr, text.c_str());
        }
    });
}

void KwNetServerWork::OnQueueFull(KwNetLink& link) {
    KwNetCallback(counts, kPlace, [&] { handler_->OnError(ShellOf(link), Kw_NetCloseText(KwNetClose::kQueueFull)); });
}

void KwNetServerWork::OnDrained(KwNetLink& link) {
    KwNetCallback(counts, kPlace, [&] { handler_->OnDrained(ShellOf(link)); });
}

void KwNetServerWork::OnPassEnd() {
    KwNetCallback(counts, kPlace, [&] { handler_->OnPassEnd(); });
}

void KwNetServerWork::OnRetired(KwNetLink& link) {
    ShellOf(link)->Release();
    // The last one may be the server's end, which is looked at where it accepts; until then it must not come.
    const auto check = [this] {
        --links_;
        CheckStopped();
    };
    if (loop_.IsMine()) {
        check();
    } else {
        KwNetPost(loop_, shell_, check);
    }
}
