#include "StoreCommands.h"

#include <cstdio>

#include "StoreCheck.h"
#include "StoreImport.h"

namespace {

constexpr unsigned int kRetry = 1000;  // ms between attempts at a disk that takes nothing

std::string Quoted(std::string_view name) {
    return "\"" + std::string(name) + "\"";
}

}  // namespace

void StoreCommands::Register(KwCommand* commands) {
    commands->Add("set", this, &StoreCommands::OnSet, "NAME,FIELD=VALUE,...: changes fields; '' takes one away");
    commands->Add("get", this, &StoreCommands::OnGet, "NAME: the fields of an object");
    commands->Add("del", this, &StoreCommands::OnDel, "NAME: deletes an object");
    commands->Add("find", this, &StoreCommands::OnFind, "[PREFIX]: the names that begin so");
    commands->Add("count", this, &StoreCommands::OnCount, "the number of objects");
    commands->Add("import", this, &StoreCommands::OnImport, "TABLE: an object for each row of a table");
    commands->Add("db.save", this, &StoreCommands::OnSave, "writes a snapshot and empties the journal");
    commands->Add("db.stat", this, &StoreCommands::OnStat, "the store's counters");
    commands->Add("db.check", this, &StoreCommands::OnCheck, "checks the store's files");
}

// Answers -------------------------------------------------------------------------------------------------------

void StoreCommands::Say(std::string text) {
    answers_.push_back({0, 0, false, std::move(text)});
}

void StoreCommands::SayChange(std::string text, unsigned long long droppedBefore) {
    answers_.push_back({db_.GetQueuedCount(), droppedBefore, true, std::move(text)});
}

void StoreCommands::Pass(unsigned int tick) {
    if (stuck_ && tick - lastTry_ < kRetry) return;
    lastTry_ = tick;
    tasks_.Run();
    Settle();
}

void StoreCommands::Finish() {
    while (importing_) {
        tasks_.Run();
        db_.RunTask(1);
    }
}

void StoreCommands::Settle(bool last) {
    db_.RunTask(1);
    const unsigned long long done = db_.GetDoneCount();
    const bool failed = last || db_.IsFailed();
    stuck_ = !failed && done < db_.GetQueuedCount();
    bool printed = false;
    while (!answers_.empty() && (failed || answers_.front().after <= done)) {
        const Answer& answer = answers_.front();
        const bool dropped = answer.dropped != db_.GetDroppedCount();
        const bool lost = answer.isChange && (dropped || (failed && answer.after > done));
        std::printf("%s%s\n", lost ? "error: perhaps not on the disk, try db.save: " : "", answer.text.c_str());
        answers_.pop_front();
        printed = true;
    }
    if (printed) std::fflush(stdout);
}

// Commands ------------------------------------------------------------------------------------------------------

void StoreCommands::OnSet(const std::string&, KwCmd* params) {
    Finish();
    const std::string name = params->GetString(1, "");
    StoreFields fields;
    if (const StoreObject* object = db_.Get(name)) fields = object->fields;
    int given = 0;
    for (const auto& [field, value] : *params) {
        if (field[0] == '$') continue;
        ++given;
        if (value.empty()) {
            fields.erase(field);
        } else {
            fields[field] = value;
        }
    }
    if (given == 0 || params->GetParamNum() != given + 1) return Say("usage: set NAME,FIELD=VALUE,...");
    const unsigned long long dropped = db_.GetDroppedCount();
    const char* why = db_.Put(name, fields);
    if (why != nullptr) return Say("error: " + Quoted(name) + " is not set: " + why);
    SayChange("set " + Quoted(name), dropped);
}

void StoreCommands::OnGet(const std::string&, KwCmd* params) {
    Finish();
    const std::string name = params->GetString(1, "");
    const StoreObject* object = db_.Get(name);
    if (object == nullptr) return Say("no object " + Quoted(name));
    std::string text = name;
    for (const auto& [field, value] : object->fields) text.append("\n  ").append(field).append(": ").append(value);
    Say(text);
}

void StoreCommands::OnDel(const std::string&, KwCmd* params) {
    Finish();
    const std::string name = params->GetString(1, "");
    if (db_.Get(name) == nullptr) return Say("no object " + Quoted(name));
    const unsigned long long dropped = db_.GetDroppedCount();
    const char* why = db_.Delete(name);
    if (why != nullptr) return Say("error: " + Quoted(name) + " is not deleted: " + why);
    SayChange("deleted " + Quoted(name), dropped);
}

void StoreCommands::OnFind(const std::string&, KwCmd* params) {
    Finish();
    const std::vector<std::string> names = db_.Find(params->GetString(1, ""));
    std::string text;
    for (const std::string& name : names) text += name + "\n";
    Say(text + std::to_string(names.size()) + " found");
}

void StoreCommands::OnCount(const std::string&, KwCmd*) {
    Finish();
    Say(std::to_string(db_.GetObjectCount()) + " objects");
}

void StoreCommands::OnImport(const std::string&, KwCmd* params) {
    Finish();
    Settle();
    const char* name = params->GetString(1, "");
    const KwTablePtr* table = tables_.Get(name);
    if (table == nullptr) return;
    const auto done = [this](const StoreImport& import, const std::string& text) {
        importing_ = false;
        SayChange(text, import.GetDroppedBefore());
    };
    auto* import = new StoreImport(db_, name, *table, tables_.GetKeyColumn(name), done);
    if (import == nullptr) return Say("error: memory is out");
    importing_ = true;
    tasks_.Post(import);
}

bool StoreCommands::Save() {
    if (!db_.Save()) return false;
    savedAt_ = db_.GetQueuedCount();
    return true;
}

void StoreCommands::Autosave() {
    if (savedAt_ == db_.GetQueuedCount()) return;
    Settle();
    if (Save()) KwLogSystem::Push("autosave: %u objects", db_.GetObjectCount());
}

void StoreCommands::LogStatistics() {
    KwLogSystem::Push("statistics: %u objects, %llu records written, %llu dropped, %u exceptions caught",
                      db_.GetObjectCount(), db_.GetWrittenCount(), db_.GetDroppedCount(), KwOS::GetExceptionCount());
}

void StoreCommands::OnSave(const std::string&, KwCmd*) {
    Finish();
    Settle();
    Say(Save() ? "saved " + std::to_string(db_.GetObjectCount()) + " objects" : "error: not saved; see the log");
}

void StoreCommands::OnStat(const std::string&, KwCmd*) {
    Finish();
    Settle();
    std::string text = "store in " + db_.GetFolder() + (db_.IsDurable() ? ", durable" : ", not durable") + "\n";
    text += std::to_string(db_.GetObjectCount()) + " objects; at the start " + std::to_string(db_.GetLoadedCount()) +
            " from the snapshot and " + std::to_string(db_.GetReplayedCount()) + " changes from the journal\n";
    text += std::to_string(db_.GetWrittenCount()) + " records written, " + std::to_string(db_.GetDroppedCount()) +
            " dropped";
    if (db_.IsFailed()) text += "; the disk failed, no change is taken until the next start";
    Say(text);
}

void StoreCommands::OnCheck(const std::string&, KwCmd*) {
    Finish();
    Settle();
    std::string text;
    const bool sound = StoreCheck::Run(db_, text);
    Say(text + (sound ? "the files are sound" : "error: the files are damaged"));
}
