// KwLogSystem: the lines that also go to a file of their own. They stand above KwFile, the rest below it.
#include <mutex>

#include "Kw/Helper/KwLogData.h"
#include "Kw/Res/KwFile.h"

void KwLogSystem::WriteLog(const char* file, const char* format, ...) {
    va_list args;
    va_start(args, format);
    WriteLogV(file, format, args);
    va_end(args);
}

void KwLogSystem::WriteLogV(const char* file, const char* format, va_list args) {
    KwFile output;
    if (format == nullptr || !output.Append(file)) return;
    KwLogLine line;
    va_list copy;
    va_copy(copy, args);
    const bool formatted = line.Format(format, copy, nullptr);
    va_end(copy);

    // Both outputs get their lines in the same order.
    const std::lock_guard<KwLock> guard(CLogData::Get().GetLock());
    CLogData::Get().Push(format, args, nullptr);
    if (formatted) {
        const KwLogLine::Piece whole = line.Whole("", 0, false);
        output.Write(whole.data, static_cast<unsigned int>(whole.size));
    } else {
        Push("writefilev error");
        output.Write("\n", 1);
    }
    output.Flush();  // under the lock, which Close, that frees tracked memory, must not be
}
