// StorePlugin: what kwstore and its plug-ins tell each other; all that a plug-in includes beside Kw.
//
// A plug-in exports kStorePluginEntry as `extern "C" void (void* host)`, where `host` is a StorePluginHost. It adds its
// commands there and leaves an object. kwstore calls the object's OnEvent on each pass of its main loop, every 25 ms or
// more often, with a pointer to the tick (unsigned int, ms), until it returns false. When the plug-in is closed the
// object is deleted: its destructor takes the commands away and ends the threads, for the code goes right afterwards.
// Everything runs on the main thread.
#pragma once

#include <Kw/Kw.h>

struct StorePluginHost {
    static constexpr unsigned int kVersion = 1;

    unsigned int version = kVersion;                                       // another one: leave `plugin` null
    KwCommand* commands = nullptr;                                         // stays longer than the plug-in
    void (*say)(const StorePluginHost& host, const char* text) = nullptr;  // prints a line behind answers that wait
    void* store = nullptr;                                                 // for `say`
    KwEvent_Base* plugin = nullptr;  // out: the plug-in's object, made by new; null refuses to work here
};

inline constexpr char kStorePluginEntry[] = "StorePluginEntry";
