#include "StoreCommands.h"

#include "StoreCheck.h"
#include "StoreImport.h"

namespace {

constexpr unsigned int kRetry = 1000;  // ms between attempts at a disk that takes nothing

std::string Quoted(std::string_view name) {
    return "\"" + std::string(name) + "\"";
}

}  // namespace

// Answers -------------------------------------------------------------------------------------------------------

void StoreCommands::Say(StoreSource& to, StoreStatus status, std::string_view text) {
    answers_.Text().append(text);
    answers_.Say(to, status);
}

void StoreCommands::SayChange(StoreSource& to, std::string_view verb, const std::string& name,
                              unsigned long long droppedBefore) {
    answers_.Text().append(verb).append(" \"").append(name).append("\"");
    answers_.SayChange(to, droppedBefore);
}

void StoreCommands::SayError(StoreSource& to, const std::string& name, std::string_view what, const char* why) {
    answers_.Text().append("error: \"").append(name).append("\" is not ").append(what).append(": ").append(why);
    answers_.Say(to, StoreStatus::kError);
}

void StoreCommands::Pass(unsigned int tick) {
    if (stuck_ && tick - lastTry_ < kRetry) return;
    lastTry_ = tick;
    tasks_.Run();
    Settle();
}

void StoreCommands::FinishImport() {
    while (importing_) {
        tasks_.Run();
        db_.RunTask(1);
    }
}

void StoreCommands::Settle(bool last) {
    db_.RunTask(1);
    stuck_ = !last && !db_.IsFailed() && db_.GetDoneCount() < db_.GetQueuedCount();
    answers_.Settle(last);
}

// Commands ------------------------------------------------------------------------------------------------------

void StoreCommands::Set(StoreSource& to, const std::string& name, std::span<const StoreFieldChange> changes) {
    Finish();
    const unsigned long long dropped = db_.GetDroppedCount();
    const char* why = db_.Change(name, changes);
    if (why != nullptr) return SayError(to, name, "set", why);
    SayChange(to, "set", name, dropped);
}

void StoreCommands::Get(StoreSource& to, const std::string& name) {
    Finish();
    const StoreObject* object = db_.Get(name);
    if (object == nullptr) return Say(to, StoreStatus::kError, "no object " + Quoted(name));
    std::string& text = answers_.Text().append(name);
    for (const auto& [field, value] : object->fields) text.append("\n  ").append(field).append(": ").append(value);
    answers_.Say(to, StoreStatus::kDone);
}

void StoreCommands::Delete(StoreSource& to, const std::string& name) {
    Finish();
    if (db_.Get(name) == nullptr) return Say(to, StoreStatus::kError, "no object " + Quoted(name));
    const unsigned long long dropped = db_.GetDroppedCount();
    const char* why = db_.Delete(name);
    if (why != nullptr) return SayError(to, name, "deleted", why);
    SayChange(to, "deleted", name, dropped);
}

void StoreCommands::Find(StoreSource& to, const std::string& prefix) {
    Finish();
    const std::vector<std::string> names = db_.Find(prefix);
    std::string& text = answers_.Text();
    for (const std::string& name : names) text.append(name).append("\n");
    Say(to, StoreStatus::kDone, std::to_string(names.size()) + " found");
}

void StoreCommands::Count(StoreSource& to) {
    Finish();
    Say(to, StoreStatus::kDone, std::to_string(db_.GetObjectCount()) + " objects");
}

void StoreCommands::Import(StoreSource& to, const std::string& name) {
    Finish();
    Settle();
    const KwTablePtr* table = tables_.Get(name);
    if (table == nullptr) return Say(to, StoreStatus::kError, StoreTables::GetMissing(name));
    const auto done = [this, &to](const StoreImport& import, const std::string& text) {
        importing_ = false;
        answers_.Text().append(text);
        answers_.SayChange(to, import.GetDroppedBefore());
        to.Release();
    };
    auto* import = new StoreImport(db_, name, *table, tables_.GetKeyColumn(name.c_str()), done);
    if (import == nullptr) return Say(to, StoreStatus::kError, "error: memory is out");
    to.Hold();
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

void StoreCommands::Save(StoreSource& to) {
    Finish();
    Settle();
    if (!Save()) return Say(to, StoreStatus::kError, "error: not saved; see the log");
    Say(to, StoreStatus::kDone, "saved " + std::to_string(db_.GetObjectCount()) + " objects");
}

void StoreCommands::Stat(StoreSource& to) {
    Finish();
    Settle();
    std::string text = "store in " + db_.GetFolder() + (db_.IsDurable() ? ", durable" : ", not durable") + "\n";
    text += std::to_string(db_.GetObjectCount()) + " objects; at the start " + std::to_string(db_.GetLoadedCount()) +
            " from the snapshot and " + std::to_string(db_.GetReplayedCount()) + " changes from the journal\n";
    text += std::to_string(db_.GetWrittenCount()) + " records written, " + std::to_string(db_.GetDroppedCount()) +
            " dropped";
    if (db_.IsFailed()) text += "; the disk failed, no change is taken until the next start";
    Say(to, StoreStatus::kDone, text);
}

void StoreCommands::Check(StoreSource& to) {
    Finish();
    Settle();
    std::string text;
    const bool sound = StoreCheck::Run(db_, text);
    text += sound ? "the files are sound" : "error: the files are damaged";
    Say(to, sound ? StoreStatus::kDone : StoreStatus::kError, text);
}
