// The layouts that hosts are compiled against: the order of virtual operations on every build, and of fields;
// exact offsets on the 32-bit one.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include "Kw/App/KwEventTimeUnit.h"
#include "Kw/Kw.h"
#include "Kw/KwListenEvent.h"
#include "Kw/KwMemoryBlock.h"
#include "Kw/Res/KwTableScan.h"

namespace {

constexpr bool k32 = sizeof(void*) == 4;

// Fields --------------------------------------------------------------------------------------------------------

// An explicit instantiation may name private members: this hands out where one stands. On both platforms a
// pointer to a data member is the offset itself.
template <typename Tag, auto Member>
struct Expose {
    friend std::ptrdiff_t Offset(Tag) {
        const auto member = Member;
        std::ptrdiff_t offset = 0;
        static_assert(sizeof(member) == sizeof(offset));
        std::memcpy(&offset, &member, sizeof(offset));
        return offset;
    }
};
#define FIELD(Class, name, field)           \
    struct name {                           \
        friend std::ptrdiff_t Offset(name); \
    };                                      \
    template struct Expose<name, &Class::field>

// Each field stands behind the one before it.
template <typename... Tags>
bool InOrder(Tags... tags) {
    std::ptrdiff_t last = -1;
    return ((Offset(tags) > last ? (last = Offset(tags), true) : false) && ...);
}

FIELD(KwInf, InfCount, refCount_);
FIELD(KwInf, InfAttached, attached_);
FIELD(KwInfLock, InfLock, lock_);
static_assert(!k32 || (sizeof(KwInf) == 8 && sizeof(KwInfLock) == 12));
static_assert(sizeof(KwLock) == sizeof(void*));

static_assert(sizeof(SKwNode) == 3 * sizeof(void*));
static_assert(offsetof(SKwNode, owner) == 0 && offsetof(SKwNode, next) == sizeof(void*));
static_assert(offsetof(SKwNode, prev) == 2 * sizeof(void*));
static_assert(offsetof(SKwList, head) == 0 && offsetof(SKwList, tail) == sizeof(SKwNode));
static_assert(offsetof(SKwList, count) == 2 * sizeof(SKwNode));
static_assert(!k32 || (sizeof(SKwNode) == 12 && sizeof(SKwList) == 28));
static_assert(!k32 || (sizeof(KwNode) == 16 && sizeof(KwList) == 32 && sizeof(KwListLock) == 36));

// The block header, which tools that walk a dump know by heart.
FIELD(KwMemoryBlock, BlockSize, size);
FIELD(KwMemoryBlock, BlockFile, file);
FIELD(KwMemoryBlock, BlockLine, line);
FIELD(KwMemoryBlock, BlockFlags, flags);
FIELD(KwMemoryBlock, BlockPool, pool);
FIELD(KwMemoryBlock, BlockGuard, guard);

FIELD(KwBuffer, BufferUser, userData_);
FIELD(KwBuffer, BufferSize, size_);
FIELD(KwBuffer, BufferUsed, used_);
FIELD(KwBuffer, BufferData, data_);

FIELD(KwBufferNode, NodeOwner, owner_);

FIELD(KwBufferList, PoolTag, tag_);
FIELD(KwBufferList, PoolFree, free_);
FIELD(KwBufferList, PoolUsed, used_);
FIELD(KwBufferList, PoolSize, bufferSize_);
FIELD(KwBufferList, PoolLimit, freeLimit_);

FIELD(KwListenEvent, ServiceQueue, queue_);
FIELD(KwListenEvent, ServiceSpare, spare_);
FIELD(KwListenEvent, ServiceThreads, threads_);
FIELD(KwListenEvent, ServiceCount, threadCount_);

static_assert(offsetof(STime, second) == 0 && offsetof(STime, minute) == 1 && offsetof(STime, hour) == 2);
static_assert(offsetof(STime, day) == 3 && offsetof(STime, week) == 4 && offsetof(STime, month) == 5);
static_assert(offsetof(STime, year) == 6 && sizeof(STime) == 8 && sizeof(KwCalcTime) == 8);

FIELD(CTestProssTime, WatchLog, log_);
FIELD(CTestProssTime, WatchBegin, beginTick_);
FIELD(CTestProssTime, WatchLast, lastTick_);
FIELD(CTestProssTime, WatchSteps, steps_);
FIELD(CTestProssTime, WatchName, name_);

FIELD(KwFile, FileHandle, handle_);
FIELD(KwFile, FileSize, size_);
FIELD(KwFile, FileKind, kind_);
FIELD(KwFile, FileAccess, access_);
FIELD(KwFile, FilePosition, position_);

FIELD(KwFilePack, PackFile, file_);
FIELD(KwFilePack, PackBuffer, buffer_);
FIELD(KwFilePack, PackPath, path_);
FIELD(KwFilePack, PackSize, size_);
FIELD(KwFilePack, PackItems, items_);
FIELD(KwFilePack, PackCount, count_);
FIELD(KwFilePack, PackRoom, capacity_);
FIELD(KwFilePack, PackUnpack, unpack_);
FIELD(KwPackEntry, CacheHash, hash);
FIELD(KwPackEntry, CacheData, data);
FIELD(SPackFileCache, CacheTime, time);
FIELD(SPackFileCache, CacheCount, references);
FIELD(SPackFileCache, CacheTag, tag);
FIELD(SPackFileCache, CacheItem, item);
static_assert(offsetof(SPackFileItem, storedSize) == 4 && offsetof(SPackFileItem, unpackedSize) == 8);
static_assert(offsetof(SPackFileItem, method) == 12 && offsetof(SPackFileItem, word) == 16);
static_assert(offsetof(SPackFileItem, offset) == 20 && offsetof(SPackFileItem, pack) == 24);

FIELD(KwLog, LogFile, file_);
FIELD(KwLog, LogDirectory, directory_);
FIELD(KwLog, LogName, name_);
FIELD(KwLog, LogPerCheck, linesPerCheck_);
FIELD(KwLog, LogLines, lines_);
FIELD(KwLog, LogNext, nextCheckTick_);
FIELD(KwLog, LogInterval, checkInterval_);
FIELD(KwLog, LogLock, lock_);
FIELD(KwLog, LogOnWrite, checkOnWrite_);

FIELD(KwLoadLib, LibModule, module_);
FIELD(KwLoadLib, LibMemory, fromMemory_);
FIELD(KwLoadLibManager, ManagerLibraries, libraries_);

FIELD(KwAppClass, AppCommand, command_);
FIELD(KwAppClass, AppRunning, running_);
FIELD(KwAppClass, AppThreads, threads_);
FIELD(KwAppClass, AppThread, commandThread_);
FIELD(KwAppClass, AppTick, lastTick_);
FIELD(KwAppClass, AppName, name_);

FIELD(KwCommand, CommandTree, commands_);
FIELD(KwCommand, CommandLine, lineBuffer_);
FIELD(KwCommand, CommandLength, lineLength_);
FIELD(KwCommand, CommandKey, previousKey_);
FIELD(KwCommand, CommandPending, pending_);
FIELD(KwCommand, CommandLock, pendingLock_);
FIELD(KwCommand, CommandTarget, fallbackTarget_);
FIELD(KwCommand, CommandFallback, fallback_);
FIELD(KwCommand, CommandName, nameBuffer_);
static_assert(offsetof(KwCommand::SCommand, handler) < offsetof(KwCommand::SCommand, target));
static_assert(offsetof(KwCommand::SCommand, target) < offsetof(KwCommand::SCommand, description));
static_assert(offsetof(KwCommand::SCommand, description) < offsetof(KwCommand::SCommand, members));

FIELD(KwCmd, CmdValues, values_);
FIELD(KwCmd, CmdCount, positional_);

FIELD(SEventTime, EventTarget, target);
FIELD(SEventTime, EventInterval, interval);
FIELD(SEventTime, EventCounter, counter);
FIELD(SEventTime, EventParam, param);
FIELD(KwEventTime, TimeCurrent, current_);
FIELD(KwEventTime, TimePrevious, previous_);
FIELD(KwEventTime, TimeSecond, nextSecondTick_);
FIELD(KwEventTime, TimeMinute, nextMinuteTick_);
FIELD(KwEventTime, TimeName, logName_);
FIELD(KwEventTime, TimeLog, log_);

FIELD(KwTaskNode, TaskOwner, owner_);
FIELD(KwTaskNode, TaskState, state_);
FIELD(KwTask, TaskQueue, queue_);
FIELD(KwTask, TaskQueueLock, queueLock_);
FIELD(KwTask, TaskThreadLock, threadLock_);
FIELD(KwTask, TaskThreads, threads_);
FIELD(KwTask, TaskCount, taskCount_);
FIELD(KwServiceManager, ManagerThreads, threads_);

FIELD(KwDSItem, ItemType, type_);
FIELD(KwDSItem, ItemOwner, owner_);
FIELD(KwDSItem, ItemValue, value_);

FIELD(KwDS, DocumentMembers, members_);
FIELD(KwDS, DocumentIndexed, indexed_);
FIELD(KwDS, DocumentBuffer, keyBuffer_);
FIELD(KwDS, DocumentError, error_);

FIELD(KwTable, TableRows, rowCount_);
FIELD(KwTable, TableColumns, columnCount_);
FIELD(KwTable, TableMap, rows_);

FIELD(KwTablePtr, ViewText, text_);
FIELD(KwTablePtr, ViewColumns, columnCount_);
FIELD(KwTablePtr, ViewRows, rowCount_);
FIELD(KwTablePtr, ViewCells, cells_);

static_assert(sizeof(KwFileIni) == sizeof(KwList) + sizeof(void*),
              "what a file keeps beside its list stands behind it");
FIELD(SIniSec, SectionName, name);
FIELD(SIniSec, SectionLength, nameLen);
FIELD(SIniMem, MemberKey, key);
FIELD(SIniMem, MemberKeyLength, keyLen);
FIELD(SIniMem, MemberValue, value);
FIELD(SIniMem, MemberValueLength, valueLen);

FIELD(KwStreamShare, ShareIdle, idle_);
FIELD(KwStreamShare, ShareCount, count_);
FIELD(KwStreamShare, ShareLimit, maxIdle_);

FIELD(KwNetPacket, PacketParams, params_);
FIELD(KwNetPacket, PacketCommand, command_);
FIELD(KwNetPacket, PacketBuffer, buffer_);
FIELD(KwNetPacket, PacketMode, mode_);

FIELD(CKwDBRT, DbDirectory, directory_);
FIELD(CKwDBRT, DbName, name_);
FIELD(CKwDBRT, DbJournal, journalPath_);
FIELD(CKwDBRT, DbLastId, lastId_);
FIELD(CKwDBRT, DbFileNumber, fileNumber_);
FIELD(CKwDBRT, DbFileEnd, fileEnd_);
FIELD(CKwDBRT, DbObjectLock, objectLock_);
FIELD(CKwDBRT, DbMapLock, mapLock_);
FIELD(CKwDBRT, DbIds, ids_);
FIELD(CKwDBRT, DbNames, names_);
FIELD(CKwDBRT, DbLower, lowerBuffer_);
FIELD(CKwDBRT, DbMaxRecord, maxRecord_);
FIELD(CKwDBRT, DbPool, pool_);
FIELD(CKwDBRT, DbLogins, logins_);
FIELD(CKwDBRT, DbCommits, commits_);
FIELD(CKwDBRT, DbActions, actions_);

FIELD(CKwDBRTObject, DbObjectName, name_);
FIELD(CKwDBRTObject, DbObjectId, id_);
FIELD(CKwDBRTObject, DbObjectOwner, db_);

FIELD(KwDataSearchId, IndexOffset, keyOffset_);
FIELD(KwDataSearchId, IndexCapacity, pageCapacity_);
FIELD(KwDataSearchId, IndexCount, count_);
FIELD(KwDataSearchId, IndexTable, pages_);
FIELD(KwDataSearchId, IndexPages, pageCount_);
FIELD(KwDataSearchId, IndexRoom, pageRoom_);
FIELD(KwDataSearchId, IndexPage, page_);
FIELD(KwDataSearchId, IndexPosition, position_);
FIELD(KwDataSearchId, IndexCallbacks, useCallbacks_);

TEST(KwLayoutTest, CoreFieldsStandInOrder) {
    EXPECT_TRUE(Offset(InfCount()) == sizeof(void*));
    EXPECT_TRUE(Offset(InfAttached()) == sizeof(void*) + 2);
    EXPECT_TRUE(Offset(InfLock()) == 2 * sizeof(void*));
    EXPECT_TRUE(InOrder(BlockSize(), BlockFile(), BlockLine(), BlockFlags(), BlockPool(), BlockGuard()));
    EXPECT_TRUE(!k32 || (Offset(BlockSize()) == 12 && Offset(BlockFile()) == 16 && Offset(BlockLine()) == 20));
    EXPECT_TRUE(!k32 || (Offset(BlockFlags()) == 24 && Offset(BlockPool()) == 25 && Offset(BlockGuard()) == 26));
    EXPECT_TRUE(Offset(BlockGuard()) + 2 == sizeof(KwMemoryBlock)) << "right before the data";
    EXPECT_TRUE(Offset(BufferUser()) == sizeof(KwInfLock));
    EXPECT_TRUE(InOrder(BufferUser(), BufferSize(), BufferUsed(), BufferData()));
    EXPECT_TRUE(!k32 || (Offset(BufferUser()) == 12 && Offset(BufferSize()) == 16 && Offset(BufferUsed()) == 20));
    EXPECT_TRUE(!k32 || (Offset(BufferData()) == 24 && sizeof(KwBuffer) == 28));
    EXPECT_TRUE(Offset(NodeOwner()) == sizeof(KwNode) + sizeof(KwBuffer));
    EXPECT_TRUE(InOrder(PoolTag(), PoolFree(), PoolUsed(), PoolSize(), PoolLimit()));
    EXPECT_TRUE(!k32 || (Offset(PoolTag()) == 12 && Offset(PoolFree()) == 16 && Offset(PoolUsed()) == 48));
    EXPECT_TRUE(!k32 || (Offset(PoolSize()) == 80 && Offset(PoolLimit()) == 84));
    EXPECT_TRUE(InOrder(ServiceQueue(), ServiceSpare(), ServiceThreads(), ServiceCount()));
    EXPECT_TRUE(!k32 || (Offset(ServiceQueue()) == 12 && Offset(ServiceSpare()) == 44));
    EXPECT_TRUE(Offset(WatchLog()) == sizeof(void*));
    EXPECT_TRUE(InOrder(WatchLog(), WatchBegin(), WatchLast(), WatchSteps(), WatchName()));
    EXPECT_TRUE(!k32 || (Offset(WatchBegin()) == 8 && Offset(WatchLast()) == 12 && Offset(WatchSteps()) == 16));
}

TEST(KwLayoutTest, FieldsOfFilesApplicationsAndDocumentsStandInOrder) {
    EXPECT_TRUE(Offset(FileHandle()) == sizeof(void*) && Offset(FileSize()) == 2 * sizeof(void*));
    EXPECT_TRUE(Offset(FileKind()) % 4 == 0 && Offset(FileAccess()) == Offset(FileKind()) + 2) << "one word of 32 bits";
    EXPECT_TRUE(InOrder(FileSize(), FileKind(), FileAccess(), FilePosition()));
    EXPECT_TRUE(!k32 || (Offset(FileKind()) == 12 && Offset(FileAccess()) == 14 && Offset(FilePosition()) == 16));
    EXPECT_TRUE(Offset(LogFile()) == sizeof(void*));
    EXPECT_TRUE(
        InOrder(PackFile(), PackBuffer(), PackPath(), PackSize(), PackItems(), PackCount(), PackRoom(), PackUnpack()));
    EXPECT_TRUE(InOrder(CacheHash(), CacheData(), CacheTime(), CacheCount(), CacheTag(), CacheItem()));
    EXPECT_TRUE(!k32 || (Offset(CacheData()) == 4 && Offset(CacheTime()) == 8 && Offset(CacheItem()) == 20));
    EXPECT_TRUE(InOrder(LogFile(), LogDirectory(), LogName(), LogPerCheck(), LogLines(), LogNext(), LogInterval(),
                        LogLock(), LogOnWrite()));
    EXPECT_TRUE(Offset(LibModule()) == sizeof(void*) && Offset(LibMemory()) == 2 * sizeof(void*));
    EXPECT_TRUE(Offset(ManagerLibraries()) == sizeof(void*));
    EXPECT_TRUE(Offset(AppCommand()) == sizeof(KwInfLock));
    EXPECT_TRUE(InOrder(AppCommand(), AppRunning(), AppThreads(), AppThread(), AppTick(), AppName()));
    EXPECT_TRUE(!k32 || (Offset(AppCommand()) == 12 && Offset(AppRunning()) == 16));
    EXPECT_TRUE(Offset(CommandTree()) == sizeof(KwInfLock));
    EXPECT_TRUE(InOrder(CommandTree(), CommandLine(), CommandLength(), CommandKey(), CommandPending(), CommandLock(),
                        CommandTarget(), CommandFallback(), CommandName()));
    EXPECT_TRUE(Offset(CommandLength()) == Offset(CommandLine()) + 1024);
    EXPECT_TRUE(Offset(CmdValues()) == 0 && Offset(CmdCount()) == sizeof(KwCmd::Values));
    EXPECT_TRUE(Offset(ItemType()) == 0 && sizeof(DSTYPE) == 4);
    EXPECT_TRUE(Offset(ItemOwner()) == sizeof(void*) && Offset(ItemValue()) == 2 * sizeof(void*));
    EXPECT_TRUE(Offset(DocumentMembers()) == sizeof(void*));
    EXPECT_TRUE(InOrder(DocumentMembers(), DocumentIndexed(), DocumentError()));
    EXPECT_TRUE(!k32 || (Offset(DocumentBuffer()) > Offset(DocumentIndexed()) &&
                         Offset(DocumentError()) == Offset(DocumentBuffer()) + 1024));
    EXPECT_TRUE(Offset(TableRows()) == 0 && Offset(TableColumns()) == 4 && Offset(TableMap()) == 8);
    EXPECT_TRUE(InOrder(ViewText(), ViewColumns(), ViewRows(), ViewCells()));
    EXPECT_TRUE(Offset(ViewText()) == 0 && Offset(ViewColumns()) == sizeof(KwBuffer) && sizeof(KwTableCell) == 8);
    EXPECT_TRUE(InOrder(ShareIdle(), ShareCount(), ShareLimit()));
    EXPECT_TRUE(Offset(PacketParams()) == 0 && Offset(PacketCommand()) == sizeof(std::list<std::string>));
    EXPECT_TRUE(InOrder(PacketParams(), PacketCommand(), PacketBuffer(), PacketMode()));
    EXPECT_TRUE(!k32 || (Offset(PacketBuffer()) == 36 && Offset(PacketMode()) == 40));
    EXPECT_TRUE(Offset(SectionName()) == sizeof(KwList) + sizeof(KwNode));
    EXPECT_TRUE(InOrder(SectionName(), SectionLength()));
    EXPECT_TRUE(Offset(MemberKey()) == sizeof(KwNode));
    EXPECT_TRUE(InOrder(MemberKey(), MemberKeyLength(), MemberValue(), MemberValueLength()));
    EXPECT_TRUE(!k32 || (Offset(SectionName()) == 48 && Offset(MemberKey()) == 16 && Offset(MemberValue()) == 24));
    EXPECT_TRUE(Offset(IndexOffset()) == sizeof(void*) && Offset(IndexPage()) % 4 == 0);
    EXPECT_TRUE(InOrder(IndexOffset(), IndexCapacity(), IndexCount(), IndexTable(), IndexPages(), IndexRoom(),
                        IndexPage(), IndexPosition(), IndexCallbacks()));
    EXPECT_TRUE(!k32 || (Offset(IndexTable()) == 16 && Offset(IndexPage()) == 28 && Offset(IndexCallbacks()) == 36));
}

TEST(KwLayoutTest, FieldsOfTheRuntimeDatabaseStandInOrder) {
    EXPECT_TRUE(Offset(DbDirectory()) == sizeof(void*)) << "behind the table alone";
    EXPECT_TRUE(InOrder(DbDirectory(), DbName(), DbJournal(), DbLastId(), DbFileNumber(), DbFileEnd(), DbObjectLock(),
                        DbMapLock(), DbIds(), DbNames(), DbLower(), DbMaxRecord(), DbPool(), DbLogins(), DbCommits(),
                        DbActions()));
    EXPECT_TRUE(Offset(DbObjectName()) >= static_cast<std::ptrdiff_t>(sizeof(KwInfLock)));
    EXPECT_TRUE(InOrder(DbObjectName(), DbObjectId(), DbObjectOwner()));
    EXPECT_TRUE(!k32 || Offset(DbObjectName()) == 12);
}

TEST(KwLayoutTest, FieldsOfTimedEventsAndTasksStandInOrder) {
    EXPECT_TRUE(Offset(EventTarget()) == sizeof(KwNode));
    EXPECT_TRUE(InOrder(EventTarget(), EventInterval(), EventCounter(), EventParam()));
    EXPECT_TRUE(Offset(TimeCurrent()) == 6 * sizeof(KwList)) << "not virtual, the lists first";
    EXPECT_TRUE(Offset(TimePrevious()) == Offset(TimeCurrent()) + 8);
    EXPECT_TRUE(Offset(TimeSecond()) == Offset(TimeCurrent()) + 16);
    EXPECT_TRUE(Offset(TimeMinute()) == Offset(TimeCurrent()) + 20);
    EXPECT_TRUE(Offset(TimeName()) == Offset(TimeCurrent()) + 24 && Offset(TimeLog()) > Offset(TimeName()));
    EXPECT_TRUE(Offset(TaskOwner()) == sizeof(void*) && Offset(TaskState()) == 2 * sizeof(void*));
    EXPECT_TRUE(Offset(TaskQueue()) == sizeof(KwInfLock));
    EXPECT_TRUE(InOrder(TaskQueue(), TaskQueueLock(), TaskThreadLock(), TaskThreads(), TaskCount()));
    EXPECT_TRUE(Offset(ManagerThreads()) == sizeof(void*));
}

// The first bytes of a live block are what the structure says, guard included.
TEST(KwLayoutTest, ABlockCarriesItsHeaderRightBeforeTheData) {
    const char* file = "KwLayoutTest";
    auto* data = static_cast<unsigned char*>(KwMemory::Malloc(5, file, 77));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data[-2], 0x7D);
    EXPECT_EQ(data[-1], 0x5B);
    const unsigned char trailer[4] = {0x7D, 0x5B, 0, 0};
    EXPECT_EQ(std::memcmp(data + 5, trailer, 4), 0);
    if constexpr (k32) {
        std::uint32_t words[7];
        std::memcpy(words, data - 28, 28);
        EXPECT_EQ(words[3], 5u);
        EXPECT_EQ(words[4], static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(file)));
        EXPECT_EQ(words[5], 77u);
        EXPECT_EQ(data[-4], 1) << "allocated";
    }
    KwMemory::Free(data, nullptr, 0);
}

