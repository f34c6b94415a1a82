// The packets between a program and kwstore, and the words of a line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

constexpr unsigned char kRequest = 1;
constexpr unsigned char kLast = 2;
constexpr unsigned char kMore = 3;
constexpr unsigned int kAnswerHeader = 4;  // bytes: type, length, status

// The packet of a command and its parameters. A value of `set` that is longer than a parameter goes on in the next
// ones. Throws ToolError for what fits no packet.
std::string MakeRequest(const std::vector<std::string>& words);

// The words of a line: blanks part them, quotes of either kind keep blanks. Throws ToolError where one is open.
std::vector<std::string> SplitLine(std::string_view line);
