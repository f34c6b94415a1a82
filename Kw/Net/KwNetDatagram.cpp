#include "Kw/Net/KwNetDatagram.h"

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Net/KwNetDatagramWork.h"

namespace {

constexpr std::size_t kMostBytes = 65507;  // of one datagram
constexpr std::size_t kBatch = 64;         // datagrams that one pass takes
constexpr char kPlace[] = "net datagram";

}  // namespace

ICBNetDatagram::~ICBNetDatagram() = default;
void ICBNetDatagram::OnError(CNetDatagram*, const char* text) {
    KwLogSystem::Push("net datagram: %s", text);
}

CNetDatagram::CNetDatagram() = default;
CNetDatagram::~CNetDatagram() = default;

bool CNetDatagram::Send(const void* data, unsigned int size) {
    return work_->HasPeer() && work_->Send(work_->GetPeer(), data, size);
}

bool CNetDatagram::SendTo(const SNetAddress& to, const void* data, unsigned int size) {
    return work_->Send(to, data, size);
}

unsigned short CNetDatagram::GetPort() const {
    return work_->GetPort();
}

void CNetDatagram::Close() {
    work_->Close();
}

bool CNetDatagram::IsClosed() const {
    return work_->IsClosed();
}

SNetCounters CNetDatagram::GetCounters() const {
    SNetCounters counters;
    work_->counts.AddTo(counters);
    return counters;
}

// Behind it ---------------------------------------------------------------------------------------------------

KwNetDatagramWork::KwNetDatagramWork(KwNetWork& net, CNetDatagram& shell, const SNetDatagramSettings& settings,
                                     ICBNetDatagram* handler)
    : net_(net),
      shell_(shell),
      settings_(settings),
      handler_(handler),
      loop_(net.NextLoop()),
      io_(loop_.GetIo(), this) {}

KwNetDatagramWork::~KwNetDatagramWork() = default;

bool KwNetDatagramWork::Open(std::string& error) {
    hasPeer_ = !settings_.peerAddress.empty();
    if (hasPeer_ && !peer_.Set(settings_.peerAddress, settings_.peerPort)) {
        error = "the peer's address is not numeric";
        return false;
    }
    std::error_code code;
    if (!io_.Open(settings_, code)) {
        error = code.message();
        return false;
    }
    room_.resize(65536);
    ++net_.live;
    shell_.AddRef();  // until it is closed
    KwNetPost(loop_, shell_, [this] {
        if (!closed_) io_.Receive(room_.data(), room_.size());
    });
    return true;
}

bool KwNetDatagramWork::Send(const SNetAddress& to, const void* data, unsigned int size) {
    if (size > kMostBytes || (data == nullptr && size != 0)) return false;
    std::error_code error;
    bool isFull = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (closed_ || done_) return false;
        if (!io_.TrySend(to, data, size, isFull, error)) {
            KwNetCounts::Add(isFull ? counts.queueDrops : counts.lost, 1);
            return false;
        }
    }
    KwNetCounts::Add(counts.packetsOut, 1);
    KwNetCounts::Add(counts.bytesOut, size);
    KwNetCounts::Add(counts.writes, 1);
    return true;
}

void KwNetDatagramWork::Keep(std::size_t size) {
    batch_.push_back({io_.GetFrom(), bytes_.size(), static_cast<unsigned int>(size)});
    bytes_.insert(bytes_.end(), room_.begin(), room_.begin() + static_cast<std::ptrdiff_t>(size));
    KwNetCounts::Add(counts.bytesIn, size);
    KwNetCounts::Add(counts.reads, 1);
}

void KwNetDatagramWork::OnReceived(const std::error_code& error, std::size_t size) {
    if (closed_) {
        CheckDone();
        return;
    }
    std::error_code fault = error;
    if (!fault) {
        Keep(size);
        std::size_t got = 0;
        while (batch_.size() < kBatch && io_.TryReceive(room_.data(), room_.size(), got, fault)) Keep(got);
    }
    if (fault) {
        // Some systems tell here that an earlier datagram found nobody.
        KwNetCounts::Add(counts.lost, 1);
        fault_ = fault.message();
    }
    Hand();
}

// One batch is with the host at a time; the system keeps, and then drops, what comes meanwhile.
void KwNetDatagramWork::Hand() {
    handed_ = true;
    loop_.CallHost([this] { Deliver(); });
}

void KwNetDatagramWork::Deliver() {
    for (const Item& item : batch_) {
        KwNetCounts::Add(counts.packetsIn, 1);
        KwNetCallback(counts, kPlace,
                      [&] { handler_->OnPacket(&shell_, item.from, bytes_.data() + item.at, item.size); });
    }
    if (!fault_.empty()) KwNetCallback(counts, kPlace, [&] { handler_->OnError(&shell_, fault_.c_str()); });
    if (loop_.IsMine()) {
        loop_.AddPassWork(this);
    } else {
        KwNetPost(loop_, shell_, [this] { OnPass(); });
    }
}

void KwNetDatagramWork::OnPass() {
    handed_ = false;
    batch_.clear();
    bytes_.clear();
    fault_.clear();
    if (closed_) {
        CheckDone();
    } else {
        io_.Receive(room_.data(), room_.size());
    }
}

void KwNetDatagramWork::Close() {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (done_) return;
    KwNetPost(loop_, shell_, [this] {
        {
            const std::lock_guard<std::mutex> closing(mutex_);
            closed_ = true;
            io_.Close();
        }
        CheckDone();
    });
}

void KwNetDatagramWork::CheckDone() {
    if (handed_ || io_.GetPending() != 0) return;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (done_) return;
        done_ = true;
    }
    --net_.live;
    shell_.Release();
}
