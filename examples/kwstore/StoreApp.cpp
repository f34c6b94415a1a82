#include "StoreApp.h"

#include <cstdio>

namespace {

constexpr unsigned int kRest = 25;  // ms; packets and lines end the wait, the clock's work has seconds

enum Timed : unsigned int { kAutosave, kStatistics };

}  // namespace

const char* StoreApp::Name() const {
    return GetAppName().empty() ? "kwstore" : GetAppName().c_str();
}

bool StoreApp::OnInit(KwDS* config) {
    if (!log_.Start(config == nullptr ? nullptr : config->GetStruct("Log"))) {
        std::fprintf(stderr, "kwstore: no log file can be written\n");
        return false;
    }
    AddPaths(config);
    OpenPacks(config);
    // A table that is missing is reported and leaves the others usable.
    tables_.Open(config);
    if (!OpenStore(config) || !OpenMirror(config) || !OpenNet(config)) return false;
    SetPassSleep(rest_);  // where OnRun cannot wait
    KwCommand* commands = GetCommand();
    commands->Add("pack.list", this, &StoreApp::OnPackList, "the open packs");
    commands->Add("table.list", this, &StoreApp::OnTableList, "the open tables");
    commands->Add("table.count", this, &StoreApp::OnTableCount, "TABLE: its number of rows");
    commands->Add("table.row", this, &StoreApp::OnTableRow, "TABLE,N: row N");
    commands->Add("table.find", this, &StoreApp::OnTableFind, "TABLE,TEXT[,COLUMN]: rows with that cell");
    commands->Add("info.memory", this, &StoreApp::OnInfoMemory, "the allocator's counters");
    commands->Add("info.version", this, &StoreApp::OnInfoVersion, "the library's version");
    commands->Add("mirror.stat", this, &StoreApp::OnMirrorStat, "the mirror's counters");
    commands->Add("log.file", this, &StoreApp::OnLogFile, "[PATH]: log to a file, without PATH to the console");
    commands_.Register(commands);
    AddEvents(config);
    plugins_.Open(config, commands);
    return true;
}

// Seconds between two autosaves, and between two lines of statistics in the log; 0 for none.
void StoreApp::AddEvents(KwDS* config) {
    KwDS* settings = config == nullptr ? nullptr : config->GetStruct("Events");
    if (settings == nullptr) return;
    for (const Timed timed : {kAutosave, kStatistics}) {
        const char* name = timed == kAutosave ? "autosave" : "statistics";
        const int seconds = settings->GetInt(name, 0);
        if (seconds > 0) events_.AddEventTime(name, EVTIME_SECOND, seconds, timed, this, &StoreApp::OnTimed);
    }
}

void StoreApp::OnTimed(EVTIMETYPE, unsigned int param) {
    if (param == kAutosave) commands_.Autosave();
    if (param == kStatistics) {
        commands_.LogStatistics();
        net_.LogStatistics();
    }
}

void StoreApp::OnPreRun() {
    std::printf("%s is running; \"help\" lists the commands, \"exit\" stops it\n", Name());
    std::fflush(stdout);
}

void StoreApp::OnRun(unsigned int tick) {
    // What comes is answered when its pass ends.
    if (net_.CanWait()) net_.Wait(commands_.IsBusy() ? 0 : mirror_.IsBusy() ? 1 : rest_, tick);
    commands_.Pass(tick);
    mirror_.Pass(tick);
    flush_.SetCount(db_.GetWrittenCount());
    events_.RunTime(tick);
    plugins_.Pass(tick);
    log_.Pass(tick);
}

void StoreApp::OnClose() {
    input_.Stop();
    plugins_.Close();
    commands_.Finish();
    commands_.Settle();
    net_.Stop();
    commands_.Settle();
    mirror_.Stop();
    flush_.SetCount(db_.GetQueuedCount());
    db_.Close();
    flush_.Stop();
    commands_.Settle(true);
    packs_.Close();
    log_.Stop();
    std::printf("%s stops\n", Name());
    std::fflush(stdout);
}

bool StoreApp::CanStopApp() {
    return PostQuestionStopApp(Name(), "Stop the store?");
}

void StoreApp::AddPaths(KwDS* config) {
    KwDS* paths = config == nullptr ? nullptr : config->GetStruct("Paths");
    if (paths == nullptr) return;
    for (int i = 1; i <= paths->GetArraySize(); ++i) KwRes::SetResPath(paths->GetString(i, nullptr, ""), -1);
}

