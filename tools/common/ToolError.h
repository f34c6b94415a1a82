// What ends a command: a file that is missing, or that cannot be read or written, or a task that cannot be done.
#pragma once

#include <stdexcept>

class ToolError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};
