#include "Kw/DB/KwMySql.h"

#include <mutex>

#include "Kw/DB/KwMySqlCalls.h"
#include "Kw/DB/KwMySqlText.h"
#include "Kw/DB/KwSQLText.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwStaticLock.h"

namespace {

// Numbers of the client's interface.
enum : int {
    kOptConnectTimeout = 0,
    kOptCharset = 7,
    kOptLocalInfile = 8,
    kOptReadTimeout = 11,
    kOptWriteTimeout = 12,
};
constexpr KwMySqlLong kMultiStatements = 1 << 16;
constexpr KwMySqlLong kMultiResults = 1 << 17;
constexpr int kTypeBit = 16;

// Not "utf16": a server refuses it for connections (error 1231), since its commands could not be told apart.
constexpr const char* kCharset = "utf8mb4";

// The connection is gone: the server shuts down, went away, was lost in a query, in a read, by a kill, or by idleness.
bool IsBroken(unsigned int code) {
    return code == 1053 || code == 2006 || code == 2013 || code == 2055 || code == 1927 || code == 4031;
}

// The first call of a client's mysql_init in a process prepares the library, which no two threads may do.
constinit KwStaticLock g_initLock;

}  // namespace

KwSQL* g_CreateMySql() {
    return new CMTMYSQL;
}

CMTMYSQL::CMTMYSQL() = default;

CMTMYSQL::~CMTMYSQL() {
    Disconnect();
}

void CMTMYSQL::OnThread(bool begin) {
    const KwMySqlCalls* const calls = lib_.GetCalls();
    if (!begin && calls != nullptr && calls->threadEnd != nullptr) calls->threadEnd();
}

bool CMTMYSQL::OnOpen(const KwSQLSettings& settings) {
    if (!lib_.Load()) return Fail(Stage::kPrepare, "HY000", 0, lib_.GetError());
    const KwMySqlCalls& calls = *lib_.GetCalls();
    KwMySqlText::Address address;
    if (!KwMySqlText::ParseAddress(settings.server, address)) {
        return Fail(Stage::kPrepare, "08001", 0, "the address has no valid port");
    }
    {
        const std::lock_guard<KwStaticLock> guard(g_initLock);
        handle_ = calls.init(nullptr);
    }
    if (handle_ == nullptr) return Fail(Stage::kPrepare, "HY001", 0, "the client library has no memory");
    const unsigned int off = 0;
    calls.options(handle_, kOptConnectTimeout, &settings.connectSeconds);
    calls.options(handle_, kOptCharset, kCharset);
    // A server must not be able to ask for files of this machine.
    calls.options(handle_, kOptLocalInfile, &off);
    if (settings.querySeconds != 0) {
        calls.options(handle_, kOptReadTimeout, &settings.querySeconds);
        calls.options(handle_, kOptWriteTimeout, &settings.querySeconds);
    }
    const KwMySqlLong flags = calls.nextResult != nullptr ? kMultiStatements | kMultiResults : 0;
    const bool connected = calls.realConnect(handle_, address.host.empty() ? nullptr : address.host.c_str(),
                                             settings.account.c_str(), settings.password.c_str(), nullptr, address.port,
                                             address.path.empty() ? nullptr : address.path.c_str(), flags) != nullptr;
    // The statement too: a server can be told to ignore the character set that a client greets with.
    const bool ready = connected && calls.realQuery(handle_, "SET NAMES utf8mb4", 17) == 0 &&
                       (settings.database.empty() || calls.selectDb(handle_, settings.database.c_str()) == 0);
    if (ready) return true;
    FailServer(Stage::kPrepare);
    OnClose();
    return false;
}

void CMTMYSQL::OnClose() {
    FreeResult();
    more_ = false;
    pieces_.clear();
    if (handle_ != nullptr) lib_.GetCalls()->close(handle_);
    handle_ = nullptr;
}

bool CMTMYSQL::FailServer(Stage stage) {
    const KwMySqlCalls& calls = *lib_.GetCalls();
    const unsigned int code = calls.errorCode != nullptr ? calls.errorCode(handle_) : 0;
    const char* const state = calls.state != nullptr ? calls.state(handle_) : "HY000";
    const char* const text = calls.error != nullptr ? calls.error(handle_) : "the client library tells no reason";
    const bool lost = IsBroken(code);
    more_ = more_ && !lost;
    return Fail(stage, state, static_cast<int>(code), text, lost);
}

void CMTMYSQL::OnLog(Stage stage, const char* state, const char* message) {
    constexpr const char* kPlace = "CMTMYSQL::GetString";
    switch (stage) {
        case Stage::kPrepare: KwLogSystem::Push("[%s]error 1", kPlace); break;
        case Stage::kRun: KwLogSystem::Push("[%s]error 2", kPlace); break;
        case Stage::kResult: KwLogSystem::Push("[%s]error 3", kPlace); break;
        case Stage::kRead: KwLogSystem::Push("[%s]error 4", kPlace); break;
    }
    KwSQL::OnLog(stage, state, message);
}

bool CMTMYSQL::OnPrepare(const std::string& text) {
    if (text.empty()) return Fail(Stage::kPrepare, "42000", 0, "the statement is empty");
    pieces_ = KwMySqlText::Split(text);
    return true;
}

bool CMTMYSQL::OnExecute(const std::string& text, const std::vector<KwSQLParam>& params) {
    if (!text.empty()) return Query(text);
    std::string statement;
    return Assemble(params, statement) && Query(statement);
}

