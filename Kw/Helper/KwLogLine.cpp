#include "Kw/Helper/KwLogLine.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Kw/KwFormat.h"

KwLogLine::~KwLogLine() {
    std::free(heap_);
}

void KwLogLine::Reserve(std::size_t textSize, const char* name) {
    name_ = name;
    nameSize_ = name == nullptr ? 0 : std::strlen(name);
    const std::size_t front = kPrefixRoom + (nameSize_ == 0 ? 0 : nameSize_ + 2);
    if (front + textSize <= kPrefixRoom + kTextRoom) {
        text_ = stack_ + front;
        room_ = kPrefixRoom + kTextRoom - front;
        return;
    }
    std::free(heap_);
    heap_ = static_cast<char*>(std::malloc(front + textSize + 1));
    if (heap_ != nullptr) {
        text_ = heap_ + front;
        room_ = textSize;
        return;
    }
    // Out of memory: better a cut line without its name than none.
    nameSize_ = 0;
    text_ = stack_ + kPrefixRoom;
    room_ = kTextRoom;
}

bool KwLogLine::Format(const char* format, va_list args, const char* name) {
    if (name != nullptr && *name != '\0') Reserve(kTextRoom / 2, name);
    va_list again;
    va_copy(again, args);
    int length = KwFormat::Print(text_, static_cast<unsigned int>(room_), format, args);
    if (length > 0 && static_cast<std::size_t>(length) > room_) {
        Reserve(static_cast<std::size_t>(length), name);
        length = KwFormat::Print(text_, static_cast<unsigned int>(room_), format, again);
    }
    va_end(again);
    if (length < 0) return false;
    textSize_ = std::min(static_cast<std::size_t>(length), room_);
    text_[textSize_] = '\n';
    return true;
}

void KwLogLine::SetText(const char* text, const char* name) {
    const std::size_t length = std::strlen(text);
    Reserve(length, name);
    textSize_ = std::min(length, room_);
    std::memcpy(text_, text, textSize_);
    text_[textSize_] = '\n';
}

KwLogLine::Piece KwLogLine::Whole(const char* prefix, std::size_t prefixSize, bool withName) {
    char* start = text_;
    if (withName && nameSize_ != 0) {
        *--start = ']';
        start -= nameSize_;
        std::memcpy(start, name_, nameSize_);
        *--start = '[';
    }
    start -= prefixSize;
    std::memcpy(start, prefix, prefixSize);
    return {start, static_cast<std::size_t>(text_ + textSize_ + 1 - start)};
}
