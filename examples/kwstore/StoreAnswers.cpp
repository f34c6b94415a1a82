#include "StoreAnswers.h"

#include <cstdio>

namespace {

constexpr std::size_t kKeep = 1u << 20;  // bytes of texts whose room is kept

}  // namespace

void StoreConsoleSource::Answer(StoreStatus, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
}

void StoreConsoleSource::Send() {
    std::fflush(stdout);
}

StoreAnswers::~StoreAnswers() {
    for (; first_ < answers_.size(); ++first_) answers_[first_].to->Release();
}

void StoreAnswers::Say(StoreSource& to, StoreStatus status) {
    Push({&to, 0, 0, texts_.size(), status, false});
}

void StoreAnswers::SayChange(StoreSource& to, unsigned long long droppedBefore) {
    Push({&to, db_.GetQueuedCount(), droppedBefore, texts_.size(), StoreStatus::kDone, true});
}

void StoreAnswers::Push(const Answer& answer) {
    answers_.push_back(answer);
    answer.to->Hold();
    ++answer.to->waiting_;
}

void StoreAnswers::Settle(bool last) {
    const unsigned long long done = db_.GetDoneCount();
    const unsigned long long dropped = db_.GetDroppedCount();
    const bool failed = last || db_.IsFailed();
    std::size_t start = first_ == 0 ? 0 : answers_[first_ - 1].end;
    for (; first_ < answers_.size(); ++first_) {
        const Answer& answer = answers_[first_];
        if (!failed && answer.after > done) break;
        const bool lost = answer.isChange && (answer.dropped != dropped || (failed && answer.after > done));
        HandOut(answer, std::string_view(texts_).substr(start, answer.end - start), lost);
        start = answer.end;
    }
    if (first_ == answers_.size()) Forget();
    for (StoreSource* source : answered_) {
        source->answered_ = false;
        source->Send();
        source->Release();
    }
    answered_.clear();
}

void StoreAnswers::HandOut(const Answer& answer, std::string_view text, bool lost) {
    StoreSource& to = *answer.to;
    if (lost) {
        lostText_.assign("error: perhaps not on the disk, try db.save: ").append(text);
        to.Answer(StoreStatus::kError, lostText_);
    } else {
        to.Answer(answer.status, text);
    }
    --to.waiting_;
    if (to.answered_) {
        to.Release();
    } else {
        // The answer's hold goes on to the list.
        to.answered_ = true;
        answered_.push_back(&to);
    }
}

void StoreAnswers::Forget() {
    first_ = 0;
    answers_.clear();
    texts_.clear();
    if (texts_.capacity() > kKeep) std::string().swap(texts_);
}
