// KwNetLink: one TCP connection, from the socket to the packets of the host. Internal.
//
// It belongs to the thread of its loop, and for the time of Deliver to the thread that calls the host: what that
// thread uses is not touched by the loop meanwhile. Reading goes on when all packets read before are handed over, and
// stops while half of the limit waits to be sent, so neither a slow host nor a slow peer lets memory grow.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Kw/Net/KwNetFrame.h"
#include "Kw/Net/KwNetIo.h"
#include "Kw/Net/KwNetSettings.h"

class CNetSocketIO;
class KwNetLink;
class KwNetLoop;
class KwNetTls;
class KwNetTlsContext;

// The values of SNetCounters, written by many.
struct KwNetCounts {
    std::atomic<std::uint64_t> connections{0}, connectionsTotal{0}, connectionsRefused{0}, connectErrors{0},
        reconnects{0}, packetsIn{0}, packetsOut{0}, bytesIn{0}, bytesOut{0}, reads{0}, writes{0}, queueDrops{0},
        frameErrors{0}, timeouts{0}, lost{0}, tlsFailures{0}, exceptions{0};
    // Adds these values to `to`.
    void AddTo(SNetCounters& to) const;
    static void Add(std::atomic<std::uint64_t>& to, std::uint64_t value) {
        to.fetch_add(value, std::memory_order_relaxed);
    }
};

// The server or client of a link. All but OnRetired run on the thread that calls the host.
class KwNetLinkHost {
public:
    virtual void OnOpened(KwNetLink& link) = 0;
    virtual void OnPacket(KwNetLink& link, const unsigned char* packet, unsigned int size) = 0;
    virtual void OnClosed(KwNetLink& link, KwNetClose reason, bool wasOpen, const std::string& detail) = 0;
    virtual void OnQueueFull(KwNetLink& link) = 0;
    virtual void OnDrained(KwNetLink& link) = 0;
    virtual void OnPassEnd() = 0;
    // On the loop's thread, with nothing under way any more.
    virtual void OnRetired(KwNetLink& link) = 0;

    const SNetLimits* limits = nullptr;
    KwNetTlsContext* tls = nullptr;  // null: none
    unsigned int openMs = 0;         // for a connect and a handshake
    KwNetCounts counts;
    bool wantsPassEnd = false;

protected:
    ~KwNetLinkHost() = default;
};

class KwNetLink final : public KwNetStream::Owner {
public:
    // `shell`: the host's end, which outlives the link's work.
    KwNetLink(KwNetLoop& loop, KwNetLinkHost& host, CNetSocketIO& shell);
    ~KwNetLink();
    KwNetLink(const KwNetLink&) = delete;
    KwNetLink& operator=(const KwNetLink&) = delete;

    CNetSocketIO& GetShell() { return shell_; }
    KwNetLinkHost& GetHost() { return host_; }

    // On the loop's thread: begin a connection; the second time only once it has been retired.
    void Adopt(std::unique_ptr<KwNetStream> stream);
    void Connect(const std::string& address, unsigned short port);
    // No more is read; what was read is handed over and what is queued sent, within `ms`.
    void Stop(unsigned int ms);
    bool IsAtWork() const { return stream_ != nullptr; }
    // Ends it now.
    void Finish(KwNetClose reason, const std::string& detail = {});

    // From any thread.
    bool Send(const void* data, unsigned int size);
    void Close(bool now);
    bool IsOpen() const { return sendable_.load(std::memory_order_acquire); }
    std::size_t GetQueued() const {
        return ownQueued_.load(std::memory_order_relaxed) + postedQueued_.load(std::memory_order_relaxed);
    }
    void GetPeer(std::string& address, unsigned short& port, unsigned short& local) const;

