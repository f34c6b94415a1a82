// A key typed at a console, as bytes for the read-ahead. Internal to the Win32 half of the seam.
#pragma once

namespace KwPlatform {

constexpr int kTypedKeyBytes = 16;

// Takes the key that _kbhit has reported and stores it into `bytes` (kTypedKeyBytes long): text as UTF-8,
// Enter as a line feed, extended keys with their prefix as KeyRead tells them. Returns the bytes stored; 0
// for a key that means nothing in a line.
int TypedKeyRead(unsigned char* bytes);

}  // namespace KwPlatform