void StoreApp::OpenPacks(KwDS* config) {
    KwDS* list = config == nullptr ? nullptr : config->GetStruct("Packs");
    if (list == nullptr) return;
    packs_.Open(list);
    // A pack that is missing is reported; what others hold, or the disk, is still found.
    for (int i = 1; i <= list->GetArraySize(); ++i) {
        KwDS* entry = list->GetStruct(i);
        const std::string path = entry == nullptr ? "" : entry->GetString(1, nullptr, "");
        bool open = false;
        for (int at = 0; at < packs_.GetPackCount() && !open; ++at) open = path == packs_.GetPack(at)->GetPath();
        if (!open) KwLogSystem::PushRes("pack \"%s\" (entry %d of Packs) is not open", path.c_str(), i);
    }
}

bool StoreApp::OpenStore(KwDS* config) {
    KwDS* settings = config == nullptr ? nullptr : config->GetStruct("Store");
    std::string folder = settings == nullptr ? "store" : settings->GetString("folder", nullptr, "store");
    const bool absolute = !folder.empty() && (folder[0] == '/' || folder[0] == '\\' || folder.find(':') == 1);
    if (!absolute) folder.insert(0, KwRes::GetProcessPath());
    const bool durable = settings == nullptr || settings->GetBool("durable", true);
    const int flush = durable ? 0 : settings->GetInt("flush", 1000);
    const bool open = db_.Start(folder, durable);
    KwDBRTNames names;
    names.Init(db_.GetFolder(), StoreDB::GetFileName());
    if (open && flush > 0) return flush_.Start(names.GetJournal(), static_cast<unsigned int>(flush));
    if (open) return true;
    const bool writable = KwDBFiles::GetDisk()->Open(names.GetLock(), true) != nullptr;
    std::fprintf(stderr, "kwstore: the store in %s cannot be opened: %s\n", folder.c_str(),
                 writable ? "the log says why" : "no right to write there");
    return false;
}

bool StoreApp::OpenMirror(KwDS* config) {
    std::string why;
    if (mirror_.Start(config, db_, why)) return true;
    std::fprintf(stderr, "kwstore: %s\n", why.c_str());
    return false;
}

bool StoreApp::OpenNet(KwDS* config) {
    std::string why;
    if (net_.Start(config == nullptr ? nullptr : config->GetStruct("Net"), GetCommand(), why)) {
        if (net_.CanWait() && input_.Start([this] { net_.Wake(); })) rest_ = kRest;
        return true;
    }
    std::fprintf(stderr, "kwstore: %s\n", why.c_str());
    return false;
}

void StoreApp::OnPackList(const std::string&, KwCmd*) {
    commands_.Settle();
    for (int i = 0; i < packs_.GetPackCount(); ++i) {
        const KwFilePack* pack = packs_.GetPack(i);
        std::printf("%s: %d entries, %u bytes\n", pack->GetPath(), pack->GetItemCount(), pack->GetPackSize());
    }
    std::printf("%d packs\n", packs_.GetPackCount());
    std::fflush(stdout);
}

void StoreApp::OnTableList(const std::string&, KwCmd*) {
    commands_.Settle();
    tables_.List();
    std::fflush(stdout);
}

void StoreApp::OnTableCount(const std::string&, KwCmd* params) {
    commands_.Settle();
    tables_.Count(params->GetString(1, ""));
    std::fflush(stdout);
}

void StoreApp::OnTableRow(const std::string&, KwCmd* params) {
    commands_.Settle();
    tables_.Row(params->GetString(1, ""), params->GetInt(2, 0));
    std::fflush(stdout);
}

void StoreApp::OnTableFind(const std::string&, KwCmd* params) {
    commands_.Settle();
    tables_.Find(params->GetString(1, ""), params->GetString(2, ""), params->GetString(3, nullptr));
    std::fflush(stdout);
}

void StoreApp::OnInfoMemory(const std::string&, KwCmd*) {
    commands_.Settle();
    double held = 0;
    double allocated = 0;
    KwMemory::QueryInfo(&held, &allocated, nullptr);
    std::printf("%.0f bytes held from the system, %.0f bytes handed out since the start\n", held, allocated);
    std::fflush(stdout);
}

void StoreApp::OnInfoVersion(const std::string&, KwCmd*) {
    commands_.Settle();
    std::printf("Kw %s\n", Kw_Version());
    std::fflush(stdout);
}

void StoreApp::OnMirrorStat(const std::string&, KwCmd*) {
    commands_.Settle();
    std::printf("%s\n", mirror_.Describe().c_str());
    std::fflush(stdout);
}

void StoreApp::OnLogFile(const std::string&, KwCmd* params) {
    commands_.Settle();
    const char* path = params->GetString(1, "");
    if (path[0] == '\0') {
        KwLogSystem::SetOutputLogConsole(false);
    } else {
        KwLogSystem::SetOutputLogFile(path, true);
    }
    // Shows up where the log goes now: on the console when the file could not be opened.
    KwLogSystem::Push("log opened by %s", Name());
}
