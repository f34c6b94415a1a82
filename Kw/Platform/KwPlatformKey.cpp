#include "Kw/Platform/KwPlatformKey.h"

#include "Kw/Platform/KwPlatformInput.h"

namespace KwPlatform {

namespace {

constexpr int kEscape = 27;
constexpr int kLongestSequence = 32;

struct Extended {
    int prefix;
    int key;
};

// Keys without a place in a line come with prefix 0, which leaves nothing in it.
Extended FromFinal(int final) {
    switch (final) {
        case 'A': return {224, 72};
        case 'B': return {224, 80};
        case 'C': return {224, 77};
        case 'D': return {224, 75};
        case 'H': return {0, 71};
        case 'F': return {0, 79};
        case 'P': return {0, 59};
        case 'Q': return {0, 60};
        case 'R': return {0, 61};
        case 'S': return {0, 62};
        default: return {-1, -1};
    }
}

// The number of "ESC [ number ~".
Extended FromNumber(int number) {
    switch (number) {
        case 1:
        case 7: return {0, 71};
        case 2: return {0, 82};
        case 3: return {224, 83};
        case 4:
        case 8: return {0, 79};
        case 5: return {0, 73};
        case 6: return {0, 81};
        default: break;
    }
    if (number >= 11 && number <= 15) return {0, 59 + number - 11};
    if (number >= 17 && number <= 21) return {0, 64 + number - 17};
    if (number == 23 || number == 24) return {0, 133 + number - 23};
    return {-1, -1};
}

// "ESC O letter" and "ESC [ parameters final"; anything else behind ESC leaves only the ESC out.
KeyDecoded DecodeEscape(const unsigned char* bytes, int count, bool last) {
    if (count < 2) return {last ? 1 : 0};
    if (bytes[1] == 'O') {
        if (count < 3) return {last ? 2 : 0};
        const Extended key = FromFinal(bytes[2]);
        return {3, key.prefix, key.key};
    }
    if (bytes[1] != '[') return {1};
    int number = 0;
    bool first = true;  // still in the first parameter; the others tell Shift and the like
    for (int i = 2; i < count && i < kLongestSequence; ++i) {
        const int byte = bytes[i];
        if (byte >= '0' && byte <= '9') {
            if (first && number < 1000) number = number * 10 + byte - '0';
        } else if (byte >= 0x40 && byte <= 0x7E) {
            const Extended key = byte == '~' ? FromNumber(number) : FromFinal(byte);
            return {i + 1, key.prefix, key.key};
        } else if (byte >= 0x20 && byte <= 0x3F) {
            first = false;
        } else {
            return {i};  // not a sequence: what came is no key, this byte starts the next one
        }
    }
    if (count >= kLongestSequence) return {kLongestSequence};
    return {last ? count : 0};
}

}  // namespace

KeyDecoded DecodeKey(const unsigned char* bytes, int count, bool terminal, bool last) {
    const int byte = bytes[0];
    if (byte == '\r' || byte == '\n') return {1, kKeyEnter};
    if (byte == kKeyBackspace) return {1, kKeyBackspace};
    if (terminal) {
        if (byte == 127) return {1, kKeyBackspace};
        if (byte == kEscape) return DecodeEscape(bytes, count, last);
        if (byte < 32 && byte != '\t') return {1};
    }
    if (byte != 0 && byte != 224) return {1, byte};
    if (count < 2) return last ? KeyDecoded{1, byte | kKeyText} : KeyDecoded{0};
    // 224 is also a lead byte of UTF-8, and a prefix must not swallow the end of a line.
    const int next = bytes[1];
    const bool text = next == '\r' || next == '\n' || (byte == 224 && next >= 0x80 && next < 0xC0);
    return text ? KeyDecoded{1, byte | kKeyText} : KeyDecoded{2, byte, next};
}

}  // namespace KwPlatform
