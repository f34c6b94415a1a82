// CNetSocketIO: one end of a TCP connection, what a server's connection and a client have in common.
//
// Packets are queued and go out with one write when the callbacks of a pass are through, or at once when another
// thread sends. What is queued is limited, see SNetLimits.
// Thread-safety: every operation from any thread; the user data belongs to the host.
#pragma once

#include <memory>
#include <string>

#include "Kw/KwInf.h"
#include "Kw/Net/KwNetSettings.h"

class KwNetLink;

class KW_API CNetSocketIO : public KwInfLock {
public:
    CNetSocketIO(const CNetSocketIO&) = delete;
    CNetSocketIO& operator=(const CNetSocketIO&) = delete;
    ~CNetSocketIO() override;

    // Between OnConnect and the end: whether Send takes packets.
    bool IsOpen() const;
    // Nothing more is received, what is queued is sent, then the connection ends; OnClose follows.
    virtual void Close();
    // Resets the connection: what is queued is lost, and the peer is told. OnClose follows.
    virtual void Abort();

    // Bytes that wait to be sent.
    unsigned int GetQueuedBytes() const;
    // Of the last connection; empty and 0 before it.
    std::string GetPeerAddress() const;
    unsigned short GetPeerPort() const;
    unsigned short GetLocalPort() const;

    void* GetUserData() const { return userData_; }
    void SetUserData(void* data) { userData_ = data; }

protected:
    CNetSocketIO();
    bool SendBytes(const void* data, unsigned int size);

    std::unique_ptr<KwNetLink> link_;

private:
    void* userData_ = nullptr;
};
