// StoreCommands: the console commands of the store.
//
// Answers wait until what they report is written, and leave in the order of the commands: with the durable
// setting a change that was answered is on the disk. Commands that came together are written together.
// An import is a task that goes on from pass to pass. Commands that ask for objects or change them come behind it.
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
    // Runs the import that has begun to its end.
    void Finish();
    // Saves what has changed since the last time, and says so in the log when there was something.
    void Autosave();
    // Writes the store's counters to the log.
    void LogStatistics();

private:
    struct Answer {
        unsigned long long after;    // the number of records that must be done
        unsigned long long dropped;  // the number that had been dropped before
        bool isChange;
        std::string text;
    };

    void Say(std::string text);
    void SayChange(std::string text, unsigned long long droppedBefore);
    bool Save();
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
    KwTask tasks_{false};  // run by Pass
    bool importing_ = false;
    unsigned long long savedAt_ = 0;  // the number of records at the last save
    unsigned int lastTry_ = 0;        // tick
    bool stuck_ = false;              // the last attempt left records behind
};
