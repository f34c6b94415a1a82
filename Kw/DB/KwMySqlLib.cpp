#include "Kw/DB/KwMySqlLib.h"

#include <mutex>

#include "Kw/DB/KwMySqlCalls.h"
#include "Kw/KwStaticLock.h"
#include "Kw/Platform/KwPlatformModule.h"

namespace {

constexpr const char* kUsualNames[] = {"libmysql.dll",        "libmariadb.so.3", "libmysqlclient.so.21",
                                       "libmysqlclient.so",   "libmariadb.so",   "libmysqlclient.so.24",
                                       "libmysqlclient.so.20"};

constinit KwStaticLock g_lock;
constinit char g_name[512] = "";

template <class F>
bool Resolve(void* module, const char* name, F& function) {
    function = reinterpret_cast<F>(KwPlatform::ModuleFunction(module, name));
    return function != nullptr;
}

// The name of the first function that is missing, null when all are there.
const char* ResolveNeeded(void* module, KwMySqlCalls& calls) {
    const char* missing = nullptr;
    const auto need = [&](const char* name, auto& function) {
        if (!Resolve(module, name, function) && missing == nullptr) missing = name;
    };
    need("mysql_init", calls.init);
    need("mysql_options", calls.options);
    need("mysql_real_connect", calls.realConnect);
    need("mysql_select_db", calls.selectDb);
    need("mysql_close", calls.close);
    need("mysql_free_result", calls.freeResult);
    need("mysql_real_query", calls.realQuery);
    need("mysql_store_result", calls.storeResult);
    need("mysql_num_fields", calls.numFields);
    need("mysql_fetch_fields", calls.fetchFields);
    need("mysql_real_escape_string", calls.realEscapeString);
    need("mysql_fetch_lengths", calls.fetchLengths);
    need("mysql_fetch_row", calls.fetchRow);
    need("mysql_num_rows", calls.numRows);
    return missing;
}

void ResolveOthers(void* module, KwMySqlCalls& calls) {
    Resolve(module, "mysql_error", calls.error);
    Resolve(module, "mysql_errno", calls.errorCode);
    Resolve(module, "mysql_sqlstate", calls.state);
    Resolve(module, "mysql_affected_rows", calls.affectedRows);
    Resolve(module, "mysql_field_count", calls.fieldCount);
    Resolve(module, "mysql_next_result", calls.nextResult);
    Resolve(module, "mysql_thread_end", calls.threadEnd);
}

}  // namespace

CMySqlLib::CMySqlLib() = default;
CMySqlLib::~CMySqlLib() = default;

void CMySqlLib::SetLibrary(const char* name) {
    const std::string text = name != nullptr ? name : "";
    const std::lock_guard<KwStaticLock> guard(g_lock);
    g_name[text.copy(g_name, sizeof(g_name) - 1)] = '\0';
}

bool CMySqlLib::Load() {
    if (calls_ != nullptr) return true;
    std::string name;
    {
        const std::lock_guard<KwStaticLock> guard(g_lock);
        name = g_name;
    }
    void* module = name.empty() ? nullptr : KwPlatform::ModuleOpenSystem(name.c_str());
    std::string tried = name;
    if (name.empty()) {
        for (const char* usual : kUsualNames) {
            tried += (tried.empty() ? "" : ", ") + std::string(usual);
            module = KwPlatform::ModuleOpenSystem(usual);
            if (module == nullptr) continue;
            name = usual;
            break;
        }
    }
    if (module == nullptr) {
        error_ = "no MySQL client library: " + tried;
        return false;
    }
    auto calls = std::make_unique<KwMySqlCalls>();
    if (const char* const missing = ResolveNeeded(module, *calls)) {
        error_ = "the MySQL client library " + name + " has no " + missing;
        KwPlatform::ModuleClose(module);
        return false;
    }
    ResolveOthers(module, *calls);
    calls_ = std::move(calls);
    error_.clear();
    return true;
}

const std::string& CMySqlLib::GetError() const {
    return error_;
}

const KwMySqlCalls* CMySqlLib::GetCalls() const {
    return calls_.get();
}
