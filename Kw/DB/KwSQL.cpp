#include "Kw/DB/KwSQL.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "Kw/DB/KwSQLText.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Helper/KwMath.h"
#include "Kw/KwUtf.h"
#include "Kw/Platform/KwPlatformClock.h"

struct KwSQL::State {
    KwSQLSettings settings;
    KwSQLError error;
    std::vector<KwSQLParam> params;
    std::vector<std::string> columns;
    std::vector<KwSQLCell> cells;
    // What the getters hand out, a place for each column.
    std::vector<std::string> texts;
    std::vector<KwWString> wides;
    std::int64_t affected = -1;
    std::uint32_t answered = 0;  // tick of the last answer
    bool open = false;
    bool lost = false;
    unsigned int opened = 0;  // times
    bool stood = false;       // since the settings were taken
    bool told = false;        // why it does not stand
    bool prepared = false;
    bool badParam = false;
    bool row = false;  // the cells are set
    bool transaction = false;
    bool quiet = false;  // failures are not logged
};

KwSQL::KwSQL() : state_(std::make_unique<State>()) {}
KwSQL::~KwSQL() = default;

bool KwSQL::Connect(const char* server, const char* account, const char* password, const char* database) {
    if (!SetTarget(server, account, password, database)) return false;
    return Open() || LogRefusal();
}

bool KwSQL::LogRefusal() {
    return KwLogSystem::PushRes("sql connect: %s\t%s", state_->error.state.c_str(),
                                KwSQLText::ForLog(state_->error.message, state_->settings.password).c_str());
}

bool KwSQL::SetTarget(const char* server, const char* account, const char* password, const char* database) {
    Disconnect();
    state_->stood = state_->told = false;
    KwSQLSettings& to = state_->settings;
    const char* const from[] = {server, account, password, database};
    std::string* const values[] = {&to.server, &to.account, &to.password, &to.database};
    const char* const names[] = {"address", "account", "password", "database"};
    state_->error = {};
    for (int i = 0; i < 4; ++i) {
        const char* text = from[i] != nullptr ? from[i] : "";
        if (KwSQLText::DecodeSetting(text, *values[i])) continue;
        state_->error = {"08001", std::string("the ") + names[i] + " is no Base64 text behind its @", 0, false};
        return KwLogSystem::PushRes("sql connect: %s", state_->error.message.c_str());
    }
    return true;
}

bool KwSQL::Open() {
    state_->error = {};
    state_->quiet = true;
    state_->open = OnOpen(state_->settings);
    state_->quiet = false;
    state_->lost = state_->lost && !state_->open;
    if (!state_->open) return false;
    state_->stood = true;
    ++state_->opened;
    state_->error = {};
    state_->answered = KwPlatform::TickCount();
    OnConnected();
    return state_->open;
}

void KwSQL::Disconnect() {
    if (state_->open) {
        EndStatement();
        OnClose();
    }
    state_->open = state_->lost = state_->transaction = state_->prepared = false;
}

bool KwSQL::Reconnect() {
    if (state_->open && !state_->lost) return true;
    if (state_->open) {
        OnEnd(true);
        OnClose();
        state_->open = false;
    }
    const bool wasLost = state_->lost, isFirst = !state_->stood;
    if (!Open()) {
        if (isFirst && !state_->told) LogRefusal();
        state_->told = true;
        return false;
    }
    if (wasLost || isFirst) KwLogSystem::Push("sql connection is open%s", wasLost ? " again" : "");
    return true;
}

bool KwSQL::IsOpen() const {
    return state_->open && !state_->lost;
}

unsigned int KwSQL::GetOpenCount() const {
    return state_->opened;
}

bool KwSQL::IsLost() const {
    return state_->lost;
}

bool KwSQL::Check(unsigned int freshMs) {
    if (!IsOpen()) return false;
    if (KwPlatform::TickCount() - state_->answered < freshMs) return true;
    state_->quiet = true;
    const bool answers = OnPing();
    state_->quiet = false;
    state_->answered = KwPlatform::TickCount();
    if (answers) return true;
    // A server that answers with an error is there.
    return !state_->lost;
}