// Virtual operations ----------------------------------------------------------------------------------------------

// Where a pointer to a virtual member stands in the table; both platforms store it as its byte offset plus 1.
template <typename Member>
int Entry(Member member) {
    std::uintptr_t words[2];
    static_assert(sizeof(member) == sizeof(words));
    std::memcpy(words, &member, sizeof(words));
    if (words[0] % 2 == 0) return -1;  // not virtual
    return static_cast<int>((words[0] - 1) / sizeof(void*));
}

// Slots count a destructor in front as one; it takes two entries.
template <typename Member>
int Slot(Member member) {
    return Entry(member) - 1;
}

TEST(KwLayoutTest, CoreSlotsStandInOrder) {
    EXPECT_EQ(Slot(&KwInf::AddRef), 1);
    EXPECT_EQ(Slot(&KwInf::Release), 2);
    EXPECT_EQ(Slot(&KwInf::GetRef), 3);
    EXPECT_EQ(Slot(&KwInf::Attack), 4);
    EXPECT_EQ(Slot(&KwInfLock::Attack), 4);

    EXPECT_EQ(Slot(&KwNode::ResetNode), 1);
    EXPECT_EQ(Slot(&KwNode::RemoveNode), 2);
    EXPECT_EQ(Slot(&KwNode::InsertBefore), 3);
    EXPECT_EQ(Slot(&KwNode::InsertAfter), 4);

    EXPECT_EQ(Slot(&KwList::Clear), 1);
    EXPECT_EQ(Slot(&KwList::InitList), 2);
    EXPECT_EQ(Slot(&KwList::AddHead), 3);
    EXPECT_EQ(Slot(&KwList::AddTail), 4);
    EXPECT_EQ(Slot(&KwList::RemoveHead), 5);
    EXPECT_EQ(Slot(&KwList::RemoveTail), 6);

    EXPECT_EQ(Slot(&KwBuffer::Alloc), 5);
    EXPECT_EQ(Slot(&KwBuffer::Realloc), 6);
    EXPECT_EQ(Slot(&KwEvent_Base::OnEvent), 1);

    EXPECT_EQ(Entry(&CTestProssTime::OnUpdateTime), 0) << "no destructor in front";
    EXPECT_EQ(Entry(&CTestProssTime::OnEndTime), 1);
}

