// KwNetDatagramWork: what is behind a CNetDatagram. Internal.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Kw/Net/KwNetDatagramIo.h"
#include "Kw/Net/KwNetWork.h"

class KwNetDatagramWork final : public KwNetDatagramIo::Owner, public KwNetPassWork {
public:
    KwNetDatagramWork(KwNetWork& net, CNetDatagram& shell, const SNetDatagramSettings& settings,
                      ICBNetDatagram* handler);
    ~KwNetDatagramWork();

    // False with the reason. Afterwards the socket lives until it is closed.
    bool Open(std::string& error);
    bool Send(const SNetAddress& to, const void* data, unsigned int size);
    void Close();

    bool IsClosed() const { return done_.load(); }
    unsigned short GetPort() const { return io_.GetPort(); }
    bool HasPeer() const { return hasPeer_; }
    const SNetAddress& GetPeer() const { return peer_; }

    KwNetCounts counts;

private:
    struct Item {
        SNetAddress from;
        std::size_t at;
        unsigned int size;
    };

    void OnReceived(const std::error_code& error, std::size_t size) override;
    void OnPass() override;
    void Keep(std::size_t size);
    void Hand();
    void Deliver();
    void CheckDone();

    KwNetWork& net_;
    CNetDatagram& shell_;
    const SNetDatagramSettings settings_;
    ICBNetDatagram* const handler_;
    KwNetLoop& loop_;
    KwNetDatagramIo io_;
    SNetAddress peer_;
    bool hasPeer_ = false;
    bool closed_ = false;  // the socket
    bool handed_ = false;  // the batch is with the host, or its end of the pass is awaited
    std::vector<unsigned char> room_;
    std::vector<Item> batch_;
    std::vector<unsigned char> bytes_;  // of the batch
    std::string fault_;                 // to be told with the batch

    std::mutex mutex_;  // held to send and to close, and to set what follows: afterwards the loop may be gone
    std::atomic<bool> done_{false};
};
