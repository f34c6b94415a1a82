#include "Kw/Res/KwIniPreserve.h"

#include <algorithm>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Res/KwRes.h"

namespace {

constexpr char kMark[] = "\xEF\xBB\xBF";

bool Contains(const char* text, int len, const char* set) {
    return std::string_view(text, static_cast<std::size_t>(len)).find_first_of(set) != std::string_view::npos;
}

bool Starts(const char* text, int len, const char* start) {
    return std::string_view(text, static_cast<std::size_t>(len)).starts_with(start);
}

// Whether the value reads back the same without quotes in front of a line end. Blanks at its end would, too, but
// people and editors drop them.
bool IsBare(const SIniMem& mem) {
    if (mem.valueLen == 0) return true;
    const char last = mem.value[mem.valueLen - 1];
    return !Contains(mem.value, mem.valueLen, "/;\r\n") && !Contains(mem.value, 1, "\t =[\"") && last != ' ' &&
           last != '\t';
}

bool IsQuotable(const SIniMem& mem) {
    return !Contains(mem.value, mem.valueLen, "\"");
}

bool IsKey(const SIniMem& mem) {
    return mem.keyLen != 0 && !Contains(mem.key, mem.keyLen, "\t\r\n =") && !Contains(mem.key, 1, ";[\"") &&
           !Starts(mem.key, mem.keyLen, "//") && !Starts(mem.key, mem.keyLen, "/*");
}

void AppendValue(std::string& out, const SIniMem& mem, bool quoted) {
    if (quoted) out += '"';
    out.append(mem.value, static_cast<std::size_t>(mem.valueLen));
    if (quoted) out += '"';
}

bool Refuse(const SIniSec& sec, const char* key) {
    return KwLogSystem::PushRes("ini text error: [%s]%s cannot be expressed", sec.name, key);
}

SIniSec* SectionOf(SKwNode* node) {
    return static_cast<SIniSec*>(static_cast<KwList*>(node->owner));
}

}  // namespace

KwIniPreserve::KwIniPreserve(KwFileIni& ini, const KwIniStore& store)
    : ini_(ini),
      store_(store),
      text_(store.GetText() != nullptr ? store.GetText() : ""),
      end_(text_ + store.GetTextSize()),
      lineStart_(KwIni::SkipMark(text_, end_)) {
    // Sections that were loaded count through; members get their places in the scan.
    for (SKwNode* node = ini.head.next; node->next != nullptr; node = node->next) {
        SIniSec* sec = KwIniIndex<SIniSec>::FromLink(node);
        if (sec->textAt < 0) continue;
        sec->textAt = static_cast<int>(linesAt_.size());
        linesAt_.push_back(0);
    }
    section_ = KeptSection("Main", 4);
}

// --- The scan ---

SIniSec* KwIniPreserve::KeptSection(const char* name, int len) const {
    SIniSec* sec = KwIniIndex<SIniSec>::Find(store_.sections, ini_, store_.Hash(name, len), name, len);
    return sec != nullptr && sec->textAt >= 0 ? sec : nullptr;
}

SIniMem* KwIniPreserve::KeptMember(SIniSec& sec, const char* key, int len) {
    SKwNode* next = last_ != nullptr && last_->owner == static_cast<KwList*>(&sec) ? last_->next : sec.head.next;
    SIniMem* member = next->next != nullptr ? KwIniIndex<SIniMem>::FromLink(next) : nullptr;
    if (member == nullptr || member->keyLen != len ||
        std::memcmp(member->key, key, static_cast<std::size_t>(len)) != 0) {
        member = KwIniIndex<SIniMem>::Find(sec.table, sec, store_.Hash(key, len), key, len);
    }
    if (member == nullptr || member->textAt < 0) return nullptr;
    last_ = member;
    return member;
}

void KwIniPreserve::PutLinesAt(const char* at) {
    if (tail_ == nullptr) return;
    // In front of a key that waits, which may stand in front of the header of the section, too.
    linesAt_[static_cast<std::size_t>(tail_->textAt)] = at < tailEnd_ ? kNowhere : At(at);
    tail_ = nullptr;
}

