#include "Kw/Helper/KwLogQuickMulti.h"

#include <cstring>
#include <mutex>

#include "Kw/Helper/KwConvertString.h"
#include "Kw/Helper/KwLogQueue.h"

KwLogQuickMulti::KwLogQuickMulti() : queue_(new KwLogQueue) {}

KwLogQuickMulti::~KwLogQuickMulti() {
    CloseLog();
    delete queue_;
}

bool KwLogQuickMulti::InitLog(const char* directory, const char* name, int linesPerCheck, unsigned int checkSeconds) {
    return Init(directory, name, false, linesPerCheck, checkSeconds);
}

void KwLogQuickMulti::CloseLog() {
    RunLog(0);
    Close();
}

int KwLogQuickMulti::RunLog(unsigned int tick) {
    if (!IsOpen()) {
        Run(tick);
        return 0;
    }
    const KwLogQueue::Lines* lines;
    unsigned int dropped;
    {
        const std::lock_guard<KwLock> guard(posting_);
        lines = &queue_->Turn();
        dropped = queue_->TakeDropped();
    }
    const int count =
        lines->ForEach([this](const char* text, std::uint32_t size) { Write(text, static_cast<int>(size)); });
    if (dropped != 0) WriteF("%u log lines lost", dropped);
    if (count != 0) Flush();
    Run(tick);
    return count;
}

bool KwLogQuickMulti::PostLog(const char* text, int length) {
    if (text == nullptr) text = "";
    const std::size_t size = length < 0 ? std::strlen(text) : static_cast<std::size_t>(length);
    const std::lock_guard<KwLock> guard(posting_);
    return queue_->Push(text, size);
}

bool KwLogQuickMulti::PostLog(const KwWChar* text, int length) {
    KwConvertToUTF8 narrow;
    return narrow.Set(text, length) && PostLog(narrow.Get(), narrow.GetLength());
}
