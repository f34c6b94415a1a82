// The program kwds, run on small files of each kind.
#include <nlohmann/json.hpp>

#include "../Res/KwResFixture.h"
#include "Kw/Res/KwDataObject.h"
#include "Kw/Res/KwTable.h"
#include "KwTestSupport.h"

namespace {

using Json = nlohmann::json;

// What each command prints for a document with a value of every type.
constexpr const char* kScript =
    "Port=8080 u=0x5 low=@b10000000000000000000000000000000 d=5000000000 r=$a.b ip=(192,168,0,1)\n"
    "s={ 1 \"two\" x=1.5 [9]={} }\n"
    "t=@table{\nid\tname\n1\t\"a \"b\" c\"\n}";
constexpr const char* kPrinted =
    "Port=8080\nd=5000000000.0\nip=0xC0A80001\nlow=@b10000000000000000000000000000000\nr=$a.b\n"
    "s={\n    x=1.5\n    [1]=1\n    [2]=\"two\"\n    [9]={\n    }\n}\n"
    "t=@table{\nid\tname\n1\ta \"b\" c\n}\nu=0x5\n";

class KwdsTest : public KwResFixture {
protected:
    struct Result {
        int code;
        std::string out;
    };

    KwdsTest() : before_(std::filesystem::current_path()) { std::filesystem::current_path(folder_); }
    ~KwdsTest() override { std::filesystem::current_path(before_); }

    static Result Run(const std::string& line) {
        Result result{-1, ""};
        result.code = RunProgram(KWDS_PROGRAM, line, true, result.out);
        return result;
    }
    static std::string Out(const std::string& line) {
        const Result result = Run(line);
        EXPECT_EQ(result.code, 0) << line;
        return result.out;
    }
    // Exit code 1, with all of `says` in what is printed.
    static void ExpectFault(const std::string& line, const std::string& says) {
        const Result result = Run(line);
        EXPECT_EQ(result.code, 1) << line;
        EXPECT_NE(result.out.find(says), std::string::npos) << line << " printed:\n" << result.out;
    }
    // The normal form is its own normal form, and comes out of its JSON again.
    void ExpectStable(const std::string& file, const std::string& kind) const {
        const std::string printed = Out("print " + file);
        Put("printed", printed);
        EXPECT_EQ(Out("print printed --as " + kind), printed);
        Put("json", Out("to-json " + file));
        EXPECT_EQ(Out("from-json json --as " + kind), printed);
        EXPECT_EQ(Out("to-json printed --as " + kind), Get("json"));
    }

private:
    const std::filesystem::path before_;
};

TEST_F(KwdsTest, ScriptsKeepEveryTypeOnAllWays) {
    Put("a.ds", kScript);
    EXPECT_EQ(Out("print a.ds"), kPrinted);
    ExpectStable("a.ds", "ds");
    const Json json = Json::parse(Out("to-json a.ds"));
    EXPECT_TRUE(json["d"].is_number_float());
    EXPECT_EQ(json["low"], INT32_MIN);
    EXPECT_EQ(json["ip"], 0xC0A80001u);
    EXPECT_EQ(json["u"]["@uint"], 5);
    EXPECT_EQ(json["s"]["[2]"], "two");
    EXPECT_EQ(json["t"]["@table"][1][1], "a \"b\" c");
}

// Braces and comments in the quoted texts of a nested document count for where it ends.
TEST_F(KwdsTest, TextsThatWouldEndTheirBlockAreWrittenSoThatTheyDoNot) {
    Put("odd.json", R"({"\\@x": "}", "o": {"a": "}", "b": "{", "http://c": {"x": "//"}, "d": ["/* {", "*/ }", "}\n"],
        "\\[1]": 1, "[0]": {"@bytes": "ff7d00"}, "t": {"@table": [["}", ""], ["", "{"], [""]]}}, "*/*": [], "e": 1e300,
        "i": {"@double": "-inf"}, "\\\\": -0.0, "@hex:ff": 4294967295, "l": [[[]]]})");
    Put("odd.ds", Out("from-json odd.json"));
    ExpectStable("odd.ds", "ds");
    KwDS document;
    ASSERT_TRUE(document.Init("odd.ds", nullptr));
    EXPECT_STREQ(document.GetString("$o.d.2", nullptr, ""), "*/ }");
    EXPECT_STREQ(document.GetStruct("o")->GetTable("t")->GetString(2, 2, nullptr, ""), "{");
    EXPECT_EQ(document.GetMemberSize(), 8);
    EXPECT_EQ(document.GetDouble("e", 0), 1e300);
    // What cannot be said is refused with its place.
    for (const auto& [text, says] : std::vector<std::pair<std::string, std::string>>{
             {R"({"a": ["b", "say \"x\""]})", "at /a/1: a text cannot hold a double quote"},
             {R"({"a": null})", "at /a: a data script has no null"},
             {R"({"a": 4294967296})", "at /a: a whole number is"},
             {R"({"a": 1, "a": 2})", "has \"a\" twice"},
             {R"({"a": {"\\x": 1, "x": 2}})", "at /a/x: the same name twice"},
             {R"({"o": {"}": 1}})", "at /o/}: a name in a nested"},
             {R"({"a": {"@uint": -1}})", "at /a: a name with @"},
             {R"({"[-1]": 1})", "a number of an entry"},
             {R"({"a": {"@ref": "b"}})", "a reference is"},
             {R"({"t": {"@table": [["a\tb"]]}})", "at /t/0/0: a cell"},
             {"{\"a\":\n 1 x}", "bad.json:2:4: syntax error"},
             {"1e999", "bad.json:1:"},
             {std::string(2000, '['), "nested too deep"},
             {"5", "a document is an object or an array"}}) {
        Put("bad.json", text);
        ExpectFault("from-json bad.json", says);
    }
}

