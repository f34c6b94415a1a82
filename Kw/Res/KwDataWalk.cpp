#include "Kw/Res/KwDataWalk.h"

#include <cstdint>
#include <cstdio>
#include <new>
#include <string_view>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Helper/KwMath.h"
#include "Kw/KwStr.h"
#include "Kw/Res/KwDataObject.h"
#include "Kw/Res/KwDataSlab.h"
#include "Kw/Res/KwTable.h"

namespace {

// What waits to be destroyed by the outermost destruction of this thread.
struct Waiting {
    KwDS* documents = nullptr;
    KwTable* tables = nullptr;
    bool busy = false;
};
constinit thread_local Waiting t_waiting;

}  // namespace

// --- Destroying ---

KwDataWalk::DestroyScope::DestroyScope() : outermost_(!t_waiting.busy) {
    t_waiting.busy = true;
}

KwDataWalk::DestroyScope::~DestroyScope() {
    if (!outermost_) return;
    DestroyWaiting();
    t_waiting.busy = false;
}

void KwDataWalk::Destroy(KwDS* document) {
    if (document == nullptr) return;
    const DestroyScope scope;
    document->outer_ = t_waiting.documents;
    t_waiting.documents = document;
}

void KwDataWalk::Destroy(KwTable* table) {
    if (table == nullptr) return;
    const DestroyScope scope;
    table->nextDead_ = t_waiting.tables;
    t_waiting.tables = table;
}

void KwDataWalk::DestroyWaiting() {
    Waiting& waiting = t_waiting;
    const KwDataSlab::GiveScope scope;
    while (waiting.documents != nullptr || waiting.tables != nullptr) {
        if (KwDS* document = waiting.documents; document != nullptr) {
            waiting.documents = document->outer_;
            document->outer_ = nullptr;
            Destroy(*document);
        } else {
            KwTable* table = waiting.tables;
            waiting.tables = table->nextDead_;
            delete table;
        }
    }
}

void KwDataWalk::Destroy(KwDS& document) {
    if (!document.inSlab_) {
        delete &document;
    } else if (document.slabParts_ != 0 && !document.touched_.load(std::memory_order_relaxed)) {
        KwDataSlab::Give(&document, document.slabParts_);
    } else {
        document.~KwDS();
        KwDataSlab::Give(&document);
    }
}

// A document that was touched lies in touched ones only. Several threads may do this at once, each for a
// document of its own.
void KwDataWalk::Touch(KwDS* document) {
    while (document != nullptr && !document->touched_.load(std::memory_order_relaxed)) {
        document->touched_.store(true, std::memory_order_relaxed);
        document = document->outer_;
    }
}

// --- Copying ---

// Copies one document or table after the other; what is nested in one waits until it is done.
class KwDataWalk::Copier {
public:
    void Document(KwDS& target, const KwDS& source) { documents_.push_back({&target, &source}); }
    void Table(KwTable& target, const KwTable& source) { tables_.push_back({&target, &source}); }

