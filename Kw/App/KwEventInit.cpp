#include "Kw/App/KwEventInit.h"

#include <cstdio>
#include <cstdlib>

#include "Kw/KwGuardedCall.h"

namespace {

constexpr int kGrowth = 10;

struct Entry {
    int kind;  // 1: object, 0: function
    union {
        CBKwEventInit* object;
        KwEventInit::Hook function;
    };

    bool IsUsed() const { return kind == 1 ? object != nullptr : function != nullptr; }
    void Drop() {
        kind = 1;
        object = nullptr;
    }
};

// Constant-initialised and on the plain heap: static objects of a host register before this library's
// constructors run, and their entries stay across a release of the library.
struct Table {
    Entry* entries = nullptr;
    int count = 0;
    unsigned int phases = 0;  // bits 1, 2, 4, 8: init, start, close, destroy have run
    int capacity = 0;

    void Add(const Entry& entry) {
        if (entries == nullptr || count == capacity) {
            const int wanted = capacity + kGrowth;
            entries = static_cast<Entry*>(std::realloc(entries, static_cast<std::size_t>(wanted) * sizeof(Entry)));
            if (entries == nullptr) {
                // The old block stays behind: nothing is known of who else runs out of memory here.
                count = capacity = 0;
                std::puts("event init error memory");
                return;
            }
            capacity = wanted;
        }
        entries[count++] = entry;
    }

    void Reset() {
        std::free(entries);
        entries = nullptr;
        count = capacity = 0;
    }

    // Marks a phase as run; false when it had been.
    bool Begin(unsigned int phase) {
        if ((phases & phase) != 0) return false;
        phases |= phase;
        return true;
    }

    // Calls `call` with a copy of each entry in use, until it returns false. A hook may register others, which
    // moves the table: the count and the entries are read anew each time.
    template <class Call>
    bool Walk(Call call) {
        for (int i = 0; i < count; ++i) {
            const Entry entry = entries[i];
            if (entry.IsUsed() && !call(i, entry)) return false;
        }
        return true;
    }

    void Drop(int index) {
        if (index < count) entries[index].Drop();
    }
};

constinit Table g_table;

// The answer of a hook; `otherwise` when an exception left it.
template <class Call>
bool Answer(const char* phase, bool otherwise, Call call) {
    bool answer = otherwise;
    KwGuardedCall("a start-up hook,", phase, [&] { answer = call(); });
    return answer;
}

// One phase of one hook.
bool CallInit(const Entry& entry) {
    return Answer("init phase", false, [&] {
        return entry.kind == 1 ? entry.object->OnEventInit() : entry.function(KwEventInit::kInit, 0);
    });
}

bool CallStart(const Entry& entry) {
    return Answer("start phase", false, [&] {
        return entry.kind == 1 ? entry.object->OnEventStart() : entry.function(KwEventInit::kStart, 0);
    });
}

void CallClose(const Entry& entry) {
    KwGuardedCall("a start-up hook,", "close phase", [&] {
        if (entry.kind == 1) {
            entry.object->OnEventClose();
        } else {
            entry.function(KwEventInit::kClose, 0);
        }
    });
}

// The destroy phase, or the notice of removal.
void CallDestroy(const Entry& entry, KwEventInit::Event event, int argument) {
    KwGuardedCall("a start-up hook,", "destroy phase", [&] {
        if (entry.kind == 1) {
            entry.object->OnEventDestroy();
        } else {
            entry.function(event, argument);
        }
    });
}

bool CallCode(const Entry& entry, int code, bool otherwise) {
    return Answer("code", otherwise, [&] {
        return entry.kind == 1 ? entry.object->OnEventCode(code) : entry.function(KwEventInit::kCode, code);
    });
}

// The library is unloaded: its table goes with it.
[[gnu::destructor(101)]] void OnUnload() {
    g_table.Reset();
}

}  // namespace

CBKwEventInit::~CBKwEventInit() = default;
bool CBKwEventInit::OnEventInit() {
    return true;
}
bool CBKwEventInit::OnEventStart() {
    return true;
}
void CBKwEventInit::OnEventClose() {}
void CBKwEventInit::OnEventDestroy() {}
bool CBKwEventInit::OnEventCode(int) {
    return true;
}

KwEventInit::KwEventInit(Hook hook) {
    if (hook == nullptr) return;
    Entry entry{};
    entry.kind = 0;
    entry.function = hook;
    g_table.Add(entry);
}

KwEventInit::KwEventInit(CBKwEventInit* object) {
    if (object == nullptr) return;
    Entry entry{};
    entry.kind = 1;
    entry.object = object;
    g_table.Add(entry);
}

KwEventInit& KwEventInit::operator=(const KwEventInit&) {
    return *this;
}

bool KwEventInit::CallEventInit() {
    if (!g_table.Begin(1)) return true;
    return g_table.Walk([](int, const Entry& entry) { return CallInit(entry); });
}

bool KwEventInit::CallEventStart() {
    if (!g_table.Begin(2)) return true;
    return g_table.Walk([](int, const Entry& entry) { return CallStart(entry); });
}

void KwEventInit::CallEventClose() {
    if (!g_table.Begin(4)) return;
    g_table.Walk([](int, const Entry& entry) {
        CallClose(entry);
        return true;
    });
}

void KwEventInit::CallEventDestroy() {
    if (!g_table.Begin(8)) return;
    g_table.Walk([](int index, const Entry& entry) {
        CallDestroy(entry, kDestroy, 0);
        g_table.Drop(index);
        return true;
    });
}

bool KwEventInit::CallEventCode(int code) {
    return g_table.Walk([code](int, const Entry& entry) { return CallCode(entry, code, false); });
}

void KwEventInit::CallEventDeleteByCode(int code) {
    // A hook tells the question whether it stays from an ordinary code by the sign. Negated without overflow.
    const int question = static_cast<int>(0u - static_cast<unsigned int>(code));
    g_table.Walk([code, question](int index, const Entry& entry) {
        if (CallCode(entry, question, true)) return true;
        CallDestroy(entry, kRemoved, code);
        g_table.Drop(index);
        return true;
    });
}
