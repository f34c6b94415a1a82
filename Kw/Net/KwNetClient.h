// CNetClient and ICBNetClient: a client's end of a connection, which it can make again, and its host.
#pragma once

#include <memory>

#include "Kw/Net/KwNetInterface.h"
#include "Kw/Net/KwNetSocketIO.h"

class CNetClient;
class CNetWorkManager;
class KwNetClientWork;

// What a host hears of a client, on the thread that CNetWorkManager::Init settled. It must outlive the client's
// work: until OnClose without reconnecting, or the manager's Close. What is thrown is caught, logged and counted.
class KW_API ICBNetClient {
public:
    virtual ~ICBNetClient();
    // With reconnecting, again for every connection.
    virtual void OnConnect(CNetClient* client);
    // One whole packet, from its type byte on; the bytes are valid during the call.
    virtual void OnPacket(CNetClient* client, const unsigned char* data, unsigned int size) = 0;
    // A connection has ended; without reconnecting also when none came about.
    virtual void OnClose(CNetClient* client, KwNetClose reason);
    // One line of text: an attempt failed, or the queue is full (`tellQueueFull`). Logs it unless overridden.
    virtual void OnError(CNetClient* client, const char* text);
    // Behind a full queue: half of it has been sent.
    virtual void OnDrained(CNetClient* client);

protected:
    ICBNetClient() = default;
    ICBNetClient(const ICBNetClient&) = default;
    ICBNetClient& operator=(const ICBNetClient&) = default;
};

// Made by CNetWorkManager::Connect. Thread-safety: every operation from any thread.
class KW_API CNetClient final : public IKwNetClient, public CNetSocketIO {
public:
    // Queues a copy of one packet's bytes. False when there is no connection or its queue is full.
    bool Send(const void* data, unsigned int size) override;
    // For good: also ends the reconnecting.
    void Close() override;
    void Abort() override;
    // Whether nothing more will come of it.
    bool IsDone() const;
    SNetCounters GetCounters() const;

private:
    friend class CNetWorkManager;
    friend class KwNetClientWork;
    CNetClient();
    ~CNetClient() override;

    std::unique_ptr<KwNetClientWork> work_;
};
