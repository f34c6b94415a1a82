// KwNetClientWork: what is behind a CNetClient. Internal.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <string>

#include "Kw/Net/KwNetClient.h"
#include "Kw/Net/KwNetTls.h"
#include "Kw/Net/KwNetWork.h"

class KwNetClientWork final : public KwNetLinkHost, public KwNetTimed {
public:
    KwNetClientWork(KwNetWork& net, CNetClient& shell, const SNetClientSettings& settings, ICBNetClient* handler);
    ~KwNetClientWork();

    // False with the reason. Afterwards the client lives until it is done.
    bool Start(std::string& error);
    // For good; `ms` is left for what is queued.
    void Stop(unsigned int ms);
    bool IsDone() const { return done_.load(); }

private:
    void OnTick(std::uint64_t now) override;
    void OnOpened(KwNetLink& link) override;
    void OnPacket(KwNetLink& link, const unsigned char* packet, unsigned int size) override;
    void OnClosed(KwNetLink& link, KwNetClose reason, bool wasOpen, const std::string& detail) override;
    void OnQueueFull(KwNetLink& link) override;
    void OnDrained(KwNetLink& link) override;
    void OnPassEnd() override {}
    void OnRetired(KwNetLink& link) override;

    void Attempt();
    void Done();

    KwNetWork& net_;
    CNetClient& shell_;
    const SNetClientSettings settings_;
    ICBNetClient* const handler_;
    std::unique_ptr<KwNetTlsContext> tlsContext_;
    KwNetLoop& loop_;
    std::mt19937 random_;
    std::uint64_t attemptAt_ = 0;      // 0: none is due
    std::uint64_t connectedAt_ = 0;    // 0: the last attempt failed
    unsigned int pauseMs_ = 0;         // the next one, before chance
    std::atomic<bool> opened_{false};  // the last attempt came about
    std::atomic<bool> stopping_{false};
    std::mutex endMutex_;  // held to set what follows: afterwards the loop may be gone
    std::atomic<bool> done_{false};
};
