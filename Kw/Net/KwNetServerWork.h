// KwNetServerWork: what is behind a CNetServer. Internal.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "Kw/Net/KwNetServer.h"
#include "Kw/Net/KwNetTls.h"
#include "Kw/Net/KwNetWork.h"

class KwNetServerWork final : public KwNetLinkHost, public KwNetListener::Owner, public KwNetTimed {
public:
    KwNetServerWork(KwNetWork& net, CNetServer& shell, const SNetServerSettings& settings, ICBNetServer* handler);
    ~KwNetServerWork();

    // False with the reason. Afterwards the server lives until it has stopped.
    bool Listen(std::string& error);
    void Stop(unsigned int ms);
    unsigned short GetPort() const { return port_; }
    bool IsStopped() const { return stopped_.load(); }

private:
    std::unique_ptr<KwNetStream> MakeStream() override;
    void OnAccepted(const std::error_code& error, std::unique_ptr<KwNetStream> stream) override;
    void OnTick(std::uint64_t now) override;

    void OnOpened(KwNetLink& link) override;
    void OnPacket(KwNetLink& link, const unsigned char* packet, unsigned int size) override;
    void OnClosed(KwNetLink& link, KwNetClose reason, bool wasOpen, const std::string& detail) override;
    void OnQueueFull(KwNetLink& link) override;
    void OnDrained(KwNetLink& link) override;
    void OnPassEnd() override;
    void OnRetired(KwNetLink& link) override;

    void Adopt(KwNetLoop& loop, CNetConnect* connect, std::unique_ptr<KwNetStream> stream);
    void CheckStopped();

    KwNetWork& net_;
    CNetServer& shell_;
    const SNetServerSettings settings_;
    ICBNetServer* const handler_;
    std::unique_ptr<KwNetTlsContext> tlsContext_;
    KwNetLoop& loop_;  // accepts
    KwNetListener listener_;
    KwNetLoop* nextLoop_ = nullptr;  // for the accept under way
    std::uint64_t acceptAt_ = 0;     // after a failure; 0: an accept is under way
    unsigned short port_ = 0;
    bool closed_ = false;  // the listener
    unsigned int links_ = 0;
    std::mutex endMutex_;  // held to set what follows: afterwards the loops may be gone
    std::atomic<bool> stopped_{false};
};
