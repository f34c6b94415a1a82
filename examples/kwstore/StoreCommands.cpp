#include "StoreCommands.h"

#include <cstdio>

#include "StoreCheck.h"

namespace {

constexpr unsigned int kRetry = 1000;      // ms between attempts at a disk that takes nothing
constexpr unsigned int kImportPass = 256;  // changes queued at most

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

void StoreCommands::Say(std::string text, bool isChange) {
    answers_.push_back({isChange ? db_.GetQueuedCount() : 0, isChange, std::move(text)});
}

void StoreCommands::Pass(unsigned int tick) {
    if (stuck_ && tick - lastTry_ < kRetry) return;
    lastTry_ = tick;
    Settle();
}

void StoreCommands::Settle(bool last) {
    db_.RunTask(1);
    const unsigned long long done = db_.GetDoneCount();
    const bool failed = last || db_.IsFailed();
    const bool dropped = db_.GetDroppedCount() != droppedSeen_;
    droppedSeen_ = db_.GetDroppedCount();
    stuck_ = !failed && done < db_.GetQueuedCount();
    bool printed = false;
    while (!answers_.empty() && (failed || answers_.front().after <= done)) {
        const Answer& answer = answers_.front();
        const bool lost = answer.isChange && (dropped || (failed && answer.after > done));
        std::printf("%s%s\n", lost ? "error: perhaps not on the disk, try db.save: " : "", answer.text.c_str());
        answers_.pop_front();
        printed = true;
    }
    if (printed) std::fflush(stdout);
}

// Commands ------------------------------------------------------------------------------------------------------

void StoreCommands::OnSet(const std::string&, KwCmd* params) {
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
    const char* why = db_.Put(name, fields);
    if (why != nullptr) return Say("error: " + Quoted(name) + " is not set: " + why);
    Say("set " + Quoted(name), true);
}

void StoreCommands::OnGet(const std::string&, KwCmd* params) {
    const std::string name = params->GetString(1, "");
    const StoreObject* object = db_.Get(name);
    if (object == nullptr) return Say("no object " + Quoted(name));
    std::string text = name;
    for (const auto& [field, value] : object->fields) text.append("\n  ").append(field).append(": ").append(value);
    Say(text);
}

void StoreCommands::OnDel(const std::string&, KwCmd* params) {
    const std::string name = params->GetString(1, "");
    if (db_.Get(name) == nullptr) return Say("no object " + Quoted(name));
    const char* why = db_.Delete(name);
    if (why != nullptr) return Say("error: " + Quoted(name) + " is not deleted: " + why);
    Say("deleted " + Quoted(name), true);
}

void StoreCommands::OnFind(const std::string&, KwCmd* params) {
    const std::vector<std::string> names = db_.Find(params->GetString(1, ""));
    std::string text;
    for (const std::string& name : names) text += name + "\n";
    Say(text + std::to_string(names.size()) + " found");
}

void StoreCommands::OnCount(const std::string&, KwCmd*) {
    Say(std::to_string(db_.GetObjectCount()) + " objects");
}

void StoreCommands::OnImport(const std::string&, KwCmd* params) {
    Settle();
    const char* tableName = params->GetString(1, "");
    const KwTablePtr* table = tables_.Get(tableName);
    if (table == nullptr) return;
    const int key = tables_.GetKeyColumn(tableName);
    unsigned int changed = 0;
    unsigned int same = 0;
    unsigned int refused = 0;
    for (int row = 2; row <= table->GetRowNum(); ++row) {
        StoreFields fields;
        for (int column = 1; column <= table->GetColumnNum(); ++column) {
            const std::string_view title = StoreTables::GetCell(*table, 1, column);
            const std::string_view value = StoreTables::GetCell(*table, row, column);
            if (column != key && !title.empty() && !value.empty()) fields.emplace(title, value);
        }
        const std::string name(StoreTables::GetCell(*table, row, key));
        const StoreObject* object = db_.Get(name);
        if (object != nullptr && object->fields == fields) {
            ++same;
        } else if (const char* why = db_.Put(name, fields)) {
            ++refused;
            KwLogSystem::Push("import %s row %d error: %s", tableName, row, why);
        } else if (++changed % kImportPass == 0) {
            // No answer waits here, so what a pass drops is still news to the Settle that prints this one's.
            db_.RunTask(1);
        }
    }
    Say("imported " + std::string(tableName) + ": " + std::to_string(changed) + " objects set, " +
            std::to_string(same) + " the same, " + std::to_string(refused) + " refused",
        true);
}

void StoreCommands::OnSave(const std::string&, KwCmd*) {
    Settle();
    Say(db_.Save() ? "saved " + std::to_string(db_.GetObjectCount()) + " objects" : "error: not saved; see the log");
}

void StoreCommands::OnStat(const std::string&, KwCmd*) {
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
    Settle();
    std::string text;
    const bool sound = StoreCheck::Run(db_, text);
    Say(text + (sound ? "the files are sound" : "error: the files are damaged"));
}
