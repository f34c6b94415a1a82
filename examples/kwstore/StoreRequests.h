// StoreRequests: the packets that programs send, whatever brings them.
//
//   request  command packet, type 1: the command and its parameters
//   answer   length-prefixed packet, type 2, or 3 where more of the same answer follows: a StoreStatus, the text
//
// Each request gets one answer, in the order of a session's requests. docs/store.md says which commands there are.
// Thread-safety: none; the main thread owns it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <Kw/Kw.h>

#include "StoreCommands.h"
#include "StoreSource.h"

// One program's connection.
class StoreSession : public StoreSource {
public:
    // Hands the answer to SendPacket in packets.
    void Answer(StoreStatus status, std::string_view text) override;

protected:
    // The other end, for the log.
    virtual std::string GetPeer() const = 0;
    virtual void SendPacket(const unsigned char* packet, unsigned int size) = 0;

private:
    friend class StoreRequests;
    bool isAllowed_ = false;
};

class StoreRequests {
public:
    static constexpr unsigned char kRequest = 1;
    static constexpr unsigned char kLast = 2;
    static constexpr unsigned char kMore = 3;
    static constexpr std::size_t kMostWaiting = 200000;  // answers

    enum class Next {
        kGoOn,
        kEnd,  // the session ends when all is answered
        kCut,  // it ends now; a line says why
    };

    explicit StoreRequests(StoreCommands& commands) : commands_(commands) {}
    // Tells the console's commands from those that nobody knows; it stays the caller's.
    void SetConsole(KwCommand* console) { console_ = console; }
    // What a session must show before anything else; empty: nothing.
    void SetToken(const std::string& token) { token_ = token; }

    // Takes one packet, which may hold anything.
    Next Take(StoreSession& from, const unsigned char* packet, unsigned int size);

private:
    struct Command;
    using View = KwNetPacketView;

    static const Command* Find(std::string_view name);
    Next Authorise(StoreSession& from);
    void Refuse(StoreSource& to);
    const std::string& Name(unsigned int index);
    void Set(StoreSource& to);
    void Get(StoreSource& to);
    void Delete(StoreSource& to);
    void List(StoreSource& to);
    void Count(StoreSource& to);
    void Import(StoreSource& to);
    void Save(StoreSource& to);
    void Stat(StoreSource& to);
    void Check(StoreSource& to);
    void Help(StoreSource& to);

    StoreCommands& commands_;
    KwCommand* console_ = nullptr;
    std::string token_;
    // Of the request under way, kept for their room.
    View view_;
    std::string name_;
    std::string values_;
    std::vector<StoreFieldChange> changes_;
};