void KwSQL::SetTimeouts(unsigned int connectSeconds, unsigned int querySeconds) {
    state_->settings.connectSeconds = connectSeconds;
    state_->settings.querySeconds = querySeconds;
}

// Before each operation: forgets the last failure, and refuses without a connection.
bool KwSQL::Ready(bool keepRows) {
    state_->error = {};
    if (state_->lost || !state_->open) {
        state_->error = {"08003", state_->lost ? "the connection is lost" : "there is no connection", 0, state_->lost};
        return false;
    }
    state_->row = false;
    if (keepRows) return true;
    state_->columns.clear();
    state_->cells.clear();
    state_->affected = -1;
    return true;
}

bool KwSQL::Prepare(const char* text, int length) {
    state_->params.clear();
    state_->badParam = false;
    state_->prepared = false;
    if (!Ready(false)) return false;
    OnEnd(true);
    state_->prepared = OnPrepare(KwSQLText::Narrow(text, length));
    return state_->prepared;
}

bool KwSQL::Prepare(const KwWChar* text, int length) {
    const std::string narrow = KwSQLText::Narrow(text, length);
    return Prepare(narrow.data(), static_cast<int>(narrow.size()));
}

KwSQLParam* KwSQL::Param(int index) {
    if (index < 1 || index > 65535) {
        state_->badParam = true;
        return nullptr;
    }
    const auto at = static_cast<std::size_t>(index);
    if (state_->params.size() < at) state_->params.resize(at);
    return &state_->params[at - 1];
}

void KwSQL::BindInt(int index, std::int64_t value) {
    KwSQLParam* const param = Param(index);
    if (param == nullptr) return;
    param->kind = KwSQLParam::Kind::kInteger;
    param->integer = value;
}

void KwSQL::BindDouble(int index, double value) {
    KwSQLParam* const param = Param(index);
    if (param == nullptr) return;
    param->kind = KwSQLParam::Kind::kDouble;
    param->number = value;
    // No server stores them as parameters of every driver.
    if (!std::isfinite(value)) state_->badParam = true;
}

void KwSQL::BindText(int index, const char* text, int length) {
    KwSQLParam* const param = Param(index);
    if (param == nullptr) return;
    param->kind = text != nullptr ? KwSQLParam::Kind::kText : KwSQLParam::Kind::kNull;
    param->bytes.assign(text != nullptr ? text : "", text == nullptr ? 0
                                                     : length < 0    ? std::strlen(text)
                                                                     : static_cast<std::size_t>(length));
}

void KwSQL::BindText(int index, const KwWChar* text, int length) {
    KwSQLParam* const param = Param(index);
    if (param == nullptr) return;
    param->kind = text != nullptr ? KwSQLParam::Kind::kText : KwSQLParam::Kind::kNull;
    param->bytes = KwSQLText::Narrow(text, length);
}

void KwSQL::BindBlob(int index, const void* data, std::size_t size) {
    KwSQLParam* const param = Param(index);
    if (param == nullptr) return;
    param->kind = data != nullptr ? KwSQLParam::Kind::kBlob : KwSQLParam::Kind::kNull;
    param->bytes.assign(data != nullptr ? static_cast<const char*>(data) : "", data != nullptr ? size : 0);
}

void KwSQL::BindNull(int index) {
    KwSQLParam* const param = Param(index);
    if (param != nullptr) param->kind = KwSQLParam::Kind::kNull;
}

bool KwSQL::Execute() {
    if (!Ready(false)) return false;
    if (!state_->prepared) return Fail(Stage::kPrepare, "HY010", 0, "no statement is prepared");
    if (state_->badParam) {
        return Fail(Stage::kPrepare, "07009", 0,
                    "a parameter's number is outside 1 to 65535, or a double is not finite");
    }
    for (const KwSQLParam& param : state_->params) {
        if (param.kind == KwSQLParam::Kind::kUnset)
            return Fail(Stage::kPrepare, "07002", 0, "a parameter is not bound");
    }
    OnEnd(false);
    return Run("");
}

