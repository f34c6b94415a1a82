// StoreImport: a task that makes an object of each row of a table, some rows in each step.
//
// It deletes itself at its end, behind a call of `done` with what there is to say.
// Thread-safety: none; the main thread runs it.
#pragma once

#include <functional>
#include <string>

#include <Kw/Kw.h>

#include "StoreDB.h"

class StoreImport : public KwTaskNode {
public:
    using Done = std::function<void(const StoreImport& import, const std::string& text)>;

    // `cells`, whose first row has the titles, outlives the task; column `key` names the objects.
    StoreImport(StoreDB& db, const std::string& table, const KwTablePtr& cells, int key, Done done)
        : db_(db), table_(table), cells_(cells), key_(key), done_(std::move(done)) {}

    const std::string& GetTable() const { return table_; }
    // The records that the store had dropped when the import began.
    unsigned long long GetDroppedBefore() const { return droppedBefore_; }

protected:
    bool OnRunTask() override;
    void OnDestroyTask() override;

private:
    void ImportRow(int row);

    StoreDB& db_;
    std::string table_;
    const KwTablePtr& cells_;
    int key_;
    Done done_;
    unsigned long long droppedBefore_ = db_.GetDroppedCount();
    int row_ = 2;  // the next one; counts from 1
    unsigned int changed_ = 0;
    unsigned int same_ = 0;
    unsigned int refused_ = 0;
};
