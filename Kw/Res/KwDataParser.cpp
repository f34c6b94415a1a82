#include "Kw/Res/KwDataParser.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <new>
#include <tuple>
#include <utility>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Helper/KwMath.h"
#include "Kw/KwStr.h"
#include "Kw/Res/KwDataSlab.h"
#include "Kw/Res/KwDataWalk.h"
#include "Kw/Res/KwTable.h"

namespace {

constexpr std::size_t kDeepest = 1000;      // nested documents in each other
constexpr unsigned int kLongestKey = 1023;  // bytes

constexpr const char* kCreate = "s_CreateObject";
constexpr const char* kMake = "s_MakeObject";
constexpr const char* kSet = "s_SetObject";
constexpr const char* kParse = "KwDS::ParseData";

// What a byte can be; the first group are the ways a statement can go on.
enum : unsigned char {
    kOther = 0,
    kBlank,
    kLetter,  // letters and `_`
    kDigit,
    kSign,  // + - '
    kQuote,
    kBrace,
    kTuple,
    kAt,
    kDollar,
    kBracket,
    kSeparator,
    kEqual,
};

constexpr std::array<unsigned char, 256> MakeClasses() {
    std::array<unsigned char, 256> classes{};
    const auto set = [&classes](std::string_view bytes, unsigned char value) {
        for (const char c : bytes) classes[static_cast<unsigned char>(c)] = value;
    };
    set("\t\n\r ", kBlank);
    set("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_", kLetter);
    set("0123456789", kDigit);
    set("+-'", kSign);
    set("\"", kQuote);
    set("{", kBrace);
    set("(", kTuple);
    set("@", kAt);
    set("$", kDollar);
    set("[", kBracket);
    set(",;", kSeparator);
    set("=", kEqual);
    return classes;
}
constexpr std::array<unsigned char, 256> kClass = MakeClasses();

bool IsNameByte(unsigned char c) {
    return kClass[c] == kLetter || kClass[c] == kDigit;
}
bool IsDigit(unsigned char c) {
    return c >= '0' && c <= '9';
}

const char* Chars(const unsigned char* text) {
    return reinterpret_cast<const char*>(text);
}

}  // namespace

KwDataParser::KwDataParser(KwDS& document, const unsigned char* begin, const unsigned char* end)
    : root_(document), begin_(begin), end_(end), cursor_(begin), slabs_(static_cast<std::size_t>(end - begin)) {}

KwDataParser::~KwDataParser() {
    // What an error left behind, the innermost first: each level's document but the first is ours.
    while (!levels_.empty()) {
        Drop(levels_.back().first);
        Drop(levels_.back().second);
        if (levels_.size() > 1) KwDataWalk::Destroy(levels_.back().document);
        levels_.pop_back();
    }
}

void KwDataParser::Drop(Token& token) {
    if (token.kind == TokenKind::Document) KwDataWalk::Destroy(token.document);
    if (token.kind == TokenKind::Table) KwDataWalk::Destroy(token.table);
    token.kind = TokenKind::None;
}

template <typename... Args>
bool KwDataParser::Fail(Bytes at, const char* format, Args... args) {
    char text[128];
    KwStr::Format(text, sizeof(text), format, args...);
    root_.error_ = std::make_unique<KwParseError>();
    root_.error_->message = text;
    root_.error_->SetPosition(begin_, at);
    return KwLogSystem::PushRes(format, args...);
}

bool KwDataParser::Run() {
    try {
        levels_.reserve(8);
        levels_.push_back({&root_, end_});
        level_ = &levels_.back();
        return ParseLevels();
    } catch (const std::bad_alloc&) {
        return Fail(cursor_, "[%s] out of memory", kParse);
    }
}

// --- Statements ---

