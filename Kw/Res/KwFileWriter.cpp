#include "Kw/Res/KwFileWriter.h"

#include <cstring>

bool KwFileWriter::Flush(std::FILE* stream) {
    if (used_ == 0) return true;
    const std::size_t taken = std::fwrite(bytes_, 1, used_, stream);
    used_ -= static_cast<unsigned int>(taken);
    if (used_ == 0) return true;
    std::clearerr(stream);
    std::memmove(bytes_, bytes_ + taken, used_);
    return false;
}
