#include "Kw/Helper/KwLog.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "Kw/Helper/KwLogLine.h"
#include "Kw/Helper/KwLogRotation.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwLock.h"
#include "Kw/KwTick.h"
#include "Kw/KwTime.h"
#include "Kw/Res/KwRes.h"

class KwLogLock : public KwLock {
public:
    KW_TRACKED_NEW
};

namespace {

// Holds the lock for a scope, if there is one.
class Guard {
public:
    explicit Guard(KwLock* lock) : lock_(lock) {
        if (lock_ != nullptr) lock_->Enter();
    }
    ~Guard() {
        if (lock_ != nullptr) lock_->Leave();
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    KwLock* lock_;
};

}  // namespace

KwLog::KwLog(const KwLog& other) {
    *this = other;
}

KwLog& KwLog::operator=(const KwLog& other) {
    if (this == &other) return *this;
    Close();
    directory_ = other.directory_;
    name_ = other.name_;
    linesPerCheck_ = other.linesPerCheck_;
    checkInterval_ = other.checkInterval_;
    checkOnWrite_ = other.checkOnWrite_;
    if (other.lock_ != nullptr && lock_ == nullptr) lock_ = new KwLogLock;
    delete rotation_;
    rotation_ = other.rotation_ == nullptr ? nullptr : new KwLogRotation(*other.rotation_);
    return *this;
}

KwLog::~KwLog() {
    file_.Close();
    delete rotation_;
    delete lock_;
}

bool KwLog::Init(const char* directory, const char* name, bool withLock, int linesPerCheck, unsigned int checkSeconds) {
    const Guard guard(lock_);
    directory_ = directory == nullptr ? "" : directory;
    name_ = name == nullptr ? "" : name;
    linesPerCheck_ = std::max(linesPerCheck, 1);
    checkInterval_ = std::min(checkSeconds, 0x7FFFFFFFu / 1000) * 1000;
    nextCheckTick_ = 0;
    checked_ = false;
    lines_ = 0;
    lost_ = false;
    if (!directory_.empty()) KwRes::CreateFolder(directory_.c_str(), true, 0);
    if (!OpenFile()) return false;
    if (withLock && lock_ == nullptr) lock_ = new KwLogLock;
    return true;
}

void KwLog::Close() {
    const Guard guard(lock_);
    file_.Close();
    lines_ = 0;
    lost_ = false;
}

void KwLog::Flush() {
    const Guard guard(lock_);
    file_.Flush();
}

bool KwLog::IsCheckDue(unsigned int tick) const {
    if (!checked_) return tick != 0;
    // From the last check on, so that the wrap of the tick does not show.
    return Kw_IsTickPast(tick, nextCheckTick_ - checkInterval_, checkInterval_);
}

void KwLog::Run(unsigned int tick) {
    const Guard guard(lock_);
    if ((lines_ != 0 || lost_) && (lines_ > linesPerCheck_ || IsCheckDue(tick))) Reopen(tick);
    RotateIfDue();
}

void KwLog::SetRotation(unsigned int maxBytes, unsigned int maxAgeSeconds, int keep) {
    const Guard guard(lock_);
    delete rotation_;
    rotation_ = maxBytes == 0 && maxAgeSeconds == 0 ? nullptr : new KwLogRotation(maxBytes, maxAgeSeconds, keep);
    // An open file is found again by its name.
    if (file_.CanWrite()) lost_ = !OpenFile();
}

void KwLog::_OnCheck() {
    const unsigned int tick = KwTime::GetTime();
    if (lines_ <= linesPerCheck_ && ((lines_ <= linesPerCheck_ / 2 && !lost_) || !IsCheckDue(tick))) return;
    Reopen(tick);
}

void KwLog::Reopen(unsigned int tick) {
    nextCheckTick_ = tick + checkInterval_;
    checked_ = true;
    lines_ = 0;
    // A file that cannot be opened now (its folder is gone, the disk is full) is tried at each later check.
    lost_ = !OpenFile();
}

bool KwLog::OpenFile() {
    char path[KwRes::kPathSize] = "";
    GetNewFile(path, directory_.c_str(), name_.c_str());
    if (!file_.Append(path)) return false;
    if (rotation_ == nullptr) return true;
    const bool fresh = file_.Size() == 0;
    rotation_->Opened(path, fresh);
    if (fresh) rotation_->Prune(name_);
    return true;
}

// The caller holds the lock.
void KwLog::RotateIfDue() {
    if (rotation_ == nullptr || !file_.CanWrite() || !rotation_->IsDue(file_.Size())) return;
    file_.Close();
    rotation_->Shift();
    lost_ = !OpenFile();
}

void KwLog::Write(const char* text, int length) {
    if (text == nullptr) text = "";
    const Guard guard(lock_);
    WriteLine(text, length < 0 ? static_cast<unsigned int>(std::strlen(text)) : static_cast<unsigned int>(length));
}

void KwLog::WriteF(const char* format, ...) {
    va_list args;
    va_start(args, format);
    WriteV(format, args);
    va_end(args);
}

void KwLog::WriteV(const char* format, va_list args) {
    // Formatted before the lock is taken, so that writers hold it for the copy only.
    KwLogLine line;
    va_list copy;
    va_copy(copy, args);
    const bool formatted = format != nullptr && line.Format(format, copy, nullptr);
    va_end(copy);
    const Guard guard(lock_);
    if (file_.CanWrite() && format != nullptr && !formatted) KwLogSystem::Push("writefilev error");
    const KwLogLine::Piece text = formatted ? line.Text() : KwLogLine::Piece{"", 0};
    WriteLine(text.data, static_cast<unsigned int>(text.size));
}

// The caller holds the lock.
void KwLog::WriteLine(const char* text, unsigned int length) {
    if (!file_.CanWrite()) {
        if (lost_ && checkOnWrite_) _OnCheck();
        if (!file_.CanWrite()) return;
    }
    _OnWriteTime();
    OnBeginWrite(&file_);
    if (length != 0) file_.Write(text, length);
    OnEndWrite(&file_);
    file_.Write("\n", 1);
    ++lines_;
    RotateIfDue();
    if (checkOnWrite_) _OnCheck();
}

void KwLog::_OnWriteTime() {
    const int form = GetTimeWrite();
    if (form != 1 && form != 2) return;
    STime now = {};
    KwTime::GetCurTime(&now);
    char text[64];
    const int length = form == 1
                           ? std::snprintf(text, sizeof(text), "[%02d_%02d_%02d]", now.hour, now.minute, now.second)
                           : std::snprintf(text, sizeof(text), "[%02d_%02d_%02d/%02d/%02d/%02d]", now.hour, now.minute,
                                           now.second, now.day, now.month, now.year);
    file_.Write(text, static_cast<unsigned int>(length));
}

void KwLog::GetNewFile(char* out, const char* directory, const char* name) {
    STime now = {};
    KwTime::GetCurTime(&now);
    const int length = std::snprintf(out, KwRes::kPathSize, "%s\\%s_%02d_%02d_%02d.log", directory, name, now.day,
                                     now.month, now.year);
    if (length >= KwRes::kPathSize) out[0] = '\0';
}

void KwLog::OnBeginWrite(KwFile*) {}
void KwLog::OnEndWrite(KwFile*) {}
int KwLog::GetTimeWrite() {
    return 0;
}