bool KwSQL::Execute(const char* text, int length) {
    if (!Ready(false)) return false;
    state_->prepared = false;
    OnEnd(true);
    const std::string statement = KwSQLText::Narrow(text, length);
    if (statement.empty()) return Fail(Stage::kPrepare, "42000", 0, "the statement is empty");
    return Run(statement);
}

bool KwSQL::Execute(const KwWChar* text, int length) {
    const std::string narrow = KwSQLText::Narrow(text, length);
    return Execute(narrow.data(), static_cast<int>(narrow.size()));
}

bool KwSQL::Run(const std::string& text) {
    if (!OnExecute(text, state_->params)) return false;
    state_->answered = KwPlatform::TickCount();
    return true;
}

int KwSQL::GetColumnCount() const {
    return static_cast<int>(state_->columns.size());
}

const char* KwSQL::GetColumnName(int column) const {
    if (column < 1 || column > GetColumnCount()) return nullptr;
    return state_->columns[static_cast<std::size_t>(column) - 1].c_str();
}

int KwSQL::FindColumn(const char* name) const {
    if (name == nullptr) return 0;
    const std::size_t length = std::strlen(name);
    for (std::size_t i = 0; i < state_->columns.size(); ++i) {
        const std::string& column = state_->columns[i];
        if (column.size() == length && KwMem::ICmp(column.data(), name, static_cast<unsigned int>(length)) == 0) {
            return static_cast<int>(i) + 1;
        }
    }
    return 0;
}

std::int64_t KwSQL::GetAffectedRows() const {
    return state_->affected;
}

bool KwSQL::Fetch() {
    if (!Ready(true) || state_->columns.empty()) return false;
    state_->row = OnFetch();
    return state_->row;
}

bool KwSQL::NextResult() {
    return Ready(false) && OnNextResult();
}

const KwSQLCell* KwSQL::Column(int column) const {
    if (!state_->row || column < 1 || static_cast<std::size_t>(column) > state_->cells.size()) return nullptr;
    const KwSQLCell* const cell = &state_->cells[static_cast<std::size_t>(column) - 1];
    return cell->kind == KwSQLCell::Kind::kNull ? nullptr : cell;
}

bool KwSQL::IsNull(int column) const {
    return Column(column) == nullptr;
}

std::int64_t KwSQL::GetInt64(int column, std::int64_t def) const {
    const KwSQLCell* const cell = Column(column);
    if (cell == nullptr) return def;
    if (cell->kind == KwSQLCell::Kind::kInteger) return cell->integer;
    std::int64_t value = 0;
    if (cell->kind == KwSQLCell::Kind::kBytes) {
        const char* const end = cell->bytes.data() + cell->bytes.size();
        const auto [stop, error] = std::from_chars(cell->bytes.data(), end, value);
        if (error == std::errc() && (stop == end || (*stop != '.' && *stop != 'e' && *stop != 'E'))) return value;
    }
    const double number = GetDouble(column, std::nan(""));
    // 2^63 is the first that does not fit; the comparison is false for what is no number.
    return number >= -9223372036854775808.0 && number < 9223372036854775808.0 ? static_cast<std::int64_t>(number) : def;
}

int KwSQL::GetInt(int column, int def) const {
    const std::int64_t value = GetInt64(column, def);
    return value >= INT32_MIN && value <= INT32_MAX ? static_cast<int>(value) : def;
}

double KwSQL::GetDouble(int column, double def) const {
    const KwSQLCell* const cell = Column(column);
    if (cell == nullptr) return def;
    if (cell->kind == KwSQLCell::Kind::kInteger) return static_cast<double>(cell->integer);
    if (cell->kind == KwSQLCell::Kind::kDouble) return cell->number;
    double value = 0;
    const auto result = std::from_chars(cell->bytes.data(), cell->bytes.data() + cell->bytes.size(), value);
    return result.ec == std::errc() ? value : def;
}

const char* KwSQL::GetString(int column, int* length, const char* def) {
    const KwSQLCell* const cell = Column(column);
    if (cell == nullptr) {
        if (length != nullptr) *length = def != nullptr ? static_cast<int>(std::strlen(def)) : 0;
        return def;
    }
    if (cell->kind == KwSQLCell::Kind::kBytes && cell->bytes.data() != nullptr) {
        if (length != nullptr) *length = static_cast<int>(cell->bytes.size());
        return cell->bytes.data();
    }
    std::string& text = state_->texts[static_cast<std::size_t>(column) - 1];
    text = KwSQLText::FromCell(*cell);
    if (length != nullptr) *length = static_cast<int>(text.size());
    return text.c_str();
}

