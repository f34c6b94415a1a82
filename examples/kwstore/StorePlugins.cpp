#include "StorePlugins.h"

#include <cstdio>
#include <exception>

void StorePlugins::Open(KwDS* config, KwCommand* commands) {
    commands_ = commands;
    commands->Add("plugin.list", this, &StorePlugins::OnList, "the plug-ins");
    commands->Add("plugin.load", this, &StorePlugins::OnLoad, "NAME: loads a plug-in");
    commands->Add("plugin.close", this, &StorePlugins::OnClose, "NAME: takes a plug-in away");
    KwDS* names = config == nullptr ? nullptr : config->GetStruct("Plugins");
    if (names == nullptr) return;
    for (int i = 1; i <= names->GetArraySize(); ++i) Load(names->GetString(i, nullptr, ""));
}

bool StorePlugins::Load(const std::string& name) {
    if (Find(name) != nullptr) {
        Say("\"" + name + "\" is there");
        return false;
    }
    // Through the resource paths, then beside the program; with the ending of either system.
    std::string file;
    KwLoadLib* lib = nullptr;
    for (const char* folder : {"", KwRes::GetProcessPath()}) {
        for (const char* ending : {"", ".so", ".dll"}) {
            if (lib != nullptr || name.empty()) continue;
            file = folder + name + ending;
            if (KwRes::IsFileExist(file.c_str(), false)) lib = libraries_.Load(file.c_str());
        }
    }
    if (lib == nullptr) {
        Say("error: no plug-in \"" + name + "\" can be loaded");
        return false;
    }
    // With its ending or in capitals it is the same library, which goes with the first that is closed.
    for (const Plugin& plugin : plugins_) {
        if (plugin.lib != lib) continue;
        Say("\"" + name + "\" is there as \"" + plugin.name + "\"");
        return false;
    }
    plugins_.emplace_back();
    Plugin& plugin = plugins_.back();
    plugin.name = name;
    plugin.file = file;
    plugin.lib = lib;
    plugin.host.commands = commands_;
    plugin.host.store = this;
    plugin.host.say = [](const StorePluginHost& host, const char* text) {
        static_cast<StorePlugins*>(host.store)->Say(text);
    };
    std::string why = "it does not work here";
    try {
        if (libraries_.CreateEntryPoint(file.c_str(), kStorePluginEntry, &plugin.host) == nullptr)
            why = "it has no entry";
    } catch (const std::exception& error) {
        why = error.what();
    } catch (...) {
        why = "it threw";
    }
    if (plugin.host.plugin != nullptr) return true;
    Say("error: the plug-in \"" + name + "\" is not taken: " + why);
    Unload(plugin);
    plugins_.pop_back();
    return false;
}

void StorePlugins::Pass(unsigned int tick) {
    for (auto plugin = plugins_.begin(); plugin != plugins_.end();) {
        if (!plugin->closing && plugin->wantsPasses) plugin->wantsPasses = CallPass(*plugin, tick);
        if (!plugin->closing) {
            ++plugin;
            continue;
        }
        Unload(*plugin);
        Say("closed \"" + plugin->name + "\"");
        plugin = plugins_.erase(plugin);
    }
}

bool StorePlugins::CallPass(Plugin& plugin, unsigned int tick) {
    std::string why = "it threw";
    try {
        return plugin.host.plugin->OnEvent(&tick);
    } catch (const std::exception& error) {
        why = error.what();
    } catch (...) {
    }
    Say("error: the plug-in \"" + plugin.name + "\" gets no more passes: " + why);
    return false;
}

void StorePlugins::Close() {
    while (!plugins_.empty()) {
        Unload(plugins_.back());
        plugins_.pop_back();
    }
}

StorePlugins::Plugin* StorePlugins::Find(const std::string& name) {
    for (Plugin& plugin : plugins_) {
        if (plugin.name == name) return &plugin;
    }
    return nullptr;
}

void StorePlugins::Unload(Plugin& plugin) {
    // The object's code is the library's.
    delete plugin.host.plugin;
    libraries_.CloseLib(plugin.file.c_str());
}

void StorePlugins::Say(const std::string& text) {
    answers_.Settle();
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

void StorePlugins::OnList(const std::string&, KwCmd*) {
    std::string text;
    for (const Plugin& plugin : plugins_) text += plugin.name + ": " + plugin.file + "\n";
    Say(text + std::to_string(plugins_.size()) + " plug-ins");
}

void StorePlugins::OnLoad(const std::string&, KwCmd* params) {
    const std::string name = params->GetString(1, "");
    if (Load(name)) Say("loaded \"" + name + "\"");
}

void StorePlugins::OnClose(const std::string&, KwCmd* params) {
    const std::string name = params->GetString(1, "");
    Plugin* const plugin = Find(name);
    if (plugin == nullptr) return Say("no plug-in \"" + name + "\"");
    // The line may come from the plug-in itself: its code goes when it has returned.
    plugin->closing = true;
}
