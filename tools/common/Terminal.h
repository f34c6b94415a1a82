// Whether the standard streams are terminals.
#pragma once

enum class Stream { kOutput, kError };

bool IsTerminal(Stream stream);