const KwWChar* KwSQL::GetWString(int column, int* length, const KwWChar* def) {
    const KwSQLCell* const cell = Column(column);
    if (cell == nullptr) {
        if (length != nullptr) *length = def != nullptr ? static_cast<int>(KwUtf::Length16(def)) : 0;
        return def;
    }
    KwWString& text = state_->wides[static_cast<std::size_t>(column) - 1];
    text = cell->kind == KwSQLCell::Kind::kBytes ? KwSQLText::Wide(cell->bytes)
                                                 : KwSQLText::Wide(KwSQLText::FromCell(*cell));
    if (length != nullptr) *length = static_cast<int>(text.size());
    return text.c_str();
}

const void* KwSQL::GetBlob(int column, std::size_t* size) const {
    const KwSQLCell* const cell = Column(column);
    const bool bytes = cell != nullptr && cell->kind == KwSQLCell::Kind::kBytes;
    if (size != nullptr) *size = bytes ? cell->bytes.size() : 0;
    if (!bytes) return nullptr;
    return cell->bytes.data() != nullptr ? cell->bytes.data() : "";
}

bool KwSQL::Transact(Transaction step) {
    if (!Ready(false)) return false;
    const bool begin = step == Transaction::kBegin;
    if (begin == state_->transaction) {
        return Fail(Stage::kPrepare, "25000", 0, begin ? "a transaction is open already" : "no transaction is open");
    }
    OnEnd(false);
    if (!OnTransaction(step)) return false;
    state_->transaction = begin;
    return true;
}

bool KwSQL::Begin() {
    return Transact(Transaction::kBegin);
}

bool KwSQL::Commit() {
    return Transact(Transaction::kCommit);
}

bool KwSQL::Rollback() {
    return Transact(Transaction::kRollback);
}

bool KwSQL::IsInTransaction() const {
    return state_->transaction;
}

void KwSQL::EndStatement() {
    const bool usable = IsOpen();
    if (usable) OnEnd(true);
    if (usable && state_->transaction && !Rollback() && !state_->lost) {
        // Nothing may be written into a transaction that nobody ends.
        Fail(Stage::kRun, "08007", 0, "the transaction cannot be rolled back", true);
    }
    state_->params.clear();
    state_->badParam = state_->prepared = state_->row = state_->transaction = false;
    state_->columns.clear();
    state_->cells.clear();
    state_->affected = -1;
}

const KwSQLError& KwSQL::GetError() const {
    return state_->error;
}

void KwSQL::OnThread(bool) {}
void KwSQL::OnConnected() {}

bool KwSQL::OnPing() {
    const bool done = OnExecute("SELECT 1", {});
    OnEnd(false);
    SetColumns({});
    return done;
}

void KwSQL::OnLog(Stage, const char* state, const char* message) {
    KwLogSystem::Push("sql error %s\t%s", state, message);
}

bool KwSQL::Fail(Stage stage, const char* state, int code, const std::string& message, bool lost) {
    state_->error = {state, message, code, lost};
    const std::string text = KwSQLText::ForLog(message, state_->settings.password);
    if (!state_->quiet) OnLog(stage, state, text.c_str());
    if (lost && state_->open) {
        if (!state_->lost) KwLogSystem::Push("sql connection is lost: %s\t%s", state, text.c_str());
        state_->lost = true;
        state_->transaction = false;
    }
    return false;
}

void KwSQL::SetColumns(std::vector<std::string> names) {
    state_->columns = std::move(names);
    state_->cells.assign(state_->columns.size(), {});
    state_->texts.resize(state_->columns.size());
    state_->wides.resize(state_->columns.size());
}

void KwSQL::SetAffectedRows(std::int64_t rows) {
    state_->affected = rows;
}

KwSQLCell& KwSQL::Cell(std::size_t index) {
    return state_->cells[index];
}
