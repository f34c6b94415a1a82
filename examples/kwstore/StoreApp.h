// StoreApp: kwstore's application object: its configuration, its tables, its store and its console commands.
#pragma once

#include <string>

#include <Kw/Kw.h>

#include "StoreCommands.h"
#include "StoreDB.h"
#include "StoreFlush.h"
#include "StoreLog.h"
#include "StoreMirror.h"
#include "StoreNet.h"
#include "StorePlugins.h"
#include "StoreTables.h"

class StoreApp : public KwAppClass {
public:
    // For Run: where OnRun waits the main loop need not sleep.
    int GetPassesPerSleep() const { return net_.CanWait() ? 1 << 30 : 1; }

protected:
    bool OnInit(KwDS* config) override;
    void OnPreRun() override;
    void OnRun(unsigned int tick) override;
    void OnClose() override;
    // Asks at a terminal; without one nobody could answer, and the store stops.
    bool CanStopApp() override;

private:
    // The configuration's "AppName", or what the program is called.
    const char* Name() const;
    void AddPaths(KwDS* config);
    void OpenPacks(KwDS* config);
    bool OpenStore(KwDS* config);
    bool OpenMirror(KwDS* config);
    bool OpenNet(KwDS* config);
    void AddEvents(KwDS* config);
    void OnTimed(EVTIMETYPE type, unsigned int param);
    void OnPackList(const std::string& name, KwCmd* params);
    void OnTableList(const std::string& name, KwCmd* params);
    void OnTableCount(const std::string& name, KwCmd* params);
    void OnTableRow(const std::string& name, KwCmd* params);
    void OnTableFind(const std::string& name, KwCmd* params);
    void OnInfoMemory(const std::string& name, KwCmd* params);
    void OnInfoVersion(const std::string& name, KwCmd* params);
    void OnMirrorStat(const std::string& name, KwCmd* params);
    void OnLogFile(const std::string& name, KwCmd* params);

    StoreLog log_;
    KwFilePackList packs_{true};
    StoreTables tables_;
    StoreDB db_;
    StoreFlush flush_;
    StoreMirror mirror_;
    StoreCommands commands_{db_, tables_};
    StoreNet net_{commands_};
    KwInputWatch input_;
    unsigned int rest_ = 5;  // ms that a pass waits for packets and lines at most
    KwEventTime events_;
    StorePlugins plugins_{commands_};
};
