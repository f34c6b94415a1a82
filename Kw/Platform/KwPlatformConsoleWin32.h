// What the Win32 sources of console, input and process share. Internal to the Win32 half of the seam.
#pragma once

namespace KwPlatform {

// False for a service, whose boxes nobody could ever answer. True does not promise that a box can be made.
bool DesktopIsVisible();

// Writes UTF-8 to the console, behind what standard output got so far. A character whose bytes come in
// several calls appears with its last byte. Nothing without a console.
void ScreenWrite(const char* text, int length);

// Wipes one character left of the cursor.
void ScreenErase(const char* text, int length);

}  // namespace KwPlatform
