// CNetServer and ICBNetServer: a listening socket with its connections, and the host that answers them.
#pragma once

#include <memory>

#include "Kw/KwInf.h"
#include "Kw/Net/KwNetSettings.h"

class CNetConnect;
class CNetWorkManager;
class KwNetServerWork;

// What a host hears of a server, on the thread that CNetWorkManager::Init settled; of one connection in order and one
// call at a time. It must outlive the server's connections: until IsStopped, or the manager's Close. What is thrown is
// caught, logged and counted.
class KW_API ICBNetServer {
public:
    virtual ~ICBNetServer();
    virtual void OnConnect(CNetConnect* connect);
    // One whole packet, from its type byte on; the bytes are valid during the call.
    virtual void OnPacket(CNetConnect* connect, const unsigned char* data, unsigned int size) = 0;
    // The last call for a connection that OnConnect was called for.
    virtual void OnClose(CNetConnect* connect, KwNetClose reason);
    // One line of text: a connection's queue is full (`tellQueueFull`), or with a null connection the server cannot
    // accept, or a connection failed before it was one. Logs it unless overridden.
    virtual void OnError(CNetConnect* connect, const char* text);
    // Behind a full queue: half of it has been sent.
    virtual void OnDrained(CNetConnect* connect);
    // Behind the packets of a pass, before what was sent in answer goes out: where work for all of them is done once.
    virtual void OnPassEnd();

protected:
    ICBNetServer() = default;
    ICBNetServer(const ICBNetServer&) = default;
    ICBNetServer& operator=(const ICBNetServer&) = default;
};

// Made by CNetWorkManager::Listen. Thread-safety: every operation from any thread.
class KW_API CNetServer final : public KwInfLock {
public:
    CNetServer(const CNetServer&) = delete;
    CNetServer& operator=(const CNetServer&) = delete;

    unsigned short GetPort() const;
    // Accepts no more, hands over what was received, sends what is queued and closes; what is left after
    // `deadlineMs` is cut. Returns at once. The port is free when IsStopped.
    void Stop(unsigned int deadlineMs);
    bool IsStopped() const;
    SNetCounters GetCounters() const;

private:
    friend class CNetWorkManager;
    friend class KwNetServerWork;
    CNetServer();
    ~CNetServer() override;

    std::unique_ptr<KwNetServerWork> work_;
};