class AppSlots : public KwAppClass {
public:
    static std::vector<int> All() {
        return {Slot(&AppSlots::OnInit), Slot(&AppSlots::OnPreRun), Slot(&AppSlots::OnRun), Slot(&AppSlots::OnClose),
                Slot(&AppSlots::CanStopApp)};
    }
};

class LogSlots : public KwLog {
public:
    // The destructor stands behind the others.
    static std::vector<int> All() {
        return {Entry(&LogSlots::Init),        Entry(&LogSlots::Close),        Entry(&LogSlots::Run),
                Entry(&LogSlots::Write),       Entry(&LogSlots::WriteF),       Entry(&LogSlots::WriteV),
                Entry(&LogSlots::GetNewFile),  Entry(&LogSlots::OnBeginWrite), Entry(&LogSlots::OnEndWrite),
                Entry(&LogSlots::GetTimeWrite)};
    }
};

class DatabaseSlots : public CKwDBRT {
public:
    // No destructor in the table.
    static std::vector<int> All() {
        return {Entry(&DatabaseSlots::Open),
                Entry(&DatabaseSlots::Close),
                Entry(&DatabaseSlots::RunTask),
                Entry(&DatabaseSlots::OnOpen),
                Entry(&DatabaseSlots::OnClose),
                Entry(&DatabaseSlots::NewObject),
                Entry(&DatabaseSlots::NameIsKey),
                Entry(&DatabaseSlots::CheckNameIsLowUp),
                Entry(&DatabaseSlots::CanRemoveObject),
                Entry(&DatabaseSlots::CanAddObject),
                Entry(&DatabaseSlots::OnLoadObjectData),
                Entry(&DatabaseSlots::OnCommit),
                Entry(&DatabaseSlots::OnDecryptLog)};
    }

protected:
    ~DatabaseSlots() = default;
};