bool KwDataParser::ParseLevels() {
    for (;;) {
        Level& level = *level_;
        Bytes next = cursor_;
        while (next < level.end && kClass[*next] == kBlank) ++next;
        if (next < level.end && *next == '/') {
            Bytes behind = KwFilterText::SkipBlank(next, level.end);
            if (behind == nullptr) return Fail(next, "[%s] check continue", kParse);
            next = behind;
        }
        // Blanks and comments end a statement, but not in front of its `=`.
        if (next != cursor_) {
            cursor_ = next;
            if (level.first.kind != TokenKind::None && (next == level.end || *next != '=') && !Store()) return false;
        }
        if (next == level.end) {
            if (level.first.kind != TokenKind::None && !Store()) return false;
            if (levels_.size() == 1) return true;
            CloseDocument();
            continue;
        }
        switch (kClass[*next]) {
            case kSeparator:
                if (level.first.kind != TokenKind::None && !Store()) return false;
                ++cursor_;
                break;
            case kEqual:
                if (!MarkKey()) return false;
                break;
            case kLetter:
                if (level.first.kind == TokenKind::None) {
                    // Nearly every statement begins like this; the loop would come to the same.
                    ReadName(level.first);
                    if (cursor_ < level.end && *cursor_ == '=' && !MarkKey()) return false;
                    break;
                }
                [[fallthrough]];
            default:
                if (!ReadToken()) return false;
                break;
        }
    }
}

bool KwDataParser::MarkKey() {
    switch (level_->first.kind) {
        case TokenKind::Name:
        case TokenKind::Quoted:
        case TokenKind::Number:
        case TokenKind::Index:
            level_->keyed = true;
            ++cursor_;
            return true;
        default: return Fail(cursor_, "[%s] check = error,not key", kParse);
    }
}

bool KwDataParser::ReadToken() {
    Token& token = level_->first.kind == TokenKind::None ? level_->first : level_->second;
    if (token.kind != TokenKind::None) return Fail(cursor_, "[%s] exist object", kCreate);
    switch (kClass[*cursor_]) {
        case kLetter: return ReadName(token);
        case kDigit:
        case kSign: return ReadNumber(token);
        case kQuote: return ReadQuoted(token);
        case kBrace: return OpenDocument();
        case kTuple: return ReadTuple(token);
        case kAt: return ReadAt(token);
        case kDollar: return ReadReference(token);
        case kBracket: return ReadIndex(token);
        default: return Fail(cursor_, "[%s]char %d error", kCreate, static_cast<int>(*cursor_));
    }
}

// --- Tokens ---

bool KwDataParser::ReadName(Token& token) {
    Bytes p = cursor_;
    while (p < level_->end && IsNameByte(*p)) ++p;
    if (p == cursor_) return Fail(cursor_, "[%s] name len<1", kCreate);
    token.kind = TokenKind::Name;
    token.text = cursor_;
    token.length = static_cast<unsigned int>(p - cursor_);
    cursor_ = p;
    return true;
}

bool KwDataParser::ReadQuoted(Token& token) {
    Bytes start = cursor_ + 1;
    const void* close =
        start < level_->end ? std::memchr(start, '"', static_cast<std::size_t>(level_->end - start)) : nullptr;
    if (close == nullptr) return Fail(cursor_, "[%s] find \" not found", kCreate);
    token.kind = TokenKind::Quoted;
    token.text = start;
    token.length = static_cast<unsigned int>(static_cast<Bytes>(close) - start);
    cursor_ = static_cast<Bytes>(close) + 1;
    return true;
}

bool KwDataParser::ReadNumber(Token& token) {
    Bytes behind = KwFilterText::MakeNumber(cursor_, level_->end, token.number);
    if (behind == nullptr) return Fail(cursor_, "[%s] make number", kCreate);
    if (IsDigit(*cursor_) && behind < level_->end && kClass[*behind] == kLetter) return ReadName(token);
    token.kind = TokenKind::Number;
    cursor_ = behind;
    return true;
}

bool KwDataParser::ReadTuple(Token& token) {
    unsigned int value = 0;
    unsigned int element = 0;
    for (Bytes p = cursor_ + 1; p < level_->end; ++p) {
        if (IsDigit(*p)) {
            element = element * 10 + (*p - '0');
        } else if (*p == ',' || *p == ')') {
            value = (value << 8) + element;
            element = 0;
            if (*p == ',') continue;
            token.kind = TokenKind::Number;
            token.number.kind = 1;
            token.number.uintValue = value;
            cursor_ = p + 1;
            return true;
        } else {
            return Fail(p, "[%s] make (,,,) not , or )", kCreate);
        }
    }
    return Fail(cursor_, "[%s] make (,,,)", kCreate);
}

