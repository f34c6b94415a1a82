#include "Kw/Platform/KwPlatformTextWin32.h"
// The Windows header comes first.
#include <conio.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Kw/Platform/KwPlatformConsoleWin32.h"
#include "Kw/Platform/KwPlatformInput.h"
#include "Kw/Platform/KwPlatformKey.h"
#include "Kw/Platform/KwPlatformReadAhead.h"
#include "Kw/Platform/KwPlatformTypedKeyWin32.h"

namespace KwPlatform {

namespace {

constexpr DWORD kRetryMs = 50;      // how often a reader looks again at what it cannot wait for
constexpr int kPart = 4096;         // bytes of one read
constexpr int kLongestLine = 4096;  // with its terminator
constexpr int kMostEmptyReads = 8;  // an empty write to a pipe looks like its end, once
constexpr int kEchoTab = ' ';       // a tab would move the cursor by a distance that cannot be wiped again

// Standard input, shared by the key and the line readers. A console is asked for its keys; a pipe or a file is
// read by a thread of its own, because no call tells for every kind of input whether a read would block.
struct Input {
    SRWLOCK lock = SRWLOCK_INIT;
    CONDITION_VARIABLE room = CONDITION_VARIABLE_INIT;  // in the read-ahead
    HANDLE arrived = nullptr;  // set when the read-ahead got more, reset by who is going to wait for that
    HANDLE handle = nullptr;   // standard input at the last look
    bool looked = false;
    bool console = false;
    bool reading = false;         // the reader thread of this input runs
    unsigned int generation = 0;  // counts the inputs; a reader whose input is not the present one ends
    int claims = 0;               // of the keys; line readers wait meanwhile
    bool tooLong = false;         // the line being typed does not fit
    int typedLength = 0;          // bytes of the line being typed for a line reader
    char typed[kLongestLine] = {};
    ReadAhead ahead;
};

Input g_input;
std::atomic<bool> g_ended{false};  // nothing more can come: the shortcut of every poll

class Guard {
public:
    Guard() { AcquireSRWLockExclusive(&g_input.lock); }
    ~Guard() { ReleaseSRWLockExclusive(&g_input.lock); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
};

void Look() {
    Input& input = g_input;
    if (input.looked) return;
    DWORD mode;
    input.looked = true;
    input.handle = GetStdHandle(STD_INPUT_HANDLE);
    input.console = GetConsoleMode(input.handle, &mode) != 0;
    if (input.arrived == nullptr) input.arrived = CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

void Announce() {
    if (g_input.arrived != nullptr) SetEvent(g_input.arrived);
}

// --- A pipe or a file ---

struct Reader {
    HANDLE handle;
    HMODULE library;
    unsigned int generation;
};

// Hands on what was read; false when nobody wants it any more. A count of 0 is the end.
bool Deliver(const Reader& reader, const unsigned char* bytes, int count) {
    const Guard guard;
    Input& input = g_input;
    int room = 0;
    unsigned char* data = nullptr;
    for (;;) {
        if (input.generation != reader.generation) return false;
        data = input.ahead.Room(room);
        if (room >= count) break;
        SleepConditionVariableSRW(&input.room, &input.lock, INFINITE, 0);
    }
    if (count > 0) {
        std::memcpy(data, bytes, static_cast<std::size_t>(count));
        input.ahead.Added(count);
    } else {
        input.ahead.ended = true;
        input.reading = false;
    }
    Announce();
    return true;
}

[[gnu::force_align_arg_pointer]] DWORD WINAPI ReadAll(void* raw) {
    const Reader reader = *static_cast<Reader*>(raw);
    std::free(raw);
    unsigned char part[kPart];
    int emptyReads = 0;
    for (;;) {
        DWORD count = 0;
        const bool read = ReadFile(reader.handle, part, kPart, &count, nullptr) != 0;
        if (read && count == 0 && ++emptyReads < kMostEmptyReads) continue;
        if (count != 0) emptyReads = 0;
        if (!Deliver(reader, part, static_cast<int>(count)) || count == 0) break;
    }
    // The thread keeps the library loaded as long as its code may run.
    if (reader.library != nullptr) FreeLibraryAndExitThread(reader.library, 0);
    return 0;
}

void StartReader() {
    Input& input = g_input;
    if (input.reading || input.ahead.ended) return;
    Reader* reader = static_cast<Reader*>(std::malloc(sizeof(Reader)));
    HANDLE thread = nullptr;
    if (reader != nullptr) {
        *reader = {input.handle, nullptr, input.generation};
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(ReadAll),
                           &reader->library);
        thread = CreateThread(nullptr, 0, ReadAll, reader, 0, nullptr);
        if (thread == nullptr && reader->library != nullptr) FreeLibrary(reader->library);
    }
    if (thread == nullptr) {
        std::free(reader);
        return;  // the next look tries again
    }
    CloseHandle(thread);
    input.reading = true;
}

// --- A console ---

// Takes the keys that wait at the console into the read-ahead.
void TakeKeys() {
    Input& input = g_input;
    // What is there and makes no key (releases, the mouse, the window) would end every wait at once.
    INPUT_RECORD records[64];
    DWORD count = 0;
    if (PeekConsoleInputW(input.handle, records, 64, &count) == 0) count = 0;
    if (_kbhit() == 0) {
        if (count != 0) ReadConsoleInputW(input.handle, records, count, &count);
        return;
    }
    for (;;) {
        int room = 0;
        unsigned char* data = input.ahead.Room(room);
        if (room < kTypedKeyBytes || _kbhit() == 0) return;
        input.ahead.Added(TypedKeyRead(data));
    }
}

void EchoTyped(int key) {
    const char c = static_cast<char>(key == '\t' ? kEchoTab : key);
    ScreenWrite(&c, 1);
}

void DropTypedCharacter() {
    Input& input = g_input;
    if (input.typedLength == 0) return;
    int start = input.typedLength - 1;
    while (start > 0 && (static_cast<unsigned char>(input.typed[start]) & 0xC0) == 0x80) --start;
    ScreenErase(input.typed + start, input.typedLength - start);
    input.typedLength = start;
}

// The line editing of a console while a line reader waits there: true when a line is whole.
bool TypeLine(char* buffer, int size, LineStatus& status) {
    Input& input = g_input;
    TakeKeys();
    for (int key = input.ahead.NextKey(true, 0); key >= 0; key = input.ahead.NextKey(true, 0)) {
        if (key == 0 || key == 224) {
            input.ahead.NextKey(true, 0);  // arrows and the like
        } else if (key == kKeyBackspace) {
            DropTypedCharacter();
        } else if (key != kKeyEnter) {
            if (input.typedLength + 1 < std::min(size, kLongestLine)) {
                input.typed[input.typedLength++] = static_cast<char>(key);
                EchoTyped(key & 0xFF);
            } else {
                input.tooLong = true;
            }
        } else {
            ScreenWrite("\r\n", 2);
            const int length = std::min(input.typedLength, size - 1);
            status = input.tooLong || length < input.typedLength ? LineStatus::TooLong : LineStatus::Line;
            std::memcpy(buffer, input.typed, static_cast<std::size_t>(length));
            buffer[length] = '\0';
            input.typedLength = 0;
            input.tooLong = false;
            return true;
        }
    }
    return false;
}

// --- Both ---

// Takes in what is there without blocking.
void Fill() {
    Look();
    if (!g_input.console) {
        StartReader();
        return;
    }
    if (g_input.typedLength != 0 && g_input.claims == 0) {
        // A line reader had taken the beginning of a line; now keys are wanted instead.
        g_input.ahead.PutBack(g_input.typed, g_input.typedLength);
        g_input.typedLength = 0;
    }
    TakeKeys();
}

int NextKey(bool take) {
    const int key = g_input.ahead.NextKey(take, static_cast<long long>(GetTickCount64()));
    if (key < 0 && g_input.ahead.ended) g_ended.store(true, std::memory_order_release);
    if (take) WakeAllConditionVariable(&g_input.room);
    return key;
}

// What to wait for until Fill can take in more; to be called with the lock held.
struct Wait {
    HANDLE handles[2] = {};
    DWORD count = 0;
    DWORD timeout = INFINITE;

