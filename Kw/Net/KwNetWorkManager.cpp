#include "Kw/Net/KwNetWorkManager.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Net/KwNetClient.h"
#include "Kw/Net/KwNetClientWork.h"
#include "Kw/Net/KwNetDatagram.h"
#include "Kw/Net/KwNetDatagramWork.h"
#include "Kw/Net/KwNetServer.h"
#include "Kw/Net/KwNetServerWork.h"
#include "Kw/Net/KwNetWork.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int kThreadWait = 1000;  // ms; a loop wakes for its ticks anyway

unsigned int MillisecondsTo(Clock::time_point until) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return left <= 0 ? 0 : static_cast<unsigned int>(left);
}

}  // namespace

struct KwNetManagerState {
    KwNetWork net;
    std::vector<std::thread> threads;
    std::atomic<bool> ends{false};
    std::atomic<bool> woken{false};
    std::atomic<unsigned int> packetsAPass{10000};
    bool begun = false;

    std::mutex mutex;                  // guards what follows
    std::vector<CNetServer*> servers;  // with a reference of their own
    std::vector<CNetClient*> clients;
    std::vector<CNetDatagram*> datagrams;
    SNetCounters gone;  // of those that were let go

    // Lets those go that have come to their end.
    template <class T, class Ended>
    void Sweep(std::vector<T*>& list, Ended ended) {
        std::erase_if(list, [&](T* each) {
            if (!ended(each)) return false;
            Add(each->GetCounters());
            each->Release();
            return true;
        });
    }
    void SweepAll(bool all) {
        Sweep(servers, [&](CNetServer* each) { return all || each->IsStopped(); });
        Sweep(clients, [&](CNetClient* each) { return all || each->IsDone(); });
        Sweep(datagrams, [&](CNetDatagram* each) { return all || each->IsClosed(); });
    }
    void Add(const SNetCounters& more);
};

void KwNetManagerState::Add(const SNetCounters& more) {
    gone.connectionsTotal += more.connectionsTotal;
    gone.connectionsRefused += more.connectionsRefused;
    gone.connectErrors += more.connectErrors;
    gone.reconnects += more.reconnects;
    gone.packetsIn += more.packetsIn;
    gone.packetsOut += more.packetsOut;
    gone.bytesIn += more.bytesIn;
    gone.bytesOut += more.bytesOut;
    gone.reads += more.reads;
    gone.writes += more.writes;
    gone.queueDrops += more.queueDrops;
    gone.frameErrors += more.frameErrors;
    gone.timeouts += more.timeouts;
    gone.lost += more.lost;
    gone.tlsFailures += more.tlsFailures;
    gone.exceptions += more.exceptions;
}

CNetWorkManager::CNetWorkManager() : state_(new KwNetManagerState) {}

CNetWorkManager::~CNetWorkManager() {
    Close(0);
}

bool CNetWorkManager::Init(unsigned int threads, KwNetCalls calls) {
    if (state_->begun) return KwLogSystem::PushRes("network: begun already");
    KwNetWork& net = state_->net;
    if (threads != 0 && calls == KwNetCalls::kPump) net.pump = std::make_unique<KwNetPump>();
    for (unsigned int i = 0; i < std::max(threads, 1u); ++i)
        net.loops.push_back(std::make_unique<KwNetLoop>(net.pump.get()));
    state_->ends = false;
    state_->begun = true;
    {
        const std::lock_guard<std::mutex> guard(state_->mutex);
        state_->gone = {};
    }
    try {
        for (unsigned int i = 0; i < threads; ++i) {
            state_->threads.emplace_back([state = state_.get(), loop = net.loops[i].get()] {
                while (!state->ends) loop->Pass(kThreadWait, state->packetsAPass.load(std::memory_order_relaxed));
            });
        }
    } catch (const std::system_error& error) {
        Close(0);
        return KwLogSystem::PushRes("network: start thread error: %s", error.what());
    }
    return true;
}

void CNetWorkManager::SetPacketsAPass(unsigned int packets) {
    state_->packetsAPass = std::max(packets, 1u);
}

CNetServer* CNetWorkManager::Listen(const SNetServerSettings& settings, ICBNetServer* handler) {
    if (!state_->begun || handler == nullptr) return nullptr;
    CNetServer* const server = new CNetServer;
    if (server == nullptr) return nullptr;
    server->work_ = std::make_unique<KwNetServerWork>(state_->net, *server, settings, handler);
    std::string error;
    if (!server->work_->Listen(error)) {
        KwLogSystem::Push("network: listen on %s %u error: %s", settings.address.c_str(),
                          static_cast<unsigned int>(settings.port), error.c_str());
        server->Release();
        return nullptr;
    }
    server->AddRef();
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->SweepAll(false);
    state_->servers.push_back(server);
    return server;
}