bool KwIniPreserve::OnSection(const char* open, const char* close) {
    PutLinesAt(pending_ ? key_ : open);
    section_ = KeptSection(open + 1, static_cast<int>(close - open - 1));
    const bool first = line_ == Line::kEmpty && comments_ != nullptr;
    headers_.push_back({At(open), At(close) + 1, At(first ? comments_ : open), section_, pending_});
    crossed_ = crossed_ || pending_;
    tail_ = section_;
    tailEnd_ = close;
    line_ = Line::kOther;
    return true;
}

void KwIniPreserve::OnKey(const char* begin, const char* end) {
    key_ = begin;
    keyEnd_ = end;
    pending_ = true;
    crossed_ = false;
    line_ = Line::kOther;
}

bool KwIniPreserve::OnValue(const char* begin, const char* end, KwIniValue kind) {
    SIniMem* member = section_ != nullptr ? KeptMember(*section_, key_, static_cast<int>(keyEnd_ - key_)) : nullptr;
    if (member != nullptr) member->textAt = static_cast<int>(places_.size());
    const int quote = kind == KwIniValue::kQuoted ? 1 : 0;
    // A key right behind a bare value ends it, so something else has to do that: in quotes for one that is empty.
    const char* instead = key_ != bareEnd_ ? "" : bareEmpty_ ? "\"\"" : "/**/";
    places_.push_back({At(key_), At(keyEnd_), At(begin - quote), At(end + quote), member,
                       static_cast<int>(headers_.size()) - 1, kind, crossed_, instead});
    if (kind == KwIniValue::kBare) {
        bareEnd_ = end;
        bareEmpty_ = begin == end;
    }
    pending_ = false;
    tail_ = section_;
    tailEnd_ = end;
    return true;
}

void KwIniPreserve::OnComment(const char*) {
    if (line_ != Line::kEmpty) return;
    line_ = Line::kComment;
    if (comments_ == nullptr) comments_ = lineStart_;
}

void KwIniPreserve::OnLineEnd(const char* behind) {
    PutLinesAt(behind);
    if (line_ != Line::kComment) comments_ = nullptr;
    line_ = Line::kEmpty;
    lineStart_ = behind;
}

// --- The edits ---

bool KwIniPreserve::Make(std::string& out) {
    KwIniScan(text_, end_, *this);
    PutLinesAt(end_);
    LearnStyle();
    RemoveHeaders();
    for (std::size_t i = 0; i < places_.size(); ++i) {
        const Place& place = places_[i];
        if (place.member == nullptr) {
            const bool gone = place.header >= 0 && MayRemoveWhole(static_cast<std::size_t>(place.header));
            if (!gone) RemovePlace(place);
        } else if (place.member->textAt == static_cast<int>(i) && !EditValue(place)) {
            return Refuse(*SectionOf(place.member), place.member->key);
        }
    }
    if (!AddLines()) return false;
    Apply(out);
    return true;
}

// New parts look like the old ones.
void KwIniPreserve::LearnStyle() {
    const char* line = KwIni::FindKind(text_, end_, KwIni::kEndsLine);
    if (line != end_) lineEnd_.assign(line, KwIni::SkipLineEnd(line, end_));
    for (const Place& place : places_) {
        if (place.kind == KwIniValue::kNone || place.crossed) continue;
        const std::string between(text_ + place.keyEnd, text_ + place.value);
        if (between.find_first_not_of("\t =") == std::string::npos &&
            std::count(between.begin(), between.end(), '=') == 1) {
            equals_ = between;
        }
        return;
    }
}

// A removed section goes with all that stands in it, unless a key waits for its value across one of its borders.
bool KwIniPreserve::MayRemoveWhole(std::size_t header) const {
    const bool last = header + 1 == headers_.size();
    return headers_[header].section == nullptr && !headers_[header].pending && (last || !headers_[header + 1].pending);
}

void KwIniPreserve::RemoveHeaders() {
    const unsigned int first = At(KwIni::SkipMark(text_, end_));
    for (std::size_t i = 0; i < headers_.size(); ++i) {
        const Header& header = headers_[i];
        if (header.section != nullptr) continue;
        if (!MayRemoveWhole(i)) {
            edits_.push_back({header.open, header.close, Kind::kPart, {}});
            continue;
        }
        // What the text begins with speaks of the file.
        const unsigned int from = header.comments == first ? header.open : header.comments;
        const unsigned int to = i + 1 < headers_.size() ? headers_[i + 1].comments : At(end_);
        edits_.push_back({from, to, Kind::kPart, {}});
    }
}

