#include "Kw/Helper/KwLogSystem.h"

#include "Kw/Helper/KwLogData.h"
#include "Kw/Platform/KwPlatformConsole.h"

void KwLogSystem::OpenConsole(const char* title) {
    KwPlatform::ConsoleOpen(title);
}

void KwLogSystem::SetOutputLogConsole(bool withTime) {
    CLogData::Get().SetConsole(withTime);
}

void KwLogSystem::SetOutputLogFile(const char* path, bool withTime) {
    CLogData::Get().SetFile(path, withTime);
}

void KwLogSystem::SetOutputLogCallback(Callback callback, bool withTime) {
    CLogData::Get().SetCallback(callback, withTime);
}

void KwLogSystem::Flush() {
    CLogData::Get().Flush();
}

void KwLogSystem::Push(const char* format, ...) {
    va_list args;
    va_start(args, format);
    CLogData::Get().Push(format, args, nullptr);
    va_end(args);
}

bool KwLogSystem::PushRes(const char* format, ...) {
    va_list args;
    va_start(args, format);
    CLogData::Get().Push(format, args, nullptr);
    va_end(args);
    return false;
}

bool KwLogSystem::PushName(const char* name, const char* format, ...) {
    va_list args;
    va_start(args, format);
    CLogData::Get().Push(format, args, name);
    va_end(args);
    return false;
}

bool KwLogSystem::PushV(const char* format, va_list args) {
    CLogData::Get().Push(format, args, nullptr);
    return false;
}

bool KwLogSystem::PushV(const char* format, va_list args, const char* name) {
    CLogData::Get().Push(format, args, name);
    return false;
}

void KwLogSystem::SetProcessTimeWork(const char* label) {
    Push(">>>>ProcessTimeWork[%s]=%d", label == nullptr ? "" : label,
         static_cast<int>(CLogData::Get().MeasureProcessTime()));
}
