// CNetWorkManager: the sockets of a host, and the threads that serve them.
//
//   CNetWorkManager manager;
//   manager.Init();                                         // no threads: the host's loop pumps
//   CNetServer* server = manager.Listen(settings, &handler);
//   ... in OnRun: manager.Pump(1);
//   manager.Close(5000);
//   server->Release();
//
// TCP carries command packets and length-prefixed packets: type byte, 16-bit length of the whole packet, the rest.
#pragma once

#include <memory>

#include "Kw/Net/KwNetSettings.h"

class CNetClient;
class CNetDatagram;
class CNetServer;
class ICBNetClient;
class ICBNetDatagram;
class ICBNetServer;
struct KwNetManagerState;
struct SNetDatagramSettings;

// Which thread calls the host.
enum class KwNetCalls {
    kPump,     // the one that calls Pump
    kThreads,  // the network's own: of one connection always the same, of several at the same time
};

class KW_API CNetWorkManager {
public:
    CNetWorkManager();
    CNetWorkManager(const CNetWorkManager&) = delete;
    CNetWorkManager& operator=(const CNetWorkManager&) = delete;
    // Closes with a deadline of 0.
    ~CNetWorkManager();

    // Begins, with a number of network threads. Without any, Pump itself serves the sockets, which costs no change of
    // threads; `calls` is kPump then. False when it has begun already or the system gives no threads (logged).
    bool Init(unsigned int threads = 0, KwNetCalls calls = KwNetCalls::kPump);
    // Packets that one pass hands over at most; 10,000 unless set.
    void SetPacketsAPass(unsigned int packets);

    // Null when the address cannot be listened on or the TLS files cannot be used (one line is logged). The caller
    // owns one reference; the manager has its own until the server has stopped.
    CNetServer* Listen(const SNetServerSettings& settings, ICBNetServer* handler);
    // Begins to connect; OnConnect or OnError and OnClose follow. Null without Init, and when the TLS files cannot be
    // used (one line is logged). The caller owns one reference; the manager has its own until the client is done.
    CNetClient* Connect(const SNetClientSettings& settings, ICBNetClient* handler);

    // A UDP socket for raw packets. Null when the address is not numeric or cannot be bound (one line is logged). The
    // caller owns one reference; the manager has its own until the socket is closed.
    CNetDatagram* OpenDatagram(const SNetDatagramSettings& settings, ICBNetDatagram* handler);

    // Calls the host with what has come, and sends what it answers. With nothing to do it waits up to `maxWaitMs` for
    // something. Returns how many callbacks with packets and events there were. For one thread at a time; 0 inside a
    // callback, and where the network threads call the host.
    unsigned int Pump(unsigned int maxWaitMs);
    // Ends the wait of Pump, or the next one; from any thread.
    void Wake();

    // Stops every server and client as CNetServer::Stop does and waits for them, with Pump's callbacks on this
    // thread where Pump would make them; then ends the threads. Init may follow. False inside a callback.
    bool Close(unsigned int deadlineMs);

    // Of all servers and clients since Init. From any thread.
    SNetCounters GetCounters() const;

private:
    std::unique_ptr<KwNetManagerState> state_;
};
