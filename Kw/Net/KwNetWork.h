// KwNetWork: the loops of a CNetWorkManager, and what its servers and clients share. Internal.
#pragma once

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include "Kw/KwGuardedCall.h"
#include "Kw/Net/KwNetLink.h"
#include "Kw/Net/KwNetLoop.h"

class KwNetWork {
public:
    // One after the other.
    KwNetLoop& NextLoop() { return *loops[next.fetch_add(1, std::memory_order_relaxed) % loops.size()]; }

    // Lets the loops look as often as these limits want.
    void NeedTicks(const SNetLimits& limits) {
        for (const std::unique_ptr<KwNetLoop>& loop : loops) {
            for (unsigned int ms : {limits.idleMs, limits.stalledMs, limits.sendStalledMs, limits.closeMs})
                loop->NeedTick(ms);
        }
    }

    std::vector<std::unique_ptr<KwNetLoop>> loops;
    std::unique_ptr<KwNetPump> pump;  // null: the loops call the host
    std::atomic<unsigned int> next{0};
    std::atomic<int> live{0};  // servers, clients and datagram sockets that have not come to their end
};

// Runs work of `shell` on a loop's thread, which holds a reference to it until then.
template <class Shell, class Work>
void KwNetPost(KwNetLoop& loop, Shell& shell, Work work) {
    shell.AddRef();
    loop.Post([&shell, work] {
        work();
        shell.Release();
    });
}

// A callback of the host.
template <class Call>
void KwNetCallback(KwNetCounts& counts, const char* place, Call&& call) {
    if (!KwGuardedCall(place, nullptr, call)) KwNetCounts::Add(counts.exceptions, 1);
}
