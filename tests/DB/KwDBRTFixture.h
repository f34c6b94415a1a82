// KwDBRTFixture: a small database of texts, and a vocabulary to change, reopen and damage it.
#pragma once

#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "../Res/KwResFixture.h"
#include "Kw/DB/KwDBRT.h"
#include "Kw/DB/KwDBRTReader.h"
#include "Kw/Helper/KwHash.h"
#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFile.h"

class TextObject : public CKwDBRTObject {
public:
    std::string text;
    int file = -1;
    unsigned int offset = 0;
    unsigned int size = 0;
    static inline int removed = 0;

protected:
    void OnRemoveObject() override { ++removed; }
};

// Each record's payload is the whole text of its object.
class TextDB final : public CKwDBRT {
public:
    bool keyNames = false;
    bool lowNames = false;
    bool commits = true;   // OnCommit's result
    bool counts = true;    // whether a replayed record counts
    int commitCount = -1;  // of the last OnCommit
    std::vector<std::string> replayed;
    std::function<void()> onCommit;
    std::function<void()> onText;  // while a pass writes a record
    std::function<void()> onAdd;   // before an object is added

    ~TextDB() { Close(); }

    bool NameIsKey() override { return keyNames; }
    bool CheckNameIsLowUp() override { return lowNames; }
    bool CanAddObject(CKwDBRTObject*) override {
        if (onAdd) std::exchange(onAdd, nullptr)();
        return true;
    }

    TextObject* Get(double id) { return static_cast<TextObject*>(FindObject(id)); }
    TextObject* Make(double id) {
        CKwDBRTObject* object = FindObject(id);
        return static_cast<TextObject*>(object != nullptr ? object : AddObject("", id));
    }
    // Changes the object and queues a record, with the text as the object's data too if asked.
    bool Set(double id, const std::string& text, bool withData = false) {
        TextObject* object = Make(id);
        object->text = text;
        KwBuffer data;
        if (withData) {
            data.Alloc(static_cast<unsigned int>(text.size() + 1));
            data.AddData(text.data(), static_cast<unsigned int>(text.size()));
        }
        object->file = -1;
        object->offset = object->size = 0;
        KwBuffer* record =
            object->BeginUpdate(withData ? &data : nullptr, &object->file, &object->offset, &object->size);
        if (record == nullptr) return false;
        const bool fits = record->AddData(text.data(), static_cast<unsigned int>(text.size()));
        object->EndUpdate(record, fits);
        return fits;
    }
    bool SetNow(double id, const std::string& text, bool withData = false) {
        const bool set = Set(id, text, withData);
        RunTask(1);
        return set;
    }
    // The object's data as the data file has it; "?" when it cannot be read.
    std::string ReadText(double id) {
        TextObject* object = Get(id);
        KwBuffer out;
        if (object == nullptr || !object->ReadData(&out, object->file, object->offset, object->size)) return "?";
        return {reinterpret_cast<char*>(out.GetData()), out.GetUsed()};
    }
    std::map<double, std::string> State() {
        std::map<double, std::string> state;
        WalkObjects([&](CKwDBRTObject* object) { state[object->GetId()] = static_cast<TextObject*>(object)->text; });
        return state;
    }

protected:
    CKwDBRTObject* NewObject() override { return new TextObject; }
    bool OnLoadObjectData(double id, unsigned char*& cursor, unsigned char* end, int fileNumber, unsigned int offset,
                          unsigned int size, STime*, int& count) override {
        const std::string text(reinterpret_cast<char*>(cursor), static_cast<std::size_t>(end - cursor));
        cursor = end;
        if (text == "refuse") return false;
        TextObject* object = Make(id);
        if (object == nullptr) return false;
        object->text = text;
        object->file = fileNumber;
        object->offset = offset;
        object->size = size;
        replayed.push_back(text);
        if (counts) ++count;
        return true;
    }
    bool OnCommit(int count) override {
        commitCount = count;
        if (commits && onCommit) onCommit();
        return commits;
    }
    void OnDecryptLog(double, unsigned char* payload, int length, KwFile& log) override {
        log.WriteF("text=%.*s", length, reinterpret_cast<char*>(payload));
        if (onText) onText();
    }
};

class KwDBRTFixture : public KwResFixture {
protected:
    bool Open(TextDB& db) { return db.Open(4096, folder_.string(), "t"); }

    // The records of a journal or copy, one letter each (l, c, d), and "!" where damage begins.
    static std::string Kinds(std::string bytes) {
        KwDBRTReader reader(bytes.data(), bytes.size());
        std::string kinds;
        while (reader.Next()) kinds += "?dcl"[reader.GetRecord().type];
        return reader.GetState() == KwDBRTRecord::State::kWhole ? kinds : kinds + "!";
    }
    // A data record with everything at its end scrambled as it stands in a file.
    static std::string Data(double id, std::string payload, int file = -1, unsigned int offset = 0,
                            unsigned int size = 0) {
        KwDBRTRecord record;
        record.id = id;
        record.length = static_cast<unsigned int>(payload.size());
        record.fileNumber = file;
        record.offset = offset;
        record.size = size;
        record.time = {1, 2, 3, 4, 5, 6, 2026};
        std::string bytes(KwDBRTRecord::kHeaderSize, '\0');
        record.PutHeader(reinterpret_cast<unsigned char*>(bytes.data()));
        KwHash::RoundData(payload.data(), record.length, record.length);
        return bytes + payload;
    }
};
