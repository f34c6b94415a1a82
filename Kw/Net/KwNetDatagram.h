// CNetDatagram and ICBNetDatagram: a UDP socket for raw packets, and its host.
//
// A datagram is one packet, whole or lost; there is no queue and nothing is sent again.
#pragma once

#include <memory>
#include <string>

#include "Kw/KwInf.h"
#include "Kw/Net/KwNetInterface.h"
#include "Kw/Net/KwNetSettings.h"

class CNetDatagram;
class CNetWorkManager;
class KwNetDatagramWork;

// Where a datagram came from or goes.
struct KW_API SNetAddress {
    unsigned char bytes[16] = {};  // in the order of the network; of IPv4 the first four
    bool isV6 = false;
    unsigned short port = 0;
    unsigned int scope = 0;  // of link-local IPv6

    // Reads a numeric address; false for anything else.
    bool Set(const std::string& address, unsigned short toPort);
    std::string GetText() const;  // without the port
    bool operator==(const SNetAddress&) const = default;
};

struct SNetDatagramSettings {
    std::string address = "127.0.0.1";  // numeric; "::" is every address of both families
    unsigned short port = 0;            // 0: one that is free
    // Where Send sends; empty: nowhere. Datagrams of others are received all the same.
    std::string peerAddress;
    unsigned short peerPort = 0;
    unsigned int receiveBytes = 1 << 20;  // that the system holds until they are read; it may give less
};

// On the thread that CNetWorkManager::Init settled, one call at a time. It must outlive the socket: until IsClosed,
// or the manager's Close. What is thrown is caught, logged and counted.
class KW_API ICBNetDatagram {
public:
    virtual ~ICBNetDatagram();
    // The bytes are valid during the call; `size` may be 0.
    virtual void OnPacket(CNetDatagram* socket, const SNetAddress& from, const unsigned char* data,
                          unsigned int size) = 0;
    // One line of text; the socket goes on. Logs it unless overridden.
    virtual void OnError(CNetDatagram* socket, const char* text);

protected:
    ICBNetDatagram() = default;
    ICBNetDatagram(const ICBNetDatagram&) = default;
    ICBNetDatagram& operator=(const ICBNetDatagram&) = default;
};

// Made by CNetWorkManager::OpenDatagram. Thread-safety: every operation from any thread.
class KW_API CNetDatagram final : public IKwNetClient, public KwInfLock {
public:
    CNetDatagram(const CNetDatagram&) = delete;
    CNetDatagram& operator=(const CNetDatagram&) = delete;

    // Hand one datagram to the system, which may drop it. False for more bytes than one can carry (65,507), without
    // a peer, when the system's buffer is full (counted as a queue drop) and when the socket is closed.
    bool Send(const void* data, unsigned int size) override;
    bool SendTo(const SNetAddress& to, const void* data, unsigned int size);

    unsigned short GetPort() const;
    // Returns at once; the callbacks have ended when IsClosed.
    void Close();
    bool IsClosed() const;
    SNetCounters GetCounters() const;

private:
    friend class CNetWorkManager;
    friend class KwNetDatagramWork;
    CNetDatagram();
    ~CNetDatagram() override;

    std::unique_ptr<KwNetDatagramWork> work_;
};
