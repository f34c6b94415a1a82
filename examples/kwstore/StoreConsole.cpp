// The commands of StoreCommands as they are typed.
#include "StoreCommands.h"

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

void StoreCommands::OnSet(const std::string&, KwCmd* params) {
    std::vector<StoreFieldChange> changes;
    for (const auto& [field, value] : *params) {
        if (field[0] != '$') changes.push_back({field, value});
    }
    if (changes.empty() || params->GetParamNum() != static_cast<int>(changes.size()) + 1) {
        return Say(console_, StoreStatus::kError, "usage: set NAME,FIELD=VALUE,...");
    }
    Set(console_, params->GetString(1, ""), changes);
}

void StoreCommands::OnGet(const std::string&, KwCmd* params) {
    Get(console_, params->GetString(1, ""));
}

void StoreCommands::OnDel(const std::string&, KwCmd* params) {
    Delete(console_, params->GetString(1, ""));
}

void StoreCommands::OnFind(const std::string&, KwCmd* params) {
    Find(console_, params->GetString(1, ""));
}

void StoreCommands::OnCount(const std::string&, KwCmd*) {
    Count(console_);
}

void StoreCommands::OnImport(const std::string&, KwCmd* params) {
    Import(console_, params->GetString(1, ""));
}

void StoreCommands::OnSave(const std::string&, KwCmd*) {
    Save(console_);
}

void StoreCommands::OnStat(const std::string&, KwCmd*) {
    Stat(console_);
}

void StoreCommands::OnCheck(const std::string&, KwCmd*) {
    Check(console_);
}