// Whether nothing but blanks and a comment behind it share the lines of a place, which then go with their line end.
bool KwIniPreserve::IsAlone(const Place& place, unsigned int& from, unsigned int& to) const {
    const char* begin = text_ + place.key;
    const char* top = KwIni::SkipMark(text_, end_);
    while (begin != top && KwIni::Is(begin[-1], KwIni::kBlank)) --begin;
    if (begin != top && !KwIni::Is(begin[-1], KwIni::kEndsLine)) return false;
    const char* p = text_ + place.valueEnd;
    while (p != end_ && KwIni::Is(*p, KwIni::kBlank)) ++p;
    if (p != end_ && (*p == ';' || (*p == '/' && p + 1 != end_ && p[1] == '/'))) {
        p = KwIni::FindKind(p, end_, KwIni::kEndsLine);
    }
    if (p != end_ && !KwIni::Is(*p, KwIni::kEndsLine)) return false;
    from = At(begin);
    to = At(KwIni::SkipLineEnd(p, end_));
    return true;
}

template <typename Each>
void KwIniPreserve::EachEquals(unsigned int from, unsigned int to, const Each& each) const {
    const char* last = text_ + to;
    for (const char* p = text_ + from; p < last; ++p) {
        if (*p == '=') {
            each(At(p));
        } else if (*p == '[') {
            p = KwIni::FindByte(p, last, ']');
        } else if (*p == '/') {
            // A comment: nothing else with a `/` stands between a key and its value.
            for (p += 2; *p != '*' || p[1] != '/'; ++p) {
            }
            ++p;
        }
    }
}

void KwIniPreserve::RemovePlace(const Place& place) {
    unsigned int from;
    unsigned int to;
    if (!place.crossed && IsAlone(place, from, to)) {
        edits_.push_back({from, to, Kind::kPart, {}});
        return;
    }
    if (!place.crossed) {
        edits_.push_back({place.key, place.valueEnd, Kind::kPart, place.instead});
        return;
    }
    edits_.push_back({place.key, place.keyEnd, Kind::kPart, place.instead});
    EachEquals(place.keyEnd, place.value, [&](unsigned int at) { edits_.push_back({at, at + 1, Kind::kPart, {}}); });
    edits_.push_back({place.value, place.valueEnd, Kind::kPart, {}});
}

// Puts the value of the member into its place unless it stands there. False when it cannot be expressed.
bool KwIniPreserve::EditValue(const Place& place) {
    const SIniMem& mem = *place.member;
    const unsigned int quote = place.kind == KwIniValue::kQuoted ? 1 : 0;
    const std::string_view old(text_ + place.value + quote, place.valueEnd - place.value - 2 * quote);
    if (old == std::string_view(mem.value, static_cast<std::size_t>(mem.valueLen))) return true;

    const char* behind = text_ + place.valueEnd;
    const char* p = behind;
    while (p != end_ && KwIni::Is(*p, KwIni::kBlank)) ++p;
    const bool atEnd = p == end_ || KwIni::Is(*p, KwIni::kEndsLine);
    const bool ends = behind != end_ && KwIni::Is(*behind, KwIni::kEndsValue);  // a bare value would end there
    // Blanks between a bare value and the comment behind it belong to the value; a value in quotes lets them stay.
    std::size_t blanks = 0;
    if (place.kind == KwIniValue::kBare && !atEnd) {
        while (blanks < old.size() && KwIni::Is(old[old.size() - 1 - blanks], KwIni::kBlank)) ++blanks;
    }
    const bool emptyBare = place.kind == KwIniValue::kBare && old.empty();  // see `instead`
    const bool bare = IsBare(mem) && !emptyBare && (atEnd || (ends && mem.valueLen != 0));
    const bool quotable = IsQuotable(mem);
    const bool quoted = quotable && (place.kind == KwIniValue::kQuoted || !bare || blanks != 0);
    if (!quoted && !bare) return false;

    const unsigned int to = quoted  ? place.valueEnd - static_cast<unsigned int>(blanks)
                            : atEnd ? At(p)
                                    : place.valueEnd;
    Edit edit{place.value, to, Kind::kPart, {}};
    if (place.kind == KwIniValue::kNone) {
        bool hasEquals = false;
        EachEquals(place.keyEnd, place.value, [&](unsigned int) { hasEquals = true; });
        if (!hasEquals) edit.text = "=";
    }
    AppendValue(edit.text, mem, quoted);
    edits_.push_back(std::move(edit));
    return true;
}

