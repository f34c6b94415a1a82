// StoreCommands: the console commands of the store.
//
// Answers wait until what they report is written, and leave in the order of the commands: with the durable
// setting a change that was answered is on the disk. Commands that came together are written together.
// Thread-safety: none; the main thread owns it.
#pragma once

#include <deque>
#include <string>

#include <Kw/Kw.h>

#include "StoreDB.h"
#include "StoreTables.h"

class StoreCommands : public KwInfLock {
public:
    StoreCommands(StoreDB& db, const StoreTables& tables) : db_(db), tables_(tables) {}
    StoreCommands(const StoreCommands&) = delete;
    StoreCommands& operator=(const StoreCommands&) = delete;

    void Register(KwCommand* commands);
    // Writes what is queued and prints the answers that need wait no longer. Each pass; `tick` in milliseconds.
    void Pass(unsigned int tick);
    // The same at once, for others that print. `last`, once the store is closed, answers what could not be written.
    void Settle(bool last = false);

private:
    struct Answer {
        unsigned long long after;  // the number of records that must be done
        bool isChange;
        std::string text;
    };

    void Say(std::string text, bool isChange = false);
    void OnSet(const std::string& name, KwCmd* params);
    void OnGet(const std::string& name, KwCmd* params);
    void OnDel(const std::string& name, KwCmd* params);
    void OnFind(const std::string& name, KwCmd* params);
    void OnCount(const std::string& name, KwCmd* params);
    void OnImport(const std::string& name, KwCmd* params);
    void OnSave(const std::string& name, KwCmd* params);
    void OnStat(const std::string& name, KwCmd* params);
    void OnCheck(const std::string& name, KwCmd* params);

    StoreDB& db_;
    const StoreTables& tables_;
    std::deque<Answer> answers_;
    unsigned long long droppedSeen_ = 0;
    unsigned int lastTry_ = 0;  // tick
    bool stuck_ = false;        // the last attempt left records behind
};
