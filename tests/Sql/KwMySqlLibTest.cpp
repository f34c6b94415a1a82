// The client library by name: missing, half there, and one of this build that needs no server, so that the calls are
// tried on Windows, too.
#include "Kw/DB/KwMySql.h"
#include "KwSQLFixture.h"

namespace {

class CMySqlLibTest : public testing::Test {
protected:
    void TearDown() override { CMySqlLib::SetLibrary(nullptr); }
    std::string Load(const char* name) {
        CMySqlLib::SetLibrary(name);
        CMySqlLib lib;
        const bool loaded = lib.Load();
        EXPECT_EQ(lib.GetCalls() != nullptr, loaded);
        return lib.GetError();
    }
};

TEST_F(CMySqlLibTest, AMissingLibraryOrFunctionIsNamed) {
    EXPECT_EQ(Load("libkw-none.so"), "no MySQL client library: libkw-none.so");
    EXPECT_EQ(Load(KW_TEST_HALF_MYSQL), "the MySQL client library " KW_TEST_HALF_MYSQL " has no mysql_num_rows");
    LogLines log;
    CMTMYSQL sql;
    EXPECT_FALSE(sql.Connect("127.0.0.1", "app", "hidden", "appdb"));
    EXPECT_EQ(log.Count("sql connect: HY000\tthe MySQL client library "), 1) << log.TakeAll();
    EXPECT_FALSE(sql.Execute("SELECT 1"));
#if defined(KW_TEST_NO_LIBMYSQL)
    EXPECT_EQ(Load(nullptr).find("no MySQL client library: libmysql.dll, "), 0u);
#endif
}

TEST_F(CMySqlLibTest, StatementsAndRowsPassThroughTheLibrary) {
    ASSERT_EQ(Load(KW_TEST_WHOLE_MYSQL), "");
    LogLines log;
    CMTMYSQL sql;
    EXPECT_FALSE(sql.Connect("db:3307", "app", "wrong", "appdb"));
    EXPECT_EQ(sql.GetError().state, "28000");
    EXPECT_EQ(sql.GetError().code, 1045);
    ASSERT_TRUE(sql.Connect("db:3307", "app", "@c2VjcmV0", "appdb"));
    ASSERT_TRUE(sql.Prepare("UPDATE t SET a = ?, b = ?, c = ?, d = ? WHERE e = '?'"));
    sql.BindInt(1, INT64_MIN);
    sql.BindDouble(2, -0.5);
    sql.BindText(3, KW_W("it's \U0001F600"));
    sql.BindNull(4);
    ASSERT_TRUE(sql.Execute());
    ASSERT_TRUE(sql.Fetch());
    EXPECT_STREQ(sql.GetString("statement", nullptr, ""),
                 "UPDATE t SET a =  -9223372036854775808, b =  -0.5e0, c = 'it\\'s \xF0\x9F\x98\x80', d = NULL "
                 "WHERE e = '?'");
    EXPECT_TRUE(sql.IsNull("none"));
    EXPECT_EQ(sql.GetInt("bits", 0), 0x102);
    EXPECT_FALSE(sql.Fetch());
    EXPECT_FALSE(sql.NextResult());
}

}  // namespace