bool KwIniPreserve::AppendMembers(const SIniSec& sec, bool all, std::string& out) const {
    for (const SKwNode* node = sec.head.next; node->next != nullptr; node = node->next) {
        const SIniMem& mem = *KwIniIndex<SIniMem>::FromLink(const_cast<SKwNode*>(node));
        if (!all && mem.textAt >= 0) continue;
        const bool bare = IsBare(mem);
        if (!IsKey(mem) || (!bare && !IsQuotable(mem))) return Refuse(sec, mem.key);
        out.append(mem.key, static_cast<std::size_t>(mem.keyLen)) += equals_;
        AppendValue(out, mem, !bare);
        out += lineEnd_;
    }
    return true;
}

bool KwIniPreserve::AddLines() {
    for (SKwNode* node = ini_.head.next; node->next != nullptr; node = node->next) {
        const SIniSec& sec = *KwIniIndex<SIniSec>::FromLink(node);
        std::string lines;
        const bool fresh = sec.textAt < 0;
        unsigned int at = fresh ? kNowhere : linesAt_[static_cast<std::size_t>(sec.textAt)];
        const bool header = at == kNowhere;
        if (fresh) {
            if (Contains(sec.name, sec.nameLen, "]")) return Refuse(sec, "");
        }
        if (!AppendMembers(sec, fresh, lines)) return false;
        if (lines.empty() && !fresh) continue;
        if (header) {
            // Apply puts an empty line in front.
            lines.insert(0, "[" + std::string(sec.name, static_cast<std::size_t>(sec.nameLen)) + "]" + lineEnd_);
            at = At(end_);
        }
        edits_.push_back({at, at, header ? Kind::kSection : Kind::kLines, std::move(lines)});
    }
    return true;
}

void KwIniPreserve::Apply(std::string& out) {
    std::stable_sort(edits_.begin(), edits_.end(),
                     [](const Edit& a, const Edit& b) { return a.from != b.from ? a.from < b.from : a.kind < b.kind; });
    const std::size_t mark = At(KwIni::SkipMark(text_, end_));
    const auto endLine = [&] {
        if (out.size() > mark && !KwIni::Is(out.back(), KwIni::kEndsLine)) out += lineEnd_;
    };
    out.clear();
    out.reserve(static_cast<std::size_t>(end_ - text_) + 64);
    unsigned int done = 0;
    for (const Edit& edit : edits_) {
        if (edit.from > done) out.append(text_ + done, text_ + edit.from);
        done = std::max(done, edit.to);
        if (edit.kind != Kind::kPart) {
            endLine();
            const std::string empty = lineEnd_ + lineEnd_;
            if (edit.kind == Kind::kSection && out.size() > mark && !out.ends_with(empty)) out += lineEnd_;
        }
        out += edit.text;
    }
    out.append(text_ + done, end_);
    // What now stands in front must not become a mark that was none.
    if (mark == 0 && out.starts_with(kMark)) out.insert(0, lineEnd_);
}

// --- The file's side ---

bool KwFileIni::GetPreservedText(std::string& out) {
    out.clear();
    if (Store() == nullptr) return KwLogSystem::PushRes("ini text error: no memory");
    if (!store_->complete) return KwLogSystem::PushRes("ini text error: the text was not read to its end");
    if (KwIniPreserve(*this, *store_).Make(out)) return true;
    out.clear();
    return false;
}

bool KwFileIni::SavePreserved(const char* path) {
    std::string text;
    if (!GetPreservedText(text)) return false;
    if (text.size() > 0xFFFFFFFEu) return KwLogSystem::PushRes("ini text error: the text is too long");
    return KwRes::SaveFile(path, text.data(), static_cast<unsigned int>(text.size()));
}
