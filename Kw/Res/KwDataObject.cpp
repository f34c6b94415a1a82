#include "Kw/Res/KwDataObject.h"

#include <algorithm>
#include <new>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Helper/KwMath.h"
#include "Kw/KwBuffer.h"
#include "Kw/Res/KwDataFile.h"
#include "Kw/Res/KwDataParser.h"
#include "Kw/Res/KwDataWalk.h"

KwDS::KwDS() = default;

KwDS::KwDS(const KwDS& other) : KwDS() {
    KwDataWalk::Copy(*this, other);
}

KwDS& KwDS::operator=(const KwDS& other) {
    KwDataWalk::Copy(*this, other);
    return *this;
}

KwDS::~KwDS() {
    Drop();
}

bool KwDS::Init(unsigned char* data, unsigned int len) {
    if (data == nullptr && len != 0) return false;
    unsigned char* cursor = data;
    return ParseData(cursor, data + len, nullptr);
}

bool KwDS::Init(const char* path, KwStreamShare* stream) {
    bool done = false;
    const auto load = [this, &done](KwBuffer& file) { done = Init(file.GetData(), file.GetUsed()); };
    if (!KwDataFile::Read(path, stream, load)) error_ = KwDataFile::NotRead(path);
    return done;
}

void KwDS::Clear() {
    Drop();
}

void KwDS::Drop() {
    KwDataWalk::Touch(this);
    const KwDataWalk::DestroyScope scope;
    const KwDataSlab::GiveScope giveScope;
    members_.clear();
    indexed_.clear();
}

bool KwDS::ParseData(unsigned char*& cursor, unsigned char* end, SPreBuildText*) {
    KwDataWalk::Touch(this);
    error_.reset();
    KwDataParser parser(*this, cursor, end);
    const bool done = parser.Run();
    cursor += parser.GetPosition() - cursor;
    return done;
}

const KwParseError& KwDS::GetParseError() const {
    return error_ != nullptr ? *error_ : KwParseError::None();
}

// --- Look-up ---

KwDSItem* KwDS::Find(int index) {
    const auto found = indexed_.find(index);
    return found != indexed_.end() ? &found->second : nullptr;
}

KwDSItem* KwDS::Find(std::string_view name) {
    const auto found = members_.find(name);
    return found != members_.end() ? &found->second : nullptr;
}

KwDSItem* KwDS::GetItemInfo(int index) {
    KwDSItem* item = Find(index);
    if (item != nullptr) item->Commit();
    return item;
}

KwDSItem* KwDS::GetItemInfo(const char* name) {
    if (name == nullptr) return nullptr;
    if (name[0] == '$') return GetVaries(name);
    KwDSItem* item = Find(std::string_view(name));
    if (item != nullptr) item->Commit();
    return item;
}

KwDSItem* KwDS::GetVaries(const char* path) {
    constexpr std::size_t kLongestStep = 63;
    if (path == nullptr) return nullptr;
    std::string_view rest(path);
    if (!rest.empty() && rest[0] == '$') rest.remove_prefix(1);
    KwDS* document = this;
    KwDSItem* item = nullptr;
    for (bool last = false; !last;) {
        const std::size_t dot = rest.find('.');
        last = dot == std::string_view::npos;
        if (last && rest.empty()) break;
        const std::string_view step = last ? rest : rest.substr(0, std::min(dot, kLongestStep));
        const bool isIndex = !step.empty() && step[0] >= '0' && step[0] <= '9';
        item =
            isIndex ? document->Find(KwMath::ToInt(step.data(), static_cast<int>(step.size()))) : document->Find(step);
        if (item == nullptr) return nullptr;
        item->Commit();
        if (last) break;
        document = item->GetStruct();
        if (document == nullptr) return nullptr;
        rest.remove_prefix(dot + 1);
    }
    return item;
}

KwDSItem& KwDS::operator[](const int& index) {
    int key = index;
    if (key < 1) {
        KwLogSystem::Push("error KwDSItem index=0");
        key = 0;
    }
    KwDataWalk::Touch(this);
    KwDSItem& item = indexed_[key];
    item.Commit();
    return item;
}

