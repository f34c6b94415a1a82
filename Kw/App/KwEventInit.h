// KwEventInit: the process-wide start-up hooks of the host and its parts.
//
// Any source declares a static KwEventInit with a function or a CBKwEventInit; the application then calls each
// hook at its init, start, close and destroy phases, in the order of registration. A phase runs once per
// process. The table belongs to the process: it outlives a release of the library.
// An exception that leaves a hook is logged. It counts as false, and as true where false would remove the hook.
// Thread-safety: none. Registration is meant for static construction, the phases for the main thread.
#pragma once

#include "Kw/KwDefine.h"

// A hook as an object. Whoever registers it keeps it alive as long as its entry. It takes no part in the
// tracked allocation, so that it can stand beside another base class.
class KW_API CBKwEventInit {
public:
    virtual ~CBKwEventInit();
    // The init and start phases; false fails the phase and ends it.
    virtual bool OnEventInit();
    virtual bool OnEventStart();
    // The close phase; the result is ignored.
    virtual void OnEventClose();
    // The destroy phase, and removal by code: the last call that the object gets.
    virtual void OnEventDestroy();
    // A code, see KwEventInit::CallEventCode and CallEventDeleteByCode. The default is true.
    virtual bool OnEventCode(int code);
};

class KW_API KwEventInit {
public:
    // What a function hook is told in its first argument; the second is 0, or the code.
    enum Event {
        kInit = 1,     // false fails the phase
        kStart = 2,    // false fails the phase
        kClose = 3,    // the result is ignored
        kDestroy = 4,  // the result is ignored
        kCode = 5,     // false ends CallEventCode; for a negated code it asks for removal
        kRemoved = 6,  // the result is ignored
    };
    using Hook = bool (*)(int event, int argument);

    // Registers a hook; null registers nothing. When memory is out, all registrations are forgotten and
    // one line on standard output says so.
    KwEventInit(Hook hook);
    KwEventInit(CBKwEventInit* object);
    KwEventInit(const KwEventInit&) = default;  // a copy registers nothing
    KwEventInit& operator=(const KwEventInit&);

    // Run a phase: true when every hook agreed; the first that does not ends it. A second call is true
    // without calling anything. Hooks registered meanwhile are called too.
    static bool CallEventInit();
    static bool CallEventStart();
    static void CallEventClose();
    // Afterwards every entry is out of use.
    static void CallEventDestroy();

    // Passes `code` to every hook, any number of times; false when one of them ended it.
    static bool CallEventCode(int code);

    // Passes the negated code to every hook and drops those that answer false, each with a last notice.
    static void CallEventDeleteByCode(int code);
};