bool KwDataParser::ReadAt(Token& token) {
    constexpr std::string_view kTable = "@table";
    const std::string_view rest(Chars(cursor_), static_cast<std::size_t>(level_->end - cursor_));
    const char kind = rest.size() > 1 ? rest[1] : '\0';
    if (kind == 'b' || kind == 'B') return ReadBinary(token);
    if (kind == 'd' || kind == 'D') return Fail(cursor_, "[%s] @D", kCreate);
    if (rest.substr(0, kTable.size()) == kTable) return ReadTable(token);
    token.kind = TokenKind::Quoted;
    token.text = cursor_;
    token.length = 0;
    ++cursor_;
    return true;
}

bool KwDataParser::ReadBinary(Token& token) {
    constexpr int kMostDigits = 32;
    Bytes p = cursor_ + 2;
    unsigned int value = 0;
    int digits = 0;
    for (; digits < kMostDigits && p < level_->end && (*p == '0' || *p == '1'); ++digits, ++p) {
        value = (value << 1) + (*p - '0');
    }
    if (digits == 0) return Fail(cursor_, "[%s] make binary", kCreate);
    token.kind = TokenKind::Number;
    token.number.kind = 0;
    token.number.intValue = static_cast<int>(value);
    cursor_ = p;
    return true;
}

bool KwDataParser::ReadTable(Token& token) {
    Bytes open = cursor_ + 6;
    while (open < level_->end && kClass[*open] == kBlank) ++open;
    Bytes close = open < level_->end && *open == '{' ? FindBlockEnd(open) : nullptr;
    if (close == nullptr) return Fail(cursor_, "[%s] table {}", kCreate);
    // The rest of the line of the opening brace is no part of the table.
    Bytes text = open + 1;
    while (text < close && *text != '\n' && *text != '\r') ++text;
    if (text < close) text += *text == '\r' && text + 1 < close && text[1] == '\n' ? 2 : 1;
    auto* table = new KwTable;
    if (table == nullptr) throw std::bad_alloc();
    token.kind = TokenKind::Table;
    token.table = table;
    try {
        table->ParseRows(text, close);
    } catch (const std::bad_alloc&) {
        return Fail(cursor_, "[%s] compile table", kCreate);
    }
    cursor_ = close + 1;
    return true;
}

bool KwDataParser::ReadReference(Token& token) {
    Bytes p = cursor_ + 1;
    while (p < level_->end && (IsNameByte(*p) || *p == '.' || *p == '[' || *p == ']')) ++p;
    if (p < level_->end && kClass[*p] != kBlank && kClass[*p] != kSeparator)
        return Fail(p, "[%s] buld $ error char %d", kCreate, static_cast<int>(*p));
    token.kind = TokenKind::Reference;
    token.text = cursor_;
    token.length = static_cast<unsigned int>(p - cursor_);
    cursor_ = p;
    return true;
}

// Any byte that has no place in the brackets ends the search for what should stand there.
bool KwDataParser::ReadIndex(Token& token) {
    Bytes digits = nullptr;
    Bytes p = cursor_ + 1;
    for (; p < level_->end && (kClass[*p] == kBlank || IsDigit(*p)); ++p) {
        if (digits == nullptr && IsDigit(*p)) digits = p;
    }
    if (p == level_->end) return Fail(cursor_, "[%s] find ]", kCreate);
    if (digits == nullptr) return Fail(p, "[%s] index not number", kCreate);
    if (*p != ']') return Fail(p, "[%s] find ]", kCreate);
    token.kind = TokenKind::Index;
    token.index = KwMath::ToInt(Chars(digits), static_cast<int>(p - digits));
    cursor_ = p + 1;
    return true;
}

// --- Nested documents ---

KwDataParser::Bytes KwDataParser::FindBlockEnd(Bytes open) {
    if (!blocks_.IsBuilt()) blocks_.Build(open, end_);
    return blocks_.FindEnd(open, level_->end);
}

