// A plug-in for the tests: start and end, data, thread variables, exceptions, and calls of other libraries.
#include <cstdlib>
#include <string>

#include "Kw/KwDefine.h"

namespace {

struct Life {
    Life() { started = 1; }
    ~Life() {
        if (farewell != nullptr) farewell(param);
    }
    int started = 0;
    void (*farewell)(void*) = nullptr;
    void* param = nullptr;
};
Life g_life;
thread_local int t_calls = 0;
const char* const g_names[] = {"zero", "one", "two"};  // addresses that loading corrects

}  // namespace

extern "C" {

KW_PLUGIN int KwTestNumber = 4711;

KW_PLUGIN int KwTestAdd(int a, int b) {
    return a + b;
}
// Sum of what the module has of its own: 1 for the constructor, and the calls on this thread.
KW_PLUGIN int KwTestState() {
    return g_life.started * 100 + ++t_calls;
}
KW_PLUGIN const char* KwTestName(int number) {
    return g_names[number];
}
KW_PLUGIN int KwTestThrow(int value) {
    try {
        if (value != 0) throw std::string(static_cast<std::size_t>(value), 'x');
    } catch (const std::string& text) {
        return static_cast<int>(text.size());
    }
    return std::abs(value);
}
// What is called when the module goes.
KW_PLUGIN void KwTestFarewell(void (*function)(void*), void* param) {
    g_life.farewell = function;
    g_life.param = param;
}
// An entry point: calls the function that it is given.
KW_PLUGIN void KwTestEntry(void* param) {
    (*static_cast<void (**)(void*)>(param))(param);
}
}
