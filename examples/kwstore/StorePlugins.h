// StorePlugins: the plug-ins that the configuration or the console names.
//
// Thread-safety: none; the main thread owns it.
#pragma once

#include <list>
#include <string>

#include <Kw/Kw.h>

#include "StoreCommands.h"
#include "StorePlugin.h"

class StorePlugins : public KwInfLock {
public:
    explicit StorePlugins(StoreCommands& answers) : answers_(answers) {}
    ~StorePlugins() override { Close(); }
    StorePlugins(const StorePlugins&) = delete;
    StorePlugins& operator=(const StorePlugins&) = delete;

    // Loads what the configuration's "Plugins" names. One that is missing is reported and leaves the others usable.
    void Open(KwDS* config, KwCommand* commands);
    // Calls the plug-ins and closes those that were to be closed: here none of their code is on the stack.
    void Pass(unsigned int tick);
    void Close();

private:
    struct Plugin {
        std::string name;  // as it was given
        std::string file;  // the manager's name
        const KwLoadLib* lib = nullptr;
        StorePluginHost host;
        bool wantsPasses = true;
        bool closing = false;
    };

    // False, with one line on the console, when it is not loaded.
    bool Load(const std::string& name);
    // Whether it wants more of them; what it throws ends its passes, not the store.
    bool CallPass(Plugin& plugin, unsigned int tick);
    Plugin* Find(const std::string& name);
    void Unload(Plugin& plugin);
    void Say(const std::string& text);
    void OnList(const std::string& name, KwCmd* params);
    void OnLoad(const std::string& name, KwCmd* params);
    void OnClose(const std::string& name, KwCmd* params);

    StoreCommands& answers_;
    KwCommand* commands_ = nullptr;
    KwLoadLibManager libraries_;
    std::list<Plugin> plugins_;  // in the order in which they came
};
