// The standard streams: whether they are terminals, and the letters of a console.
#pragma once

enum class Stream { kInput, kOutput, kError };

bool IsTerminal(Stream stream);

// Lets a console show the UTF-8 that is printed, until the program ends.
void UseUtf8();

// Bytes go in or out as they are from now on.
void SetBinary(Stream stream);
