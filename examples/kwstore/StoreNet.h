// StoreNet: the port at which programs send requests.
//
// Everything runs on the main thread: Wait serves the sockets. What comes in one pass is written together, and its
// answers leave together.
// Thread-safety: none; the main thread owns it.
#pragma once

#include <string>

#include <Kw/Kw.h>

#include "StoreCommands.h"
#include "StoreRequests.h"

class StoreNet : public KwInfLock, private ICBNetServer {
public:
    explicit StoreNet(StoreCommands& commands) : commands_(commands) {}
    ~StoreNet() override { Stop(); }
    StoreNet(const StoreNet&) = delete;
    StoreNet& operator=(const StoreNet&) = delete;

    // Listens as the configuration's "Net" says; without it, or with port 0, there is no network. False, with what is
    // wrong in `why`, when that may not or cannot be. `console` is told "net.stat".
    bool Start(KwDS* settings, KwCommand* console, std::string& why);
    bool IsOn() const { return server_ != nullptr; }
    // Whether Wait waits; it does so without a port, too, for what comes by Wake.
    bool CanWait() const { return begun_; }
    // Serves what has come, and without anything waits up to `ms` for it.
    void Wait(unsigned int ms, unsigned int tick);
    // Ends a wait, or the next one; from any thread until Stop.
    void Wake() { manager_.Wake(); }
    // Answers what has come, within a moment, and ends.
    void Stop();
    void LogStatistics() const;

private:
    class Connection;

    void OnConnect(CNetConnect* connect) override;
    void OnPacket(CNetConnect* connect, const unsigned char* data, unsigned int size) override;
    void OnClose(CNetConnect* connect, KwNetClose reason) override;
    void OnPassEnd() override;
    void OnStat(const std::string& name, KwCmd* params);

    StoreCommands& commands_;
    StoreRequests requests_{commands_};
    CNetWorkManager manager_;
    bool begun_ = false;  // the manager
    CNetServer* server_ = nullptr;
    unsigned int tick_ = 0;
};