    void Run() {
        while (!documents_.empty() || !tables_.empty()) {
            if (!documents_.empty()) {
                const auto [target, source] = documents_.back();
                documents_.pop_back();
                for (const auto& [name, item] : source->members_)
                    Item(target->members_.try_emplace(target->members_.end(), name)->second, item, target);
                for (const auto& [index, item] : source->indexed_)
                    Item(target->indexed_.try_emplace(target->indexed_.end(), index)->second, item, target);
            } else {
                const auto [target, source] = tables_.back();
                tables_.pop_back();
                target->rowCount_ = source->rowCount_;
                target->columnCount_ = source->columnCount_;
                for (const auto& [row, cells] : source->rows_) {
                    KwTable::Row& copy = target->rows_.try_emplace(target->rows_.end(), row)->second;
                    for (const auto& [column, item] : cells)
                        Item(copy.try_emplace(copy.end(), column)->second, item, nullptr);
                }
            }
        }
    }

private:
    void Item(KwDSItem& target, const KwDSItem& source, KwDS* owner) {
        const KwDSItem::Cell& cell = source.value_.cell;
        switch (source.type_) {
            case DSTYPE_INT: target = static_cast<int>(cell.intValue); break;
            case DSTYPE_UINT: target = static_cast<unsigned int>(cell.uintValue); break;
            case DSTYPE_DOUBLE: target = source.value_.number; break;
            case DSTYPE_STRING: target.SetString(source.Text(), static_cast<int>(cell.length)); break;
            case DSTYPE_WSTRING: target.SetString(cell.wide, static_cast<int>(cell.length)); break;
            case DSTYPE_OBJECT: {
                const KwDS* document = cell.document;
                KwDS* copy = document != nullptr ? new KwDS : nullptr;
                target = copy;
                if (copy != nullptr) Document(*copy, *document);
                break;
            }
            case DSTYPE_TABLE: {
                const KwTable* table = cell.table;
                KwTable* copy = table != nullptr ? new KwTable : nullptr;
                target = copy;
                if (copy != nullptr) Table(*copy, *table);
                break;
            }
            case DSTYPE_REFERENCE:
                target.SetString(source.Text(), static_cast<int>(cell.length));
                target.type_ = DSTYPE_REFERENCE;
                break;
            default: break;
        }
        target.owner_ = owner;
    }

    std::vector<std::pair<KwDS*, const KwDS*>> documents_;
    std::vector<std::pair<KwTable*, const KwTable*>> tables_;
};

// The source may be nested in the target or hold it, so the old content goes last.
void KwDataWalk::Copy(KwDS& target, const KwDS& source) {
    if (&target == &source) return;
    try {
        KwDS copy;
        Copier copier;
        copier.Document(copy, source);
        copier.Run();
        Touch(&target);
        copy.members_.swap(target.members_);
        copy.indexed_.swap(target.indexed_);
        for (auto& entry : target.members_) entry.second.owner_ = &target;
        for (auto& entry : target.indexed_) entry.second.owner_ = &target;
    } catch (const std::bad_alloc&) {
        KwLogSystem::Push("[%s] out of memory", "KwDS::operator=");
    }
}

void KwDataWalk::Copy(KwTable& target, const KwTable& source) {
    if (&target == &source) return;
    try {
        KwTable copy;
        Copier copier;
        copier.Table(copy, source);
        copier.Run();
        copy.rows_.swap(target.rows_);
        target.rowCount_ = copy.rowCount_;
        target.columnCount_ = copy.columnCount_;
    } catch (const std::bad_alloc&) {
        KwLogSystem::Push("[%s] out of memory", "KwTable::operator=");
    }
}

// --- Printing ---

class KwDataWalk::Dump {
public:
    void Item(KwDSItem& item) {
        item.Commit();
        const KwDSItem::Cell& cell = item.value_.cell;
        const auto low32 = [](const void* ptr) {
            return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(ptr));
        };
        switch (item.type_) {
            case DSTYPE_INT: std::printf("%d(INT)\n", cell.intValue); break;
            case DSTYPE_UINT: std::printf("%u(UINT)\n", cell.uintValue); break;
            case DSTYPE_DOUBLE: std::printf("%f(Double)\n", item.value_.number); break;
            case DSTYPE_STRING: std::printf("%s(%d)(String)\n", item.Text(), static_cast<int>(cell.length)); break;
            case DSTYPE_WSTRING: WideText(cell.wide, static_cast<int>(cell.length)); break;
            case DSTYPE_OBJECT:
                std::printf("%u(Object)\n", low32(cell.document));
                if (cell.document != nullptr) Document(*cell.document);
                break;
            case DSTYPE_TABLE:
                std::printf("%u(Table)\n", low32(cell.table));
                if (cell.table != nullptr) Table(*cell.table);
                break;
            default: std::printf("Error type=%d\n", static_cast<int>(item.type_)); break;
        }
    }

    void Document(KwDS& document) {
        KwLogSystem::Push("Show Struct");
        KwLogSystem::Push("Show %d index", document.GetArraySize());
        Frame frame;
        frame.document = &document;
        frame.indexed = document.indexed_.begin();
        stack_.push_back(frame);
    }

    void Table(KwTable& table) {
        KwLogSystem::Push("Show table %d row,%d column", table.GetRowNum(), table.GetColumnNum());
        Frame frame;
        frame.table = &table;
        frame.row = table.rows_.begin();
        if (frame.row != table.rows_.end()) frame.cell = frame.row->second.begin();
        stack_.push_back(frame);
    }

    // Prints what the calls above have begun.
    void Run() {
        while (!stack_.empty()) {
            const bool more = stack_.back().table != nullptr ? NextCell() : NextEntry();
            if (!more) stack_.pop_back();
        }
    }