class DatabaseObjectSlots : public CKwDBRTObject {
public:
    static std::vector<int> All() {
        return {Slot(&DatabaseObjectSlots::AddRef),      Slot(&DatabaseObjectSlots::Release),
                Slot(&DatabaseObjectSlots::GetRef),      Slot(&DatabaseObjectSlots::Attack),
                Slot(&DatabaseObjectSlots::OnAddObject), Slot(&DatabaseObjectSlots::OnRemoveObject)};
    }
};

class TaskSlots : public KwTask {
public:
    void OnAddTask(KwTaskNode*, int) override {}
    void OnRemoveTask(KwTaskNode*, int) override {}
    static std::vector<int> All() {
        return {Slot(&TaskSlots::Post),        Slot(&TaskSlots::Run),          Slot(&TaskSlots::Close),
                Slot(&TaskSlots::NewThread),   Slot(&TaskSlots::RemoveThread), Slot(&TaskSlots::OnAddTask),
                Slot(&TaskSlots::OnRemoveTask)};
    }
};

class TaskNodeSlots : public KwTaskNode {
public:
    static std::vector<int> All() {
        return {Slot(&TaskNodeSlots::OnRunTask), Slot(&TaskNodeSlots::OnDestroyTask), Slot(&TaskNodeSlots::OnAddTask)};
    }
};