TEST_F(KwdsTest, TablesAndIniFilesReadBackTheSame) {
    Put("t.tab", "id\tname\r\n1\t\"\"x\"\"\n\n\n\"\t\n\xFF");
    EXPECT_EQ(Out("print t.tab"), "id\tname\n1\t\"\"x\"\"\n\"\"\n\t\n\xFF\n");
    ExpectStable("t.tab", "table");
    Put("f.ini", "a=1\n[net]\nport = 80  ; x\npath=\"a/b;\"\nflag\nq=x\"y \nport=81\n[@x]\n\xFF=\n[Main]\nb=2");
    EXPECT_EQ(Out("print f.ini"), "[Main]\na=1\nb=2\n\n[net]\nport=81\npath=\"a/b;\"\nflag=\nq=x\"y \n\n[@x]\n\xFF=\n");
    ExpectStable("f.ini", "ini");
    Put("f.json", R"({"net": {"port": 8080, "on": true, "f": 2.50}})");
    EXPECT_EQ(Out("from-json f.json --as ini"), "[net]\nport=8080\non=1\nf=2.50\n");
    for (const char* text : {R"({"a": {"b c": "1"}})", R"({"a": {"": "1"}})", R"({"a]": {}})", R"({"a": "1"})",
                             R"({"a": {"b": "\"/"}})"}) {
        Put("f.json", text);
        ExpectFault("from-json f.json --as ini", "f.json: at /");
    }
}

TEST_F(KwdsTest, FaultsShowTheirPlace) {
    Put("bad.ds", "a=1\r\n\ts={ \"\xC3\xA9\"=2, b= 3 }\n");
    Put("good.ds", kScript);
    Put("bad.ini", "[a]\n  = 1\n");
    Put("wide.tab", "a\tb\r\n1\t2\n\n1\t2\t3\n");
    ExpectFault("check good.ds bad.ds",
                "good.ds: data script, sound: 8 names, 0 numbers\n"
                "bad.ds:2:17: [s_SetObject] set object not type 0\n"
                "     s={ \"\xC3\xA9\"=2, b= 3 }\n"
                "                   ^ a key without a value");
    ExpectFault("check bad.ini", "bad.ini:2:3: = without a key\n      = 1\n      ^");
    ExpectFault("check wide.tab", "wide.tab:4:5: error load table2=3\n    1 2 3\n        ^");
    EXPECT_EQ(Out("check wide.tab --as ds"), "wide.tab: data script, sound: 0 names, 7 numbers\n");
    ExpectFault("print bad.ds", "bad.ds:2:17: ");
    Put("deep.ds", std::string(4000, '{') + std::string(4000, '}'));
    ExpectFault("check deep.ds", "nested too deep");
    Put("long.ds", "x=\"" + std::string(500, 'x') + "\" ." + std::string(500, 'y'));
    ExpectFault("check long.ds", "\n    ...xxx");
    for (const char* line : {"", "check", "check nothing.ds", "print .", "get good.ds a..b", "print --as x good.ds"}) {
        EXPECT_EQ(Run(line).code, 2) << line;
    }
    EXPECT_EQ(Run("--help").code, 0);
}

TEST_F(KwdsTest, PathsLeadToValues) {
    Put("a.ds", kScript + std::string("\n\"a.b\"={ \"7\"={ 5 6 } }"));
    Put("t.tab", "id\tname\n1\tanna\n");
    Put("f.ini", "k=v\n[n.t]\nport=80\n");
    for (const auto& [line, value] :
         std::vector<std::pair<std::string, std::string>>{{"a.ds Port", "8080"},
                                                          {"a.ds s[2]", "two"},
                                                          {"a.ds s.x --json", "1.5"},
                                                          {"a.ds r", "0"},
                                                          {"a.ds d", "5e+09"},
                                                          {"a.ds t[2].name", "a \"b\" c"},
                                                          {"t.tab [2].name", "anna"},
                                                          {"t.tab 2 --json", "[\"1\", \"anna\"]"},
                                                          {"f.ini Main.k", "v"},
                                                          {"f.ini Main", "[Main]\nk=v"}}) {
        EXPECT_EQ(Out("get " + line), value + "\n") << line;
    }
    for (const char* line : {"a.ds nothing", "a.ds Port.x", "a.ds s[3]", "t.tab [3]", "t.tab [1][3]", "f.ini Main.x"}) {
        ExpectFault(std::string("get ") + line, "nothing at ");
    }
}

}  // namespace
