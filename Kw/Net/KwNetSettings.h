// What a host settles of the socket layer: limits, TLS, addresses; and what it can ask: counters, reasons.
#pragma once

#include <cstdint>
#include <string>

#include "Kw/KwDefine.h"

// Limits of one connection. Times are milliseconds, and 0 is no limit; times in which the host does not pump do not
// count. What passes a limit is counted, and where it says so ends the connection.
struct SNetLimits {
    unsigned int maxPacket = 65535;      // bytes; a longer packet ends the connection; 3 to 65535
    unsigned int queueBytes = 4 << 20;   // waiting to be sent; see `tellQueueFull`
    bool tellQueueFull = false;          // beyond queueBytes: true: Send fails and OnError is told once until the
                                         // queue is half empty; false: the connection is closed, too
    unsigned int idleMs = 0;             // without a byte in or out: closed
    unsigned int stalledMs = 30000;      // a packet begun and not whole, or a TLS handshake: closed
    unsigned int sendStalledMs = 30000;  // nothing of what waits to be sent goes out: closed
    unsigned int closeMs = 5000;         // for what is queued to go out after a Close
};

// TLS of a server or a client: version 1.2 or later.
struct SNetTls {
    bool on = false;
    // PEM files. A server needs both; a client that has them shows its certificate.
    std::string certificateFile;
    std::string keyFile;
    // PEM file of the authorities to trust; empty: the system's.
    std::string authorityFile;
    // Whether the peer must show a certificate of such an authority: on for clients, and a server that sets
    // `verifyClients` asks for them. A client that clears `verifyServer` talks to anyone.
    bool verifyServer = true;
    bool verifyClients = false;
    // The name that the server's certificate must be for; empty: the address that is connected to.
    std::string hostName;
};

struct SNetServerSettings {
    std::string address = "127.0.0.1";    // IPv4 or IPv6; "::" is every address of both, "0.0.0.0" of IPv4
    unsigned short port = 0;              // 0: one that is free; see CNetServer::GetPort
    unsigned int maxConnections = 10000;  // one more is closed at once and counted as refused
    int backlog = 1024;                   // connections that the system holds until they are accepted
    SNetLimits limits;
    SNetTls tls;

    SNetServerSettings() { limits.idleMs = 600000; }
};

struct SNetClientSettings {
    std::string address = "127.0.0.1";  // IPv4, IPv6 or a host name
    unsigned short port = 0;
    unsigned int connectMs = 10000;  // for one attempt, the look-up of the name and the TLS handshake included
    // Connects again after every loss and failed attempt, until Close. The pause doubles from the first to
    // the longest with each failure, less up to half of it by chance; a connection that was up for the longest pause
    // begins anew.
    bool reconnect = false;
    unsigned int firstPauseMs = 100;
    unsigned int longestPauseMs = 30000;
    SNetLimits limits;
    SNetTls tls;
};

// Why a connection ended.
enum class KwNetClose {
    kLocal,      // by Close, Abort or a stop on this side
    kPeer,       // the peer closed it in order
    kLost,       // reset, or an error of the network
    kFrame,      // a length that no packet can have
    kStalled,    // a partial packet, a handshake or a send made no progress in time
    kIdle,       // nothing was said in time
    kQueueFull,  // more was queued for sending than the limit
    kTls,        // the TLS connection could not be made or was damaged
    kConnect,    // it never came about (clients)
};
// "closed here", "connection lost" ...
KW_API const char* Kw_NetCloseText(KwNetClose reason);

// Totals since the start; one moment's values, not a snapshot of one moment.
struct SNetCounters {
    std::uint64_t connections = 0;         // now
    std::uint64_t connectionsTotal = 0;    // accepted or made
    std::uint64_t connectionsRefused = 0;  // above the limit
    std::uint64_t connectErrors = 0;       // failed attempts of clients, and of servers to accept
    std::uint64_t reconnects = 0;          // attempts of clients after the first
    std::uint64_t packetsIn = 0;           // handed to the host
    std::uint64_t packetsOut = 0;          // taken by Send
    std::uint64_t bytesIn = 0;             // on the wire, with what TLS adds
    std::uint64_t bytesOut = 0;
    std::uint64_t reads = 0;  // calls of the system that brought something
    std::uint64_t writes = 0;
    std::uint64_t queueDrops = 0;   // packets that Send refused because of the queue's limit
    std::uint64_t frameErrors = 0;  // connections closed for a length that no packet can have
    std::uint64_t timeouts = 0;     // connections closed for being idle or stalled
    std::uint64_t lost = 0;         // connections reset or lost
    std::uint64_t tlsFailures = 0;  // handshakes that failed, streams that were damaged
    std::uint64_t exceptions = 0;   // that left a callback
};