KwDSItem& KwDS::operator[](const char* name) {
    const std::string_view key(name != nullptr ? name : "");
    KwDataWalk::Touch(this);
    auto place = members_.lower_bound(key);
    if (place == members_.end() || place->first != key) place = members_.try_emplace(place, std::string(key));
    place->second.Commit();
    return place->second;
}

// --- Reading ---

namespace {
template <typename Char>
const Char* Default(int* len, const Char* def) {
    if (len != nullptr) *len = def != nullptr ? static_cast<int>(std::char_traits<Char>::length(def)) : 0;
    return def;
}
}  // namespace

DSTYPE KwDS::GetType(int index) {
    KwDSItem* item = GetItemInfo(index);
    return item != nullptr ? item->GetType() : DSTYPE_NONE;
}
DSTYPE KwDS::GetType(const char* name) {
    KwDSItem* item = GetItemInfo(name);
    return item != nullptr ? item->GetType() : DSTYPE_NONE;
}

int KwDS::GetInt(int index, int def) {
    KwDSItem* item = GetItemInfo(index);
    return item != nullptr ? item->GetInt(def) : def;
}
int KwDS::GetInt(const char* name, int def) {
    KwDSItem* item = GetItemInfo(name);
    return item != nullptr ? item->GetInt(def) : def;
}

unsigned int KwDS::GetUint(int index, unsigned int def) {
    KwDSItem* item = GetItemInfo(index);
    return item != nullptr ? item->GetUint(def) : def;
}
unsigned int KwDS::GetUint(const char* name, unsigned int def) {
    KwDSItem* item = GetItemInfo(name);
    return item != nullptr ? item->GetUint(def) : def;
}

double KwDS::GetDouble(int index, double def) {
    KwDSItem* item = GetItemInfo(index);
    return item != nullptr ? item->GetDouble(def) : def;
}
double KwDS::GetDouble(const char* name, double def) {
    KwDSItem* item = GetItemInfo(name);
    return item != nullptr ? item->GetDouble(def) : def;
}

bool KwDS::GetBool(int index, bool def) {
    KwDSItem* item = GetItemInfo(index);
    return item != nullptr ? item->GetBool(def) : def;
}
bool KwDS::GetBool(const char* name, bool def) {
    KwDSItem* item = GetItemInfo(name);
    return item != nullptr ? item->GetBool(def) : def;
}

const char* KwDS::GetString(int index, int* len, const char* def) {
    KwDSItem* item = GetItemInfo(index);
    return item != nullptr ? item->GetString(len, def) : Default(len, def);
}
const char* KwDS::GetString(const char* name, int* len, const char* def) {
    KwDSItem* item = GetItemInfo(name);
    return item != nullptr ? item->GetString(len, def) : Default(len, def);
}

const KwWChar* KwDS::GetWString(int index, int* len, const KwWChar* def) {
    KwDSItem* item = GetItemInfo(index);
    return item != nullptr ? item->GetWString(len, def) : Default(len, def);
}
const KwWChar* KwDS::GetWString(const char* name, int* len, const KwWChar* def) {
    KwDSItem* item = GetItemInfo(name);
    return item != nullptr ? item->GetWString(len, def) : Default(len, def);
}

KwDS* KwDS::GetStruct(int index) {
    KwDSItem* item = GetItemInfo(index);
    return item != nullptr ? item->GetStruct() : nullptr;
}
KwDS* KwDS::GetStruct(const char* name) {
    KwDSItem* item = GetItemInfo(name);
    return item != nullptr ? item->GetStruct() : nullptr;
}

KwTable* KwDS::GetTable(int index) {
    KwDSItem* item = GetItemInfo(index);
    return item != nullptr ? item->GetTable() : nullptr;
}
KwTable* KwDS::GetTable(const char* name) {
    KwDSItem* item = GetItemInfo(name);
    return item != nullptr ? item->GetTable() : nullptr;
}

int KwDS::GetMemberSize() const {
    return static_cast<int>(members_.size());
}
int KwDS::GetArraySize() const {
    return static_cast<int>(indexed_.size());
}

void KwDS::ShowDebug() {
    KwDataWalk::Show(*this);
}