bool CMTMYSQL::Assemble(const std::vector<KwSQLParam>& params, std::string& out) {
    if (params.size() + 1 != pieces_.size()) {
        return Fail(Stage::kPrepare, "07002", 0,
                    "the statement has " + std::to_string(pieces_.size() - 1) + " parameters, " +
                        std::to_string(params.size()) + " are bound");
    }
    for (std::size_t i = 0; i < params.size(); ++i) {
        out += pieces_[i];
        const KwSQLParam& param = params[i];
        switch (param.kind) {
            // Behind a blank: a minus before a negative value would begin a comment.
            case KwSQLParam::Kind::kInteger: out += " " + std::to_string(param.integer); break;
            case KwSQLParam::Kind::kDouble: out += " " + KwMySqlText::Double(param.number); break;
            case KwSQLParam::Kind::kBlob: out += "_binary"; [[fallthrough]];
            case KwSQLParam::Kind::kText: AppendText(out, param.bytes); break;
            default: out += "NULL"; break;
        }
    }
    out += pieces_.back();
    return true;
}

void CMTMYSQL::AppendText(std::string& out, const std::string& value) {
    out += '\'';
    const std::size_t at = out.size();
    // Each byte takes two at most, and a terminator follows.
    out.resize(at + value.size() * 2 + 1);
    const KwMySqlLong length = lib_.GetCalls()->realEscapeString(handle_, out.data() + at, value.data(),
                                                                 static_cast<KwMySqlLong>(value.size()));
    out.resize(at + length);
    out += '\'';
}

bool CMTMYSQL::Query(const std::string& text) {
    const KwMySqlCalls& calls = *lib_.GetCalls();
    if (calls.realQuery(handle_, text.data(), static_cast<KwMySqlLong>(text.size())) != 0) {
        return FailServer(Stage::kRun);
    }
    more_ = calls.nextResult != nullptr;
    return TakeResult();
}

bool CMTMYSQL::TakeResult() {
    const KwMySqlCalls& calls = *lib_.GetCalls();
    result_ = calls.storeResult(handle_);
    if (result_ == nullptr) {
        const bool failed = calls.fieldCount != nullptr ? calls.fieldCount(handle_) != 0
                                                        : calls.errorCode != nullptr && calls.errorCode(handle_) != 0;
        if (failed) return FailServer(Stage::kResult);
        SetAffectedRows(calls.affectedRows != nullptr ? static_cast<std::int64_t>(calls.affectedRows(handle_)) : -1);
        return true;
    }
    const unsigned int count = calls.numFields(result_);
    fields_ = calls.fetchFields(result_);
    std::vector<std::string> names;
    for (unsigned int i = 0; i < count; ++i) names.emplace_back(fields_[i].name);
    SetColumns(std::move(names));
    SetAffectedRows(static_cast<std::int64_t>(calls.numRows(result_)));
    return true;
}

bool CMTMYSQL::OnFetch() {
    const KwMySqlCalls& calls = *lib_.GetCalls();
    if (result_ == nullptr) return false;
    char** const row = calls.fetchRow(result_);
    if (row == nullptr) return false;
    const KwMySqlLong* const lengths = calls.fetchLengths(result_);
    if (lengths == nullptr) return Fail(Stage::kRead, "HY000", 0, "the row has no lengths");
    const unsigned int count = calls.numFields(result_);
    for (unsigned int i = 0; i < count; ++i) {
        KwSQLCell& cell = Cell(i);
        cell.kind = row[i] != nullptr ? KwSQLCell::Kind::kBytes : KwSQLCell::Kind::kNull;
        if (row[i] == nullptr) continue;
        cell.bytes = std::string_view(row[i], lengths[i]);
        if (fields_[i].type != kTypeBit) continue;
        // Bits come as bytes, the highest first.
        cell.kind = KwSQLCell::Kind::kInteger;
        std::uint64_t bits = 0;
        for (const char c : cell.bytes) bits = bits << 8 | static_cast<unsigned char>(c);
        cell.integer = static_cast<std::int64_t>(bits);
    }
    return true;
}

bool CMTMYSQL::OnNextResult() {
    FreeResult();
    if (!more_) return false;
    const int next = lib_.GetCalls()->nextResult(handle_);
    if (next > 0) {
        more_ = false;
        return FailServer(Stage::kResult);
    }
    more_ = next == 0;
    return more_ && TakeResult();
}

bool CMTMYSQL::OnTransaction(Transaction step) {
    constexpr const char* kTexts[] = {"START TRANSACTION", "COMMIT", "ROLLBACK"};
    const bool done = Query(kTexts[static_cast<int>(step)]);
    if (done) OnEnd(false);
    return done;
}

void CMTMYSQL::FreeResult() {
    if (result_ != nullptr) lib_.GetCalls()->freeResult(result_);
    result_ = nullptr;
    fields_ = nullptr;
}

void CMTMYSQL::OnEnd(bool statement) {
    if (statement) pieces_.clear();
    FreeResult();
    const KwMySqlCalls* const calls = lib_.GetCalls();
    // The next statement is refused as long as results of this one wait.
    while (more_ && handle_ != nullptr) {
        more_ = calls->nextResult(handle_) == 0;
        KwMySqlResult* const rest = more_ ? calls->storeResult(handle_) : nullptr;
        if (rest != nullptr) calls->freeResult(rest);
    }
    more_ = false;
}
