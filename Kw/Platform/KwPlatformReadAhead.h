// What was read from standard input and not handed out yet, taken key by key or line by line.
// Internal to the seam; whoever holds one guards it.
#pragma once

namespace KwPlatform {

struct ReadAhead {
    static constexpr int kCapacity = 8192;

    int begin = 0;
    int end = 0;
    bool terminal = false;       // the bytes come from a POSIX terminal: its escape sequences are keys
    bool ended = false;          // the system reported the end; bytes may still be here
    bool skipLine = false;       // inside a line that is too long
    bool skipLineFeed = false;   // behind a CR
    bool lineOpen = false;       // keys were handed out since the last Enter
    bool answered = false;       // a question took its key; an Enter right behind it belongs to the answer
    int secondKey = -1;          // the key behind an extended key's prefix
    long long partialSince = 0;  // ms, since when the bytes here are the beginning of a key; 0: they are not
    unsigned char data[kCapacity] = {};

    // Forgets all bytes and states, for another input.
    void Reset();

    // Forgets the keys that were typed ahead.
    void DropTyped();

    // Moves the bytes to the front and says where more can be put and how many; Added tells how many came.
    unsigned char* Room(int& room);
    void Added(int count);

    // Puts bytes in front of the others again; at most the room there is.
    void PutBack(const char* bytes, int count);

    // The next key, see KeyRead; -1 when none is whole. `take` removes it. `nowMs` is a steady time.
    int NextKey(bool take, long long nowMs);

    // The bytes of one key arrive closer together than this.
    static constexpr int kKeyGapMs = 50;

    enum class Take { None, Line, TooLong };

    // The next line, see LineRead.
    Take TakeLine(char* buffer, int size);

private:
    // Drops the rest of a line that was too long; true once its end was seen.
    bool SkipLine();
};

}  // namespace KwPlatform