    // For the loop and the pump.
    unsigned int Deliver(unsigned int budget);
    void OnDelivered();
    void OnDirty();
    void OnPosted();
    void OnTick(std::uint64_t now);
    void SetHanded() {
        handed_ = true;
        inReady_ = false;
    }
    // At the end of the pass in which nothing was left to do.
    void OnRetire();
    void PostReturn();
    void PostPending();
    void SetIndex(std::size_t index) { index_ = index; }
    std::size_t GetIndex() const { return index_; }

private:
    enum class State { kIdle, kOpening, kHandshake, kOpen, kClosing, kLingering, kClosed };
    enum Tell : unsigned int { kTellOpen = 1, kTellClose = 2, kTellFull = 4, kTellDrained = 8 };
    enum CloseAsked : int { kNone, kInOrder, kNow, kFull };

    void OnOpened(const std::error_code& error) override;
    void OnRead(const std::error_code& error, std::size_t size) override;
    void OnWritten(const std::error_code& error, std::size_t size) override;

    void Begin(State state);
    void Established();
    void Handshake();
    void Continue();
    void StartRead();
    bool PullTls();
    void BeginClose(KwNetClose reason, const std::string& detail = {});
    unsigned int PauseAt() const;
    void EndSend();
    void Ready();
    void Dirty();
    void TellHost(unsigned int what);
    bool Overflow(unsigned int size);
    void PostOpen();
    void AskClose(CloseAsked how);
    void MergePosted();
    void FillSending();
    void Flush();
    void UpdateQueued();
    void StopSending();
    void CountClose(KwNetClose reason);
    void Retire();

    KwNetLoop& loop_;
    KwNetLinkHost& host_;
    CNetSocketIO& shell_;
    std::unique_ptr<KwNetStream> stream_;
    std::unique_ptr<KwNetTls> tls_;
    State state_ = State::kIdle;
    bool held_ = false;  // a read was answered while the pump had the link
    std::error_code heldError_;
    std::size_t heldSize_ = 0;
    bool reading_ = false;  // a read is under way
    bool writing_ = false;  // a write is under way
    bool handed_ = false;   // with the pump
    bool inReady_ = false;  // in the loop's lists
    bool inDirty_ = false;
    bool paused_ = false;  // packets wait until the queue is shorter
    bool ended_ = false;   // the peer sends no more
    bool stopping_ = false;
    bool retired_ = false;  // in the loop's list
    KwNetClose reason_ = KwNetClose::kLocal;
    std::string detail_;
    std::size_t index_ = 0;
    std::uint64_t since_ = 0;  // of the attempt or the handshake
    std::uint64_t lastIo_ = 0;
    std::uint64_t lastSend_ = 0;      // progress in sending
    std::uint64_t partialSince_ = 0;  // when the packet that is not whole began; 0: none
    std::uint64_t closeBy_ = 0;

    // Of the thread that calls the host, inside Deliver.
    KwNetFrame frames_;
    bool bad_ = false;       // a length that no packet can have
    bool cut_ = false;       // a packet was handed over
    bool toldOpen_ = false;  // the host knows of it
    bool told_ = false;      // and of its end
    std::atomic<unsigned int> tell_{0};
    std::atomic<int> closeAsked_{kNone};
    std::atomic<bool> full_{false};

    std::vector<unsigned char> cipher_;   // what TLS reads
    std::vector<unsigned char> queue_;    // waits to be sent
    std::vector<unsigned char> sending_;  // is being sent, from sent_ on
    std::size_t sent_ = 0;
    std::uint64_t packetsQueued_ = 0;  // not counted yet
    std::atomic<std::size_t> ownQueued_{0};
    std::atomic<std::size_t> postedQueued_{0};
    std::atomic<bool> sendable_{false};

    mutable std::mutex mutex_;  // guards what follows
    std::vector<unsigned char> posted_;
    std::uint64_t packetsPosted_ = 0;
    bool inPosted_ = false;  // in the loop's list of posted links
    bool inPump_ = false;    // in the pump's list of links to be posted
    bool returned_ = false;  // from the pump
    std::string peer_;
    unsigned short peerPort_ = 0;
    unsigned short localPort_ = 0;
};