private:
    // A document or table that is being printed, and where in it.
    struct Frame {
        KwDS* document = nullptr;
        bool inMembers = false;  // else in the numbered entries
        KwDS::IndexMap::iterator indexed;
        KwDS::Members::iterator member;
        KwTable* table = nullptr;
        KwTable::RowMap::iterator row;
        KwTable::Row::iterator cell;
    };

    // Print one entry, and begin what is nested in it, which invalidates the frame. False at the end.
    bool NextEntry() {
        Frame& frame = stack_.back();
        KwDS& document = *frame.document;
        if (!frame.inMembers) {
            if (frame.indexed != document.indexed_.end()) {
                auto& [index, item] = *frame.indexed++;
                std::printf("[%d]=", index);
                Item(item);
                return true;
            }
            frame.inMembers = true;
            frame.member = document.members_.begin();
            KwLogSystem::Push("Show %d Name", document.GetMemberSize());
        }
        if (frame.member == document.members_.end()) return false;
        auto& [name, item] = *frame.member++;
        std::printf("[%s]=", name.c_str());
        Item(item);
        return true;
    }

    bool NextCell() {
        Frame& frame = stack_.back();
        while (frame.row != frame.table->rows_.end() && frame.cell == frame.row->second.end()) {
            if (++frame.row != frame.table->rows_.end()) frame.cell = frame.row->second.begin();
        }
        if (frame.row == frame.table->rows_.end()) return false;
        auto& [column, item] = *frame.cell++;
        std::printf("[%d|%d]=", frame.row->first, column);
        Item(item);
        return true;
    }

    // As UTF-8: a stream of standard C cannot take wide output once it has taken narrow output.
    static void WideText(const KwWChar* text, int len) {
        std::string narrow(static_cast<std::size_t>(len) * 3 + 1, '\0');
        if (len > 0) KwStr::UTF16ToUTF8(narrow.data(), static_cast<int>(narrow.size()), text, len * 2);
        std::printf("%s(%d)(WString)\n", narrow.c_str(), len);
    }

    std::vector<Frame> stack_;
};

void KwDataWalk::Show(KwDSItem& item) {
    Dump dump;
    dump.Item(item);
    dump.Run();
}

void KwDataWalk::Show(KwDS& document) {
    Dump dump;
    dump.Document(document);
    dump.Run();
}

void KwDataWalk::Show(KwTable& table) {
    Dump dump;
    dump.Table(table);
    dump.Run();
}

// --- References ---

KwDSItem* KwDataWalk::FollowReference(const KwDSItem& reference) {
    constexpr std::size_t kLongestName = 63;
    std::string_view path(reference.Text(), reference.value_.cell.length);
    KwDS* document = reference.owner_;
    if (document == nullptr || path.empty() || path[0] != '$') return nullptr;
    path.remove_prefix(1);
    for (;;) {
        const std::size_t cut = std::min(path.find_first_of(".]"), path.size());
        const std::string_view piece = path.substr(0, cut);
        if (piece.empty()) return nullptr;
        KwDSItem* item = nullptr;
        if (piece[0] == '[') {
            item = document->Find(KwMath::ToInt(piece.data() + 1, static_cast<int>(piece.size() - 1)));
        } else {
            item = document->Find(piece.substr(0, kLongestName));
        }
        if (item == nullptr || item == &reference) return nullptr;
        if (item->type_ == DSTYPE_REFERENCE) return item;
        document = item->GetStruct();
        if (document == nullptr || cut == path.size()) return nullptr;
        path.remove_prefix(cut + 1);
    }
}
