// KwNetLoop: one thread's share of the network, and KwNetPump, the host's thread where that is another. Internal.
//
// A pass takes what the system has read, hands the packets to the host, and sends what came of them with one write a
// connection. The loop is run by a thread of the manager, or by the host in its pump. With a KwNetPump the packets go
// to the host's thread in batches and each connection comes back when its batch is done.
// Thread-safety: the thread that runs the loop, unless it says otherwise.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "Kw/Net/KwNetIo.h"

class KwNetLink;
class KwNetLinkHost;
class KwNetPump;

// What looks at the time now and then.
class KwNetTimed {
public:
    virtual void OnTick(std::uint64_t now) = 0;

protected:
    ~KwNetTimed() = default;
};

// What goes on when the packets of a pass are through.
class KwNetPassWork {
public:
    virtual void OnPass() = 0;

protected:
    ~KwNetPassWork() = default;
};

class KwNetLoop {
public:
    // Null: this loop's thread calls the host.
    explicit KwNetLoop(KwNetPump* pump) : pump_(pump) {}
    KwNetLoop(const KwNetLoop&) = delete;
    KwNetLoop& operator=(const KwNetLoop&) = delete;

    KwNetIo& GetIo() { return io_; }
    KwNetPump* GetPump() const { return pump_; }
    // Whether the calling thread is in a pass of this loop; from any thread.
    bool IsMine() const;
    static bool IsAny();

    // One pass of up to `budget` packets; with nothing to do waits up to `waitMs`. Returns what was handed over,
    // events included.
    unsigned int Pass(unsigned int waitMs, unsigned int budget);
    // Ends a wait; from any thread.
    void Wake();

    // Milliseconds in which this loop ran, or was due to: long pauses between passes do not count in full.
    std::uint64_t Now() const { return now_; }
    // Ticks come at most this far apart; from any thread.
    void NeedTick(unsigned int ms);

    // Once a pass: the link has something for the host; something to be sent or closed.
    void AddReady(KwNetLink* link) { ready_.push_back(link); }
    void AddDirty(KwNetLink* link) { dirty_.push_back(link); }
    void AddPassWork(KwNetPassWork* work) { passWork_.push_back(work); }
    void AddTouched(KwNetLinkHost* host);
    void AddRetired(KwNetLink* link) { retired_.push_back(link); }
    // The link's OnPosted is called in the next pass; from any thread.
    void PostLink(KwNetLink* link);
    void Post(std::function<void()> work) { io_.Post(std::move(work)); }
    // Calls the host, here or on the pump's thread.
    void CallHost(std::function<void()> call);

    void AddLink(KwNetLink* link);
    void RemoveLink(KwNetLink* link);
    const std::vector<KwNetLink*>& GetLinks() const { return links_; }
    void AddTimed(KwNetTimed* timed) { timed_.push_back(timed); }
    void RemoveTimed(KwNetTimed* timed);

private:
    void Advance(bool between);
    void TakePosted();
    unsigned int Deliver(unsigned int budget);
    void Flush();
    void Tick();

    KwNetIo io_;
    KwNetPump* pump_;
    std::vector<KwNetLink*> ready_, delivering_, dirty_, flushing_, links_, taken_, retired_;
    std::vector<KwNetLinkHost*> touched_;
    std::vector<KwNetPassWork*> passWork_;
    std::vector<KwNetTimed*> timed_;
    std::uint64_t now_ = 1;
    std::int64_t clock_ = 0;  // of the system, when now_ was set
    std::uint64_t nextTick_ = 0;
    std::atomic<unsigned int> tickMs_{100};
    unsigned int events_ = 0;

    std::mutex mutex_;  // guards what follows
    std::vector<KwNetLink*> posted_;
    bool sleeping_ = false;
};

class KwNetPump {
public:
    // Hands up to `budget` packets to the host; with nothing to do waits up to `waitMs`.
    unsigned int Run(unsigned int waitMs, unsigned int budget);
    void Wake();
    // From the loops: `links` is emptied.
    void Take(std::vector<KwNetLink*>& links);
    void Call(std::function<void()> call);

    // Whether the calling thread is in Run.
    bool IsMine() const;
    // Inside Run: the link is posted to its loop when the packets are through.
    void AddDirty(KwNetLink* link) { dirty_.push_back(link); }
    void AddTouched(KwNetLinkHost* host);

private:
    std::vector<KwNetLink*> links_, done_, dirty_;
    std::vector<KwNetLinkHost*> touched_;
    std::vector<std::function<void()>> running_;

    std::mutex mutex_;  // guards what follows
    std::condition_variable wake_;
    std::vector<KwNetLink*> inbox_;
    std::vector<std::function<void()>> calls_;
    bool woken_ = false;
};