    void ForInput() {
        const HANDLE source = g_input.console ? g_input.handle : g_input.arrived;
        if (!g_input.console && source != nullptr) ResetEvent(source);
        if (source == nullptr || (!g_input.console && !g_input.reading)) timeout = kRetryMs;
        if (source != nullptr) handles[count++] = source;
    }
    void ForStop(HANDLE event) {
        if (event == nullptr) {
            timeout = kRetryMs;
        } else {
            handles[count++] = event;
        }
    }
    void Sleep() const {
        if (count == 0 || WaitForMultipleObjects(count, handles, FALSE, timeout) == WAIT_FAILED) {
            ::Sleep(kRetryMs);
        }
    }
};

}  // namespace

struct LineStop {
    std::atomic<bool> stopped{false};
    HANDLE event = nullptr;  // null: the system has none left, the wait looks at the flag instead
};

bool InputIsTerminal() {
    const Guard guard;
    Look();
    return g_input.console;
}

bool InputEnded() {
    return g_ended.load(std::memory_order_acquire);
}

void InputRefresh() {
    const Guard guard;
    Input& input = g_input;
    // The handle's file is not looked at: that would wait for a reader that is at work on it. An input that
    // has come to its end may have been followed by another one of the same handle; if not, it just ends again.
    if (input.looked && input.handle == GetStdHandle(STD_INPUT_HANDLE) && !InputEnded()) return;
    ++input.generation;
    input.looked = input.reading = input.tooLong = false;
    input.typedLength = 0;
    input.ahead.Reset();
    g_ended.store(false, std::memory_order_release);
    WakeAllConditionVariable(&input.room);
    Look();
    Announce();
}

// A console is left as it was after each key.
void InputRestore() {}

void InputFlushTyped() {
    if (InputEnded()) return;
    const Guard guard;
    Look();
    if (!g_input.console) return;
    FlushConsoleInputBuffer(g_input.handle);
    g_input.ahead.DropTyped();
    g_input.typedLength = 0;
    g_input.tooLong = false;
}

void KeysClaim(bool on) {
    const Guard guard;
    g_input.claims += on ? 1 : -1;
    Announce();
}

bool KeyWaiting() {
    if (InputEnded()) return false;
    const Guard guard;
    Fill();
    return NextKey(false) >= 0;
}

int KeyRead() {
    while (!InputEnded()) {
        Wait wait;
        {
            const Guard guard;
            Fill();
            const int key = NextKey(true);
            if (key >= 0) return key;
            if (InputEnded()) return -1;
            wait.ForInput();
            if (g_input.ahead.partialSince != 0) wait.timeout = ReadAhead::kKeyGapMs;
        }
        wait.Sleep();
    }
    return -1;
}

LineStop* LineStopCreate() {
    void* memory = std::malloc(sizeof(LineStop));
    if (memory == nullptr) return nullptr;
    LineStop* stop = new (memory) LineStop;
    stop->event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return stop;
}

void LineStopDestroy(LineStop* stop) {
    if (stop == nullptr) return;
    if (stop->event != nullptr) CloseHandle(stop->event);
    stop->~LineStop();
    std::free(stop);
}

void LineStopSignal(LineStop* stop) {
    if (stop == nullptr) return;
    stop->stopped.store(true);
    if (stop->event != nullptr) SetEvent(stop->event);
}

void LineStopRearm(LineStop* stop) {
    if (stop == nullptr) return;
    if (stop->event != nullptr) ResetEvent(stop->event);
    stop->stopped.store(false);
}

bool InputWait(LineStop* stop) {
    while (!InputEnded() && (stop == nullptr || !stop->stopped.load())) {
        Wait wait;
        if (stop != nullptr) wait.ForStop(stop->event);
        {
            const Guard guard;
            Fill();
            if (NextKey(false) >= 0) return true;
            if (InputEnded()) return false;
            wait.ForInput();
        }
        wait.Sleep();
    }
    return false;
}

LineStatus LineRead(char* buffer, int size, LineStop* stop) {
    for (;;) {
        if (stop != nullptr && stop->stopped.load()) return LineStatus::Stopped;
        Wait wait;
        if (stop != nullptr) wait.ForStop(stop->event);
        {
            const Guard guard;
            Input& input = g_input;
            Look();
            if (input.claims != 0) {
                wait.timeout = kRetryMs;
            } else if (input.console) {
                LineStatus status;
                if (TypeLine(buffer, size, status)) return status;
                wait.ForInput();
            } else {
                StartReader();
                const ReadAhead::Take taken = input.ahead.TakeLine(buffer, size);
                WakeAllConditionVariable(&input.room);
                if (taken == ReadAhead::Take::Line) return LineStatus::Line;
                if (taken == ReadAhead::Take::TooLong) return LineStatus::TooLong;
                if (input.ahead.ended) {
                    g_ended.store(true, std::memory_order_release);
                    return LineStatus::End;
                }
                wait.ForInput();
            }
        }
        wait.Sleep();
    }
}

}  // namespace KwPlatform