bool KwDataParser::OpenDocument() {
    Bytes close = levels_.size() <= kDeepest ? FindBlockEnd(cursor_) : nullptr;
    if (close == nullptr) return Fail(cursor_, "[%s] check {}", kCreate);
    levels_.push_back({nullptr, close});
    level_ = &levels_.back();
    void* place = KwDataSlab::TakeInScope(sizeof(KwDS));
    if (place == nullptr) throw std::bad_alloc();
    level_->document = new (place) KwDS;
    level_->document->inSlab_ = true;
    level_->document->outer_ = levels_[levels_.size() - 2].document;
    level_->slab = slabs_.GetSlab();
    level_->partsBefore = slabs_.GetTaken() - 1;
    ++cursor_;
    return true;
}

// The slot was empty when the document was opened, so it still is.
void KwDataParser::CloseDocument() {
    KwDS* document = level_->document;
    if (slabs_.GetSlab() == level_->slab) {
        document->slabParts_ = slabs_.GetTaken() - level_->partsBefore;
    } else {
        KwDataWalk::Touch(document);
    }
    cursor_ = level_->end + 1;
    levels_.pop_back();
    level_ = &levels_.back();
    Token& token = level_->first.kind == TokenKind::None ? level_->first : level_->second;
    token.kind = TokenKind::Document;
    token.document = document;
}

// --- Storing ---

bool KwDataParser::Store() {
    Level& level = *level_;
    KwDS& document = *level.document;
    KwDSItem* item = nullptr;
    if (level.keyed) {
        const Token& key = level.first;
        if (key.kind == TokenKind::Index) {
            item = &IndexEntry(document, key.index);
        } else if (key.kind == TokenKind::Number) {
            item = &MemberEntry(document, NumberKey(document, key.number));
        } else {
            item = &MemberEntry(document, {Chars(key.text), std::min(key.length, kLongestKey)});
        }
    } else {
        if (level.second.kind != TokenKind::None) return Fail(cursor_, "[%s] set index exist val2", kMake);
        item = &IndexEntry(document, static_cast<int>(document.indexed_.size()) + 1);
    }
    if (!SetObject(*item, level.keyed ? level.second : level.first)) return false;
    item->owner_ = &document;
    if (item->OwnsOutsideSlabs()) KwDataWalk::Touch(&document);
    level.keyed = false;
    level.first.kind = TokenKind::None;
    level.second.kind = TokenKind::None;
    return true;
}

bool KwDataParser::SetObject(KwDSItem& item, Token& token) {
    switch (token.kind) {
        case TokenKind::Name:
        case TokenKind::Quoted: item.SetString(Chars(token.text), static_cast<int>(token.length)); return true;
        case TokenKind::Number: item.SetNumber(&token.number); return true;
        case TokenKind::Document: item = token.document; return true;
        case TokenKind::Table: item = token.table; return true;
        case TokenKind::Reference:
            item.SetString(Chars(token.text), static_cast<int>(token.length));
            item.type_ = DSTYPE_REFERENCE;
            return true;
        default: return Fail(cursor_, "[%s] set object not type %d", kSet, static_cast<int>(token.kind));
    }
}

// New entries mostly come in ascending order: then they are appended without a search.
KwDSItem& KwDataParser::IndexEntry(KwDS& document, int index) {
    return document.indexed_.try_emplace(document.indexed_.end(), index)->second;
}

KwDSItem& KwDataParser::MemberEntry(KwDS& document, std::string_view name) {
    KwDS::Members& members = document.members_;
    if (name.size() > std::string().capacity()) KwDataWalk::Touch(&document);  // it takes memory of its own
    return members.emplace_hint(members.end(), std::piecewise_construct, std::forward_as_tuple(name), std::tuple<>())
        ->second;
}

std::string_view KwDataParser::NumberKey(KwDS& document, const SFilterNumber& number) {
    int value = number.intValue;
    if (number.kind == 1) value = static_cast<int>(number.uintValue);
    if (number.kind == 2) value = KwMath::TruncateToInt(number.doubleValue);
    char* place = KeyPlace(document.keyBuffer_);
    const std::to_chars_result result = std::to_chars(place, place + sizeof(keyBuffer_), value);
    return {place, static_cast<std::size_t>(result.ptr - place)};
}
