// The search index: operations that the input lists, each compared with the same on a map, in both modes.
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <memory>

#include "Kw/Res/KwDataSearch.h"

namespace {

struct Record {
    std::uint32_t key;
};

void Require(bool ok) {
    if (!ok) std::abort();
}

class Index : public KwDataSearchId {
public:
    ~Index() override { Close(); }
    void OnAdd(void*) override { ++held; }
    // The record goes with its removal, so that a look into it afterwards is seen.
    void OnRemove(void* data) override {
        const std::unique_ptr<Record> record(static_cast<Record*>(data));
        const auto at = model.find(record->key);
        Require(at != model.end() && at->second == data);
        model.erase(at);
        --held;
        if (alsoRemove != kNone) {
            const std::uint64_t other = alsoRemove;
            alsoRemove = kNone;
            Remove(static_cast<unsigned int>(other));
        }
    }
    int OnCompare(void* data, unsigned int key) override {
        const unsigned int own = OnGetKeyFromData(data);
        return own < key ? -1 : own > key;
    }
    unsigned int OnGetKeyFromData(void* data) override { return static_cast<Record*>(data)->key; }

    static constexpr std::uint64_t kNone = ~std::uint64_t{0};
    std::map<unsigned int, void*> model;
    std::uint64_t alsoRemove = kNone;
    int held = 0;
};

class Session {
public:
    Session(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {
        callbacks_ = Byte() % 2 != 0;
        Require(index_.Init(0, Byte(), callbacks_));
    }
    void Run() {
        while (next_ != end_) {
            const std::uint8_t what = Byte();
            const unsigned int key = Key();
            // Many at a time: one input byte each would hardly fill a page.
            const unsigned int step = what >> 4;
            const unsigned int times = 1 + Byte() % 64;
            for (unsigned int i = 0; i < times; ++i) Do(what % 16, key + i * step);
            Require(index_.GetCount() == static_cast<int>(index_.model.size()) && index_.held == index_.GetCount());
        }
        Compare(index_);
    }

private:
    using Place = std::map<unsigned int, void*>::iterator;

    std::uint8_t Byte() { return next_ != end_ ? *next_++ : std::uint8_t{0}; }
    unsigned int Key() {
        const unsigned int key = Byte() | static_cast<unsigned int>(Byte()) << 8;
        return (key & 0x8000u) != 0 ? 0xFFFF0000u | key : key;
    }
    void* At(Place place) { return place != index_.model.end() ? place->second : nullptr; }
    void* Before(Place place) { return place != index_.model.begin() ? std::prev(place)->second : nullptr; }

    void Do(unsigned int what, unsigned int key) {
        auto& model = index_.model;
        switch (what) {
            case 0:
            case 1:
            case 2: Take(key, true); break;
            case 3: Take(key, false); break;
            case 4:
            case 5: Remove(key); break;
            case 6:
                index_.alsoRemove = key - 3;  // which moves the record that is being removed
                Remove(key);
                index_.alsoRemove = Index::kNone;
                break;
            case 7:
                Require(index_.Search(key) == At(model.find(key)));
                Require(index_.Next() == At(model.upper_bound(key)));
                break;
            case 8:
                index_.Search(key);
                Require(index_.Prev() == Before(model.lower_bound(key)));
                break;
            case 9: index_.Search(key); break;
            case 10: Known(index_.Next()); break;
            case 11: Known(index_.Prev()); break;
            case 12: Require(index_.First() == At(model.begin())); break;
            case 13: Require(index_.Last() == nullptr && index_.Next() == nullptr); break;
            case 14: Require(index_.Commit()); break;
            default:
                if (key % 16 != 0) break;
                if (callbacks_) {
                    index_.Close();
                    ranEmpty_ = false;
                } else {
                    KwDataSearchId copy(index_);
                    Compare(copy);
                }
                break;
        }
    }
    void Take(unsigned int key, bool anywhere) {
        auto& model = index_.model;
        const bool isNew =
            anywhere ? model.count(key) == 0 && !ranEmpty_ : model.empty() || model.rbegin()->first < key;
        auto record = std::make_unique<Record>(Record{key});
        int page = -1, at = -1;
        Require((anywhere ? index_.Add(record.get(), &page, &at) : index_.InsertData(record.get())) == isNew);
        if (!isNew) return;
        Require(!anywhere || (page >= 0 && at >= 0));
        model[key] = record.release();
        ranEmpty_ = false;
    }
    void Remove(unsigned int key) {
        const bool had = index_.model.count(key) != 0;
        Require(index_.Remove(key) == had);
        ranEmpty_ = ranEmpty_ || (had && index_.model.empty());
    }
    void Known(void* data) {
        if (data == nullptr) return;
        const auto found = index_.model.find(static_cast<Record*>(data)->key);
        Require(found != index_.model.end() && found->second == data);
    }
    void Compare(KwDataSearchId& index) {
        void* record = index.First();
        for (const auto& [key, wanted] : index_.model) {
            Require(record == wanted);
            record = index.Next();
        }
        Require(record == nullptr);
    }

    const std::uint8_t* next_;
    const std::uint8_t* end_;
    bool callbacks_ = false;
    bool ranEmpty_ = false;  // Add refuses until Close or InsertData
    Index index_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Session(data, size).Run();
    return 0;
}
