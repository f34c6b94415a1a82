// KwDataParser: reads the statements of a data-script text into a document. Internal.
//
// One pass without recursion: nested documents are levels of a stack, at most 1,000 below the first. A statement
// is gathered in two slots, key and value, or a value alone, and stored at the next blank or separator.
// Every error is logged in one line and ends the pass.
// Thread-safety: none.
#pragma once

#include <string_view>
#include <vector>

#include "Kw/Helper/KwFilterText.h"
#include "Kw/Res/KwDataBlocks.h"
#include "Kw/Res/KwDataObject.h"

class KwDataParser {
public:
    // Reads the text from `begin` to `end` into `document`, which outlives the parser.
    KwDataParser(KwDS& document, const unsigned char* begin, const unsigned char* end);
    ~KwDataParser();
    KwDataParser(const KwDataParser&) = delete;
    KwDataParser& operator=(const KwDataParser&) = delete;

    // False at the first error, which is also kept in the document.
    bool Run();
    // How far it came.
    const unsigned char* GetPosition() const { return cursor_; }

private:
    using Bytes = const unsigned char*;

    enum class TokenKind { None, Name, Quoted, Number, Document, Table, Reference, Index };
    struct Token {
        TokenKind kind = TokenKind::None;
        unsigned int length = 0;  // of the text
        union {
            Bytes text = nullptr;
            KwDS* document;
            KwTable* table;
            int index;
        };
        SFilterNumber number;
    };
    // A document that is being read.
    struct Level {
        KwDS* document;
        Bytes end;
        const void* slab = nullptr;    // in which the document lies, and the parts
        unsigned int partsBefore = 0;  // that were cut from it before
        bool keyed = false;            // a `=` stood behind the first slot
        Token first{};
        Token second{};
    };

    bool ParseLevels();
    bool MarkKey();
    bool ReadToken();
    bool ReadName(Token& token);
    bool ReadQuoted(Token& token);
    bool ReadNumber(Token& token);
    bool ReadTuple(Token& token);
    bool ReadAt(Token& token);
    bool ReadBinary(Token& token);
    bool ReadTable(Token& token);
    bool ReadReference(Token& token);
    bool ReadIndex(Token& token);
    bool OpenDocument();
    void CloseDocument();

    bool Store();
    bool SetObject(KwDSItem& item, Token& token);
    KwDSItem& IndexEntry(KwDS& document, int index);
    KwDSItem& MemberEntry(KwDS& document, std::string_view name);
    std::string_view NumberKey(KwDS& document, const SFilterNumber& number);
    // Where a key is printed: in the document if it has a buffer, else in the parser.
    template <typename Buffer>
    char* KeyPlace(Buffer& buffer) {
        if constexpr (requires { buffer.data(); }) {
            return buffer.data();
        } else {
            return keyBuffer_;
        }
    }

    Bytes FindBlockEnd(Bytes open);
    static void Drop(Token& token);

    // Logs and keeps an error at `at`; false.
    template <typename... Args>
    bool Fail(Bytes at, const char* format, Args... args);

    KwDS& root_;
    Bytes begin_;
    Bytes end_;
    Bytes cursor_;
    KwDataSlab::Scope slabs_;
    std::vector<Level> levels_;
    Level* level_ = nullptr;  // the last one
    KwDataBlocks blocks_;
    char keyBuffer_[16] = {};
};
