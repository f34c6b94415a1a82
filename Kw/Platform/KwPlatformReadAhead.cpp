#include "Kw/Platform/KwPlatformReadAhead.h"

#include <cstring>

#include "Kw/Platform/KwPlatformInput.h"
#include "Kw/Platform/KwPlatformKey.h"

namespace KwPlatform {

void ReadAhead::Reset() {
    begin = end = 0;
    secondKey = -1;
    terminal = ended = skipLine = skipLineFeed = lineOpen = answered = false;
    partialSince = 0;
}

void ReadAhead::DropTyped() {
    begin = end = 0;
    secondKey = -1;
}

unsigned char* ReadAhead::Room(int& room) {
    if (begin != 0) {
        std::memmove(data, data + begin, static_cast<std::size_t>(end - begin));
        end -= begin;
        begin = 0;
    }
    room = kCapacity - end;
    return data + end;
}

void ReadAhead::Added(int count) {
    end += count;
    partialSince = 0;
}

void ReadAhead::PutBack(const char* bytes, int count) {
    int room = 0;
    Room(room);
    if (count > room) count = room;
    std::memmove(data + count, data, static_cast<std::size_t>(end));
    std::memcpy(data, bytes, static_cast<std::size_t>(count));
    end += count;
}

bool ReadAhead::SkipLine() {
    const void* found = std::memchr(data + begin, '\n', static_cast<std::size_t>(end - begin));
    if (found == nullptr) {
        begin = end = 0;
        if (!ended) return false;
    } else {
        begin = static_cast<int>(static_cast<const unsigned char*>(found) - data) + 1;
    }
    skipLine = false;
    return true;
}

int ReadAhead::NextKey(bool take, long long nowMs) {
    if (secondKey >= 0) {
        const int key = secondKey;
        if (take) secondKey = -1;
        return key;
    }
    if (skipLine) SkipLine();
    while (begin != end) {
        if (skipLineFeed) {
            skipLineFeed = false;
            if (data[begin] == '\n') {
                ++begin;
                continue;
            }
        }
        const bool last = ended || (partialSince != 0 && nowMs - partialSince > kKeyGapMs);
        const KeyDecoded key = DecodeKey(data + begin, end - begin, terminal, last);
        if (key.used == 0) {
            if (partialSince == 0) partialSince = nowMs;
            return -1;
        }
        const bool dropped = key.first < 0 || (key.first == kKeyEnter && answered);
        if (!dropped && !take) return key.first;
        skipLineFeed = data[begin] == '\r';
        begin += key.used;
        partialSince = 0;
        if (key.first >= 0) answered = false;
        if (dropped) continue;
        secondKey = key.second;
        lineOpen = key.first != kKeyEnter;
        return key.first;
    }
    // What a person had only begun to type when the terminal went away is not run.
    if (ended && lineOpen && !terminal) {
        if (take) lineOpen = false;
        return kKeyEnter;
    }
    return -1;
}

ReadAhead::Take ReadAhead::TakeLine(char* buffer, int size) {
    if (skipLine) return SkipLine() ? Take::TooLong : Take::None;
    if (begin == end) return Take::None;
    const unsigned char* start = data + begin;
    int length = end - begin;
    const void* found = std::memchr(start, '\n', static_cast<std::size_t>(length));
    if (found != nullptr) {
        length = static_cast<int>(static_cast<const unsigned char*>(found) - start);
    } else if (length > size) {
        // Even if the last byte is the CR of its end, this line does not fit.
        skipLine = true;
        return SkipLine() ? Take::TooLong : Take::None;
    } else if (!ended) {
        return Take::None;
    }
    begin += length + (found != nullptr ? 1 : 0);
    if (length > 0 && start[length - 1] == '\r') --length;
    const bool answer = answered && length == 0;
    answered = false;
    if (answer) return TakeLine(buffer, size);
    if (length >= size) return Take::TooLong;
    std::memcpy(buffer, start, static_cast<std::size_t>(length));
    buffer[length] = '\0';
    return Take::Line;
}

}  // namespace KwPlatform
