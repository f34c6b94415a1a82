#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "common/PathText.h"
#include "common/ToolError.h"
#include "kwpack/TargetFolder.h"

namespace {

constexpr int kTries = 100;

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) : number_(other.number_) { other.number_ = -1; }
    Descriptor& operator=(Descriptor&& other) {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() { Close(); }
    int Get() const { return number_; }
    bool Close() {
        const int number = number_;
        number_ = -1;
        return number < 0 || close(number) == 0;
    }

private:
    int number_;
};

bool WriteAll(int file, const void* data, std::size_t size) {
    const char* next = static_cast<const char*>(data);
    while (size != 0) {
        const ssize_t count = write(file, next, size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        next += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

std::string Why(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

}  // namespace

TargetFolder::TargetFolder(const std::string& path, bool replace) : path_(path), replace_(replace) {
    std::error_code ignored;
    std::filesystem::create_directories(ToPath(path), ignored);
    handle_ = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle_ < 0) throw ToolError(Why(path));
}

TargetFolder::~TargetFolder() {
    if (handle_ >= 0) close(handle_);
}

std::string TargetFolder::Write(const std::string& name, const void* data, std::size_t size) {
    // From folder to folder by descriptor, so that nobody can put a link in the way meanwhile.
    Descriptor folder(fcntl(handle_, F_DUPFD_CLOEXEC, 0));
    std::size_t begin = 0;
    for (std::size_t end = name.find('/'); end != std::string::npos; end = name.find('/', begin)) {
        const std::string part = name.substr(begin, end - begin);
        if (mkdirat(folder.Get(), part.c_str(), 0777) != 0 && errno != EEXIST) return Why(name.substr(0, end));
        Descriptor next(openat(folder.Get(), part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (next.Get() < 0) return name.substr(0, end) + " is a link or no folder there";
        folder = std::move(next);
        begin = end + 1;
    }
    const std::string leaf = name.substr(begin);
    std::string fresh = leaf;
    Descriptor file(-1);
    for (int i = 1; file.Get() < 0; ++i) {
        if (replace_) fresh = leaf + ".new" + std::to_string(i);
        file = Descriptor(openat(folder.Get(), fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (!replace_ || errno != EEXIST || i == kTries) break;
    }
    if (file.Get() < 0) {
        return errno == EEXIST ? "there is something of that name already, see --replace" : Why("it cannot be made");
    }
    std::string why;
    if (!WriteAll(file.Get(), data, size) || !file.Close()) why = Why("it cannot be written");
    if (why.empty() && replace_ && renameat(folder.Get(), fresh.c_str(), folder.Get(), leaf.c_str()) != 0) {
        why = Why("it cannot be put in its place");
    }
    if (!why.empty()) unlinkat(folder.Get(), fresh.c_str(), 0);
    return why;
}