class ManagerSlots : public KwServiceManager {
public:
    static int Work() { return Entry(&ManagerSlots::OnServiceWork); }
};

TEST(KwLayoutTest, HostHooksStandInOrder) {
    EXPECT_EQ(TaskSlots::All(), (std::vector<int>{5, 6, 7, 8, 9, 10, 11}));
    EXPECT_EQ(TaskNodeSlots::All(), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(ManagerSlots::Work(), 0) << "no destructor in front";
    EXPECT_EQ(DatabaseSlots::All(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    EXPECT_EQ(DatabaseObjectSlots::All(), (std::vector<int>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(AppSlots::All(), (std::vector<int>{5, 6, 7, 8, 9}));
    EXPECT_EQ(LogSlots::All(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));

    // Their destructors stand behind the others.
    EXPECT_EQ(Entry(&KwLoadLib::Load), 0);
    EXPECT_EQ(Entry(&KwLoadLib::LoadFromMemory), 1);
    EXPECT_EQ(Entry(&KwLoadLibManager::Load), 0);
    EXPECT_EQ(Entry(&KwLoadLibManager::LoadFromMemory), 1);
    EXPECT_EQ(Entry(&KwLoadLibManager::CloseLib), 2);
    EXPECT_EQ(Entry(&KwLoadLibManager::GetFunction), 3);
    EXPECT_EQ(Entry(&KwLoadLibManager::CreateEntryPoint), 4);

    EXPECT_EQ(Entry(&IKwNetClient::Send), 0);
    EXPECT_EQ(Entry(&IKwNetConnect::Send), 0);

    EXPECT_EQ(Slot(&CBKwEventInit::OnEventInit), 1);
    EXPECT_EQ(Slot(&CBKwEventInit::OnEventStart), 2);
    EXPECT_EQ(Slot(&CBKwEventInit::OnEventClose), 3);
    EXPECT_EQ(Slot(&CBKwEventInit::OnEventDestroy), 4);
    EXPECT_EQ(Slot(&CBKwEventInit::OnEventCode), 5);

    EXPECT_EQ(Slot(static_cast<bool (KwDS::*)(unsigned char*, unsigned int)>(&KwDS::Init)), 1);
    EXPECT_EQ(Slot(static_cast<bool (KwDS::*)(const char*, KwStreamShare*)>(&KwDS::Init)), 2);
    EXPECT_EQ(Slot(&KwDS::Clear), 3);

    // The destructor stands behind the others.
    EXPECT_EQ(Entry(&KwDataSearchId::Init), 0);
    EXPECT_EQ(Entry(&KwDataSearchId::Close), 1);
    EXPECT_EQ(Entry(&KwDataSearchId::Commit), 2);
    EXPECT_EQ(Entry(&KwDataSearchId::Add), 3);
    EXPECT_EQ(Entry(&KwDataSearchId::Search), 4);
    EXPECT_EQ(Entry(&KwDataSearchId::Remove), 5);
    EXPECT_EQ(Entry(&KwDataSearchId::InsertData), 6);
    EXPECT_EQ(Entry(&KwDataSearchId::OnAdd), 7);
    EXPECT_EQ(Entry(&KwDataSearchId::OnRemove), 8);
    EXPECT_EQ(Entry(&KwDataSearchId::OnCompare), 9);
    EXPECT_EQ(Entry(&KwDataSearchId::OnGetKeyFromData), 10);
}

// A host that was compiled long ago calls through the table by number alone.
#if defined(__i386__)
#define MEMBER_CALL __attribute__((thiscall))
#else
#define MEMBER_CALL
#endif

void* Table(const void* object, int slot) {
    void* const* table = nullptr;
    std::memcpy(&table, object, sizeof(table));
    return table[slot + 1];
}

TEST(KwLayoutTest, OperationsAreReachedByTheirNumber) {
    using AddTail = void(MEMBER_CALL*)(void*, KwNode*);
    using Take = KwNode*(MEMBER_CALL*)(void*);
    using Count = int(MEMBER_CALL*)(void*);
    using Alloc = bool(MEMBER_CALL*)(void*, unsigned int);

    KwNode first, second;
    KwList list;
    reinterpret_cast<AddTail>(Table(&list, 4))(&list, &first);
    reinterpret_cast<AddTail>(Table(&list, 4))(&list, &second);
    EXPECT_EQ(list.count, 2);
    EXPECT_EQ(reinterpret_cast<Take>(Table(&list, 6))(&list), &second);
    EXPECT_EQ(reinterpret_cast<Take>(Table(&list, 5))(&list), &first);
    EXPECT_EQ(reinterpret_cast<Take>(Table(&list, 5))(&list), nullptr);

    auto* buffer = new KwBuffer;
    EXPECT_EQ(reinterpret_cast<Count>(Table(buffer, 1))(buffer), 2);
    EXPECT_EQ(reinterpret_cast<Count>(Table(buffer, 2))(buffer), 1);
    EXPECT_TRUE(reinterpret_cast<Alloc>(Table(buffer, 5))(buffer, 40));
    EXPECT_EQ(buffer->GetSize(), 40u);
    EXPECT_EQ(reinterpret_cast<Count>(Table(buffer, 2))(buffer), 0) << "destroyed";
}

}  // namespace
