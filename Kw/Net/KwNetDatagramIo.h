// KwNetDatagramIo: a UDP socket of the system. Internal.
//
// Thread-safety: TrySend from any thread with the caller's lock around it, Open and Close; the rest as KwNetIo says.
#pragma once

#include <memory>
#include <string>
#include <system_error>

#include "Kw/Net/KwNetDatagram.h"
#include "Kw/Net/KwNetIo.h"

class KwNetDatagramIo {
public:
    class Owner {
    public:
        virtual void OnReceived(const std::error_code& error, std::size_t size) = 0;

    protected:
        ~Owner() = default;
    };

    KwNetDatagramIo(KwNetIo& io, Owner* owner);
    ~KwNetDatagramIo();
    KwNetDatagramIo(const KwNetDatagramIo&) = delete;
    KwNetDatagramIo& operator=(const KwNetDatagramIo&) = delete;

    bool Open(const SNetDatagramSettings& settings, std::error_code& error);
    unsigned short GetPort() const;
    // Receives one datagram into `to`; its sender is GetFrom when it is answered.
    void Receive(void* to, std::size_t size);
    // The next one if it is there; false when none is, or with an error.
    bool TryReceive(void* to, std::size_t size, std::size_t& got, std::error_code& error);
    SNetAddress GetFrom() const;
    // 0 without an error: the system's buffer is full.
    bool TrySend(const SNetAddress& to, const void* data, std::size_t size, bool& isFull, std::error_code& error);
    void Close();
    int GetPending() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
