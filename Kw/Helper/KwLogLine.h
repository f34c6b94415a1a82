// KwLogLine: one formatted line of a log. Internal.
//
// Lines of up to 1,024 characters need no memory beside the object; it never uses the tracked allocator.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "Kw/KwDefine.h"

// One formatted line, made outside the lock. Room is kept in front of the text for the time prefix and
// the name, and behind it for the line end, so that a line goes out in one piece.
class KwLogLine {
public:
    KwLogLine() = default;
    KwLogLine(const KwLogLine&) = delete;
    KwLogLine& operator=(const KwLogLine&) = delete;
    ~KwLogLine();

    // False, with no usable content, when the format is not valid. `args` is used up and not null; `name` may be.
    bool Format(const char* format, va_list args, const char* name) KW_PRINTF(2, 0);
    // A line of ready text. `name` is not copied, neither here nor above.
    void SetText(const char* text, const char* name);

    // The line from its prefix to its end, valid until the next call. `prefix` may be empty.
    struct Piece {
        const char* data;
        std::size_t size;
    };
    Piece Whole(const char* prefix, std::size_t prefixSize, bool withName);
    Piece Text() const { return {text_, textSize_}; }

private:
    static constexpr std::size_t kPrefixRoom = 64;
    static constexpr std::size_t kTextRoom = 1024;

    // Makes room for `textSize` characters; what does not fit into memory is cut.
    void Reserve(std::size_t textSize, const char* name);

    const char* name_ = nullptr;  // null when there is none
    std::size_t nameSize_ = 0;
    char* heap_ = nullptr;  // in place of stack_ for long lines
    char* text_ = stack_ + kPrefixRoom;
    std::size_t room_ = kTextRoom;  // characters from text_ on, the line end not counted
    std::size_t textSize_ = 0;
    char stack_[kPrefixRoom + kTextRoom + 1];
};
