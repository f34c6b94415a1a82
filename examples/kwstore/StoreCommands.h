// StoreCommands: the commands of the store, from the console or a program.
//
// Answers wait in StoreAnswers until what they report is written. Commands that came together are written together.
// An import is a task that goes on from pass to pass. Commands that ask for objects or change them come behind it.
// Thread-safety: none; the main thread owns it.
#pragma once

#include <span>
#include <string>

#include <Kw/Kw.h>

#include "StoreAnswers.h"
#include "StoreDB.h"
#include "StoreTables.h"

class StoreCommands : public KwInfLock {
public:
    StoreCommands(StoreDB& db, const StoreTables& tables) : db_(db), tables_(tables) {}
    StoreCommands(const StoreCommands&) = delete;
    StoreCommands& operator=(const StoreCommands&) = delete;

    // Adds them to the console.
    void Register(KwCommand* commands);

    // Each queues one answer for `to`.
    void Set(StoreSource& to, const std::string& name, std::span<const StoreFieldChange> changes);
    void Get(StoreSource& to, const std::string& name);
    void Delete(StoreSource& to, const std::string& name);
    void Find(StoreSource& to, const std::string& prefix);
    void Count(StoreSource& to);
    void Import(StoreSource& to, const std::string& table);
    void Save(StoreSource& to);
    void Stat(StoreSource& to);
    void Check(StoreSource& to);
    void Say(StoreSource& to, StoreStatus status, std::string_view text);

    // Writes what is queued and hands out the answers that need wait no longer. Each pass; `tick` in milliseconds.
    void Pass(unsigned int tick);
    // The same at once, for others that print. `last`, once the store is closed, answers what could not be written.
    void Settle(bool last = false);
    // Runs the import that has begun to its end.
    void Finish() {
        if (importing_) FinishImport();
    }
    // Whether there is more to do than to wait for commands.
    bool IsBusy() const { return importing_ || (answers_.GetWaiting() != 0 && !stuck_); }
    const StoreAnswers& GetAnswers() const { return answers_; }
    // Saves what has changed since the last time, and says so in the log when there was something.
    void Autosave();
    // Writes the store's counters to the log.
    void LogStatistics();

private:
    void SayChange(StoreSource& to, std::string_view verb, const std::string& name, unsigned long long droppedBefore);
    void SayError(StoreSource& to, const std::string& name, std::string_view what, const char* why);
    void FinishImport();
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
    StoreConsoleSource console_;
    StoreAnswers answers_{db_};
    KwTask tasks_{false};  // run by Pass
    bool importing_ = false;
    unsigned long long savedAt_ = 0;  // the number of records at the last save
    unsigned int lastTry_ = 0;        // tick
    bool stuck_ = false;              // the last attempt left records behind
};
