// StoreAnswers: the answers that wait until what they report is written.
//
// They leave in the order of the commands: with the durable setting a change that was answered, or that an answer
// shows, is on the disk. What leaves at the same time leaves a source together.
// Thread-safety: none; the main thread owns it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "StoreDB.h"
#include "StoreSource.h"

class StoreAnswers {
public:
    explicit StoreAnswers(StoreDB& db) : db_(db) {}
    ~StoreAnswers();
    StoreAnswers(const StoreAnswers&) = delete;
    StoreAnswers& operator=(const StoreAnswers&) = delete;

    // The text of the next answer is appended here, and the answer then queued by one of the two.
    std::string& Text() { return texts_; }
    void Say(StoreSource& to, StoreStatus status);
    // The answer to a change; the store had dropped that many records before.
    void SayChange(StoreSource& to, unsigned long long droppedBefore);

    // Hands out what need wait no longer. `last`, once the store is closed, answers what could not be written.
    void Settle(bool last);
    std::size_t GetWaiting() const { return answers_.size() - first_; }

private:
    struct Answer {
        StoreSource* to;
        unsigned long long after;    // the number of records that must be done
        unsigned long long dropped;  // the number that had been dropped before
        std::size_t end;             // of its text
        StoreStatus status;
        bool isChange;
    };

    void Push(const Answer& answer);
    void HandOut(const Answer& answer, std::string_view text, bool lost);
    void Forget();

    StoreDB& db_;
    // The texts of all that wait, and those that were handed out before them.
    std::string texts_;
    std::vector<Answer> answers_;
    std::size_t first_ = 0;  // that waits
    std::vector<StoreSource*> answered_;
    std::string lostText_;
};
