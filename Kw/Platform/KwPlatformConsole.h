// KwPlatformConsole: the console window or terminal: its title, its screen, questions.
//
// What needs a terminal does nothing where there is none: no escape sequence ever reaches a file or
// a pipe. What is typed comes through KwPlatformInput.
// Thread-safety: any thread.
#pragma once

namespace KwPlatform {

// Makes sure that standard output and input exist, opening a console for those that do not, turns their
// buffering off and looks at them anew (InputRefresh). A title that is neither null nor empty becomes the console's.
void ConsoleOpen(const char* title);

// Gives each standard stream that is missing to nothing, so that no file opened later takes its number: what is
// printed would be written into that file, and its content read as if it were typed.
void ConsoleKeepStreams();

// Sets the title of the console. Null and "" leave it alone; control characters are left out.
void ConsoleSetTitle(const char* title);

// Greys the close item of the console window, so that the program is only left through its own way
// out. A terminal has no such item: nothing there.
void ConsoleDisableClose();

void ConsoleClear();

// Writes `length` bytes to the terminal that is typed at, right behind what standard output got so
// far. Nothing when standard input is no terminal.
void ConsoleEcho(const char* text, int length);

// Wipes the character `text` (`length` bytes of UTF-8) left of the cursor; nothing as ConsoleEcho.
void ConsoleErase(const char* text, int length);

// Asks the person at the console and waits for yes or no; true for yes. Where nobody could answer
// (standard input is no terminal or hung up, a stop signal came, or Windows shows no box) the answer is yes.
bool ConsoleAsk(const char* caption, const char* text);

}  // namespace KwPlatform
