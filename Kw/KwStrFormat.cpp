#include <cstdarg>

#include "Kw/KwFormat.h"
#include "Kw/KwStr.h"

namespace {

// What Format gives for the count that Print gave: the text is terminated inside its size.
template <class C>
int Finish(C* dst, int size, int count) {
    if (count >= 0 && count < size) {
        dst[count] = 0;
        return count;
    }
    if (size < 1) return -1;
    dst[count < 0 ? 0 : size - 1] = 0;
    return -1;
}

}  // namespace

int KwStr::Format(char* dst, int size, const char* format, ...) {
    if (dst == nullptr || format == nullptr) return 0;
    va_list args;
    va_start(args, format);
    const int count = KwFormat::Print(dst, size > 0 ? static_cast<unsigned int>(size) : 0, format, args);
    va_end(args);
    return Finish(dst, size, count);
}

int KwStr::Format(KwWChar* dst, int size, const KwWChar* format, ...) {
    if (dst == nullptr || format == nullptr) return 0;
    va_list args;
    va_start(args, format);
    const int count = KwFormat::Print(dst, size > 0 ? static_cast<unsigned int>(size) : 0, format, args);
    va_end(args);
    return Finish(dst, size, count);
}
