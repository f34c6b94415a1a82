// The modes of the terminal behind standard input. Internal to the POSIX half of the seam.
#pragma once

namespace KwPlatform {

// Whether this process is in the foreground of the terminal behind standard input. From the
// background reading it or changing its modes would stop the process.
bool TerminalIsForeground();

// Switches to unbuffered, unechoed keys; true when the terminal is in that mode afterwards. Cheap when it
// is already; after a failure it is tried again no more than four times a second.
bool TerminalEnterKeyMode();

// Whether the terminal is in that mode.
bool TerminalInKeyMode();

// Puts the modes back that were there before. Safe in a signal handler.
void TerminalRestore();

// Lets the signals that end or stop the process pass through TerminalRestore first, where they have
// their default effect.
void SignalGuardTerminal();

}  // namespace KwPlatform
