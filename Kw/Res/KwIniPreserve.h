// KwIniPreserve: writes an INI file as the text that was loaded, changed only where the file was. Internal.
//
// The text is scanned again and compared with the sections and members: each place of it belongs to one that is still
// there, or goes. The differences become a list of edits, which are applied in one pass.
// Thread-safety: as the file.
#pragma once

#include <string>
#include <vector>

#include "Kw/Res/KwIniIndex.h"
#include "Kw/Res/KwIniScan.h"

class KwIniPreserve {
public:
    KwIniPreserve(KwFileIni& ini, const KwIniStore& store);

    // False, with one line logged, when a part cannot be expressed.
    bool Make(std::string& out);

    // What the scan calls.
    bool OnSection(const char* open, const char* close);
    void OnKey(const char* begin, const char* end);
    bool OnValue(const char* begin, const char* end, KwIniValue kind);
    void OnComment(const char* at);
    void OnLineEnd(const char* behind);

private:
    // A key with its value, in offsets of the text; the value with its quotes.
    struct Place {
        unsigned int key;
        unsigned int keyEnd;
        unsigned int value;
        unsigned int valueEnd;
        SIniMem* member;  // null: it was removed
        int header;       // whose section it is in; -1: in front of the first one
        KwIniValue kind;
        bool crossed;         // a header stands between the key and the value
        const char* instead;  // has to stand in its place when it goes
    };
    struct Header {
        unsigned int open;
        unsigned int close;     // behind the bracket
        unsigned int comments;  // the first line of the comments right above it, else `open`
        SIniSec* section;       // null: it was removed
        bool pending;           // a key in front of it waits for its value
    };
    // Whole lines begin on a line of their own. In one place the lines of a section that is open there go first.
    enum class Kind { kPart, kLines, kSection };
    struct Edit {
        unsigned int from;
        unsigned int to;
        Kind kind;
        std::string text;
    };

    static constexpr unsigned int kNowhere = 0xFFFFFFFFu;

    unsigned int At(const char* p) const { return static_cast<unsigned int>(p - text_); }
    SIniSec* KeptSection(const char* name, int len) const;
    SIniMem* KeptMember(SIniSec& sec, const char* key, int len);
    void PutLinesAt(const char* at);

    bool MayRemoveWhole(std::size_t header) const;
    void RemoveHeaders();
    void RemovePlace(const Place& place);
    bool IsAlone(const Place& place, unsigned int& from, unsigned int& to) const;
    template <typename Each>
    void EachEquals(unsigned int from, unsigned int to, const Each& each) const;
    bool EditValue(const Place& place);
    bool AddLines();
    bool AppendMembers(const SIniSec& sec, bool all, std::string& out) const;
    void LearnStyle();
    void Apply(std::string& out);

    KwFileIni& ini_;
    const KwIniStore& store_;
    const char* text_;
    const char* end_;

    std::vector<Place> places_;
    std::vector<Header> headers_;
    std::vector<Edit> edits_;
    std::vector<unsigned int>
        linesAt_;  // by a section's textAt: where its new members go; kNowhere: behind a new header
    std::string lineEnd_ = "\n";
    std::string equals_ = "=";  // between key and value

    // State of the scan.
    SIniSec* section_ = nullptr;     // the current one; null: it was removed
    SIniSec* tail_ = nullptr;        // the section whose last part so far has no line end yet
    const char* tailEnd_ = nullptr;  // where that part ends
    SKwNode* last_ = nullptr;        // the member met last: mostly the next one in the list is met next
    const char* key_ = nullptr;
    const char* keyEnd_ = nullptr;
    bool pending_ = false;
    bool crossed_ = false;
    const char* bareEnd_ = nullptr;  // of the last bare value
    bool bareEmpty_ = false;
    enum class Line { kEmpty, kComment, kOther } line_ = Line::kEmpty;
    const char* lineStart_;
    const char* comments_ = nullptr;  // where the comment lines right above begin
};