CNetClient* CNetWorkManager::Connect(const SNetClientSettings& settings, ICBNetClient* handler) {
    if (!state_->begun || handler == nullptr) return nullptr;
    CNetClient* const client = new CNetClient;
    if (client == nullptr) return nullptr;
    client->work_ = std::make_unique<KwNetClientWork>(state_->net, *client, settings, handler);
    std::string error;
    if (!client->work_->Start(error)) {
        KwLogSystem::Push("network: connect to %s %u error: %s", settings.address.c_str(),
                          static_cast<unsigned int>(settings.port), error.c_str());
        client->Release();
        return nullptr;
    }
    client->AddRef();
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->SweepAll(false);
    state_->clients.push_back(client);
    return client;
}

CNetDatagram* CNetWorkManager::OpenDatagram(const SNetDatagramSettings& settings, ICBNetDatagram* handler) {
    if (!state_->begun || handler == nullptr) return nullptr;
    CNetDatagram* const datagram = new CNetDatagram;
    if (datagram == nullptr) return nullptr;
    datagram->work_ = std::make_unique<KwNetDatagramWork>(state_->net, *datagram, settings, handler);
    std::string error;
    if (!datagram->work_->Open(error)) {
        KwLogSystem::Push("network: open datagrams on %s %u error: %s", settings.address.c_str(),
                          static_cast<unsigned int>(settings.port), error.c_str());
        datagram->Release();
        return nullptr;
    }
    datagram->AddRef();
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->SweepAll(false);
    state_->datagrams.push_back(datagram);
    return datagram;
}

unsigned int CNetWorkManager::Pump(unsigned int maxWaitMs) {
    KwNetWork& net = state_->net;
    if (!state_->begun || KwNetLoop::IsAny()) return 0;
    const unsigned int budget = state_->packetsAPass.load(std::memory_order_relaxed);
    if (net.pump != nullptr) return net.pump->Run(maxWaitMs, budget);
    if (!state_->threads.empty()) return 0;
    // A pass may end its wait for something that is none of the host's.
    const bool woken = state_->woken.exchange(false);
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(maxWaitMs);
    unsigned int done = net.loops[0]->Pass(woken ? 0 : maxWaitMs, budget);
    if (woken || maxWaitMs <= 1) return done;
    while (done == 0 && !state_->woken.exchange(false)) {
        const unsigned int left = MillisecondsTo(until);
        if (left == 0) break;
        done = net.loops[0]->Pass(left, budget);
    }
    return done;
}

void CNetWorkManager::Wake() {
    if (!state_->begun) return;
    if (state_->net.pump != nullptr) {
        state_->net.pump->Wake();
    } else {
        // A wake that nobody has seen yet needs no second one.
        if (!state_->woken.exchange(true)) state_->net.loops[0]->Wake();
    }
}

bool CNetWorkManager::Close(unsigned int deadlineMs) {
    if (!state_->begun) return true;
    if (KwNetLoop::IsAny()) return KwLogSystem::PushRes("network: cannot close inside a callback");
    KwNetWork& net = state_->net;
    const auto stopAll = [&](unsigned int ms) {
        const std::lock_guard<std::mutex> guard(state_->mutex);
        for (CNetServer* server : state_->servers) server->Stop(ms);
        for (CNetClient* client : state_->clients) client->work_->Stop(ms);
        for (CNetDatagram* datagram : state_->datagrams) datagram->Close();
    };
    stopAll(deadlineMs);
    const bool pumps = net.pump != nullptr || state_->threads.empty();
    bool cut = deadlineMs == 0;
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(deadlineMs);
    while (net.live != 0) {
        if (!cut && Clock::now() >= until) {
            cut = true;
            stopAll(0);
        }
        if (pumps) {
            Pump(1);
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    state_->ends = true;
    for (const std::unique_ptr<KwNetLoop>& loop : net.loops) loop->Wake();
    for (std::thread& thread : state_->threads) thread.join();
    state_->threads.clear();
    // What was posted behind the last work gives its references back.
    for (const std::unique_ptr<KwNetLoop>& loop : net.loops) loop->Pass(0, 1);
    if (net.pump != nullptr) net.pump->Run(0, ~0u);
    {
        const std::lock_guard<std::mutex> guard(state_->mutex);
        state_->SweepAll(true);
    }
    net.loops.clear();
    net.pump.reset();
    state_->begun = false;
    return true;
}

SNetCounters CNetWorkManager::GetCounters() const {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    SNetCounters all = state_->gone;
    for (CNetServer* server : state_->servers) server->work_->counts.AddTo(all);
    for (CNetClient* client : state_->clients) client->work_->counts.AddTo(all);
    for (CNetDatagram* datagram : state_->datagrams) datagram->work_->counts.AddTo(all);
    return all;
}
