#include "Kw/Res/KwBuildIni.h"

#include <cstring>
#include <memory>

#include "Kw/Res/KwParseError.h"
#include "Kw/Res/KwStreamShare.h"
#include "KwResFixture.h"

namespace {

class KwBuildIniTest : public KwResFixture {
protected:
    // From an allocation of exactly the text's size, so that the address sanitizer sees a step too far.
    bool Parse(const std::string& text) {
        const auto bytes = std::make_unique<unsigned char[]>(text.size());
        std::memcpy(bytes.get(), text.data(), text.size());
        return ini_.Init(bytes.get(), static_cast<unsigned int>(text.size()));
    }
    // "[sec] key=value|..." in order.
    static std::string Show(KwFileIni& ini) {
        std::string all;
        const char* name = nullptr;
        int len = 0;
        for (void* sec = nullptr; (sec = ini.NextSection(sec, &name, &len)) != nullptr;) {
            all += "[" + std::string(name, static_cast<std::size_t>(len)) + "]";
            const char* key = nullptr;
            const char* value = nullptr;
            for (void* mem = nullptr; (mem = ini.NextMember(sec, mem, &key, &value)) != nullptr;) {
                all += std::string(key) + "=" + value + "|";
            }
        }
        return all;
    }
    std::string Shown(const std::string& text) {
        const std::string result = Parse(text) ? "" : "failed: ";
        return result + Show(ini_);
    }
    // The preserved text, which must read back the same.
    std::string Preserved() {
        std::string text;
        if (!ini_.GetPreservedText(text)) return "refused";
        KwFileIni again;
        EXPECT_TRUE(again.Init(reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned int>(text.size())));
        EXPECT_EQ(Show(again), Show(ini_)) << text;
        return text;
    }
    void Set(const char* sec, const char* key, const char* value) {
        ASSERT_NE(ini_.SetMember(ini_.SetSection(sec), key, value), nullptr);
    }

    KwFileIni ini_;
};

TEST_F(KwBuildIniTest, TextsAreReadByTheirRules) {
    const struct {
        const char* text;
        const char* shown;
    } cases[] = {
        {"a=1", "[Main]a=1|"},
        {"", ""},
        {"[S]\nk = v  ; note\n", "[S]k=v  |"},
        {"dir=maps/a\n", "[Main]dir=maps|/a=|"},
        {"dir=/maps\n", "[Main]dir=|/maps=|"},
        {"dir=\"maps/a\"", "[Main]dir=maps/a|"},
        {"flag\nother ;c\nlast", "[Main]flag=|other=|last=|"},
        {"last=", "[Main]last=|"},
        {"last//c", "[Main]last//c=|"},
        {"k v w = x\r\nb==2\r", "[Main]k=v w = x|b=2|"},
        {"a=1\n[S]\nb=2\n[T]\n[S]\nb=3\nc=4\n", "[Main]a=1|[S]b=3|c=4|[T]"},
        {"a [S] = 1\n", "[S]a=1|"},
        {"a [S]\n", "[S]a=|"},
        {"/*x=1\n*/y/*c*/=/*c*/2", "[Main]y/*c*/=2|"},
        {"y /*c*/ = /**/ 2//c", "[Main]y=2|"},
        {"\"no key\" x=\"two\nlines\"\n", "[Main]x=two\nlines|"},
        {"[Main]\na=1\n[main]\na=2\nA=3", "[Main]a=1|[main]a=2|A=3|"},
        {"\xEF\xBB\xBF[S]\na=1", "[S]a=1|"},
        {"a=1\n=2\nb=3", "failed: [Main]a=1|"},
        {"a=1\nb=\"x", "failed: [Main]a=1|"},
        {"a=1\n[S", "failed: [Main]a=1|"},
        {"a=1\n/*/", "failed: [Main]a=1|"},
        {"; only a comment", ""},
    };
    for (const auto& each : cases) EXPECT_EQ(Shown(each.text), each.shown) << each.text;

    EXPECT_FALSE(Parse("a=1\n  [x\n"));
    EXPECT_EQ(ini_.GetParseError().line, 2);
    EXPECT_EQ(ini_.GetParseError().column, 3);
    EXPECT_EQ(ini_.GetParseError().message, "[ without ]");
    EXPECT_FALSE(ini_.Init(nullptr, 5u));
    EXPECT_EQ(Show(ini_), "") << "what was there is gone";
    ASSERT_TRUE(Parse(std::string("a=x\0y", 5)));
    int len = 0;
    EXPECT_STREQ(ini_.GetString("Main", "a", "", &len), "x");
    EXPECT_EQ(len, 3);
}

TEST_F(KwBuildIniTest, ValuesAreReadAsTyped) {
    ASSERT_TRUE(
        Parse("[n]\ni=-12x\nu=4294967295\nd=2.5e1\nt=2\nf=no\ns=text\np=3,4\nq=7\nhex=0A1B\nlow=0a1b\nnone=\n"));
    EXPECT_EQ(ini_.GetInt("n", "i", 5), -12);
    EXPECT_EQ(ini_.GetInt("n", "missing", 5), 5);
    EXPECT_EQ(ini_.GetUint("n", "u", 0u), 4294967295u);
    EXPECT_EQ(ini_.GetDouble("n", "d", 0.0), 25.0);
    EXPECT_TRUE(ini_.GetBool("n", "t", false));
    EXPECT_FALSE(ini_.GetBool("n", "f", true));

    int i = 77;
    unsigned int u = 77;
    double d = 77;
    bool b = true;
    EXPECT_TRUE(ini_.GetInt("n", "i", &i, 1) && i == -12);
    EXPECT_TRUE(!ini_.GetInt("x", "i", &i, 1) && i == 1);
    EXPECT_TRUE(!ini_.GetInt("n", "x", 2, &i) && i == 2);
    EXPECT_TRUE(!ini_.GetUint("n", "x", &u, 3u) && u == 3);
    EXPECT_TRUE(!ini_.GetDouble("n", "x", &d, 4.0) && d == 4);
    EXPECT_TRUE(!ini_.GetBool("n", "x", &b, false) && !b);

    char out[4] = "###";
    int len = 0;
    EXPECT_TRUE(ini_.GetString("n", "s", out, 4, "default", &len));
    EXPECT_STREQ(out, "tex");
    EXPECT_EQ(len, 4);
    EXPECT_FALSE(ini_.GetString("n", "x", out, 4, "default", &len));
    EXPECT_STREQ(out, "def");
    EXPECT_EQ(len, 7);
    EXPECT_FALSE(ini_.GetString("n", "x", "ab", out, 4));
    EXPECT_STREQ(out, "ab");

    int a = 1;
    EXPECT_TRUE(ini_.GetInt2("n", "p", &a, &i) && a == 3 && i == 4);
    EXPECT_TRUE(ini_.GetInt2("n", "q", &a, &i) && a == 7 && i == 4);
    EXPECT_TRUE(!ini_.GetInt2("n", "x", &a, &i) && a == 7 && i == 4);

    unsigned char bytes[3] = {9, 9, 9};
    EXPECT_TRUE(ini_.GetStruct("n", "hex", bytes, 2) && bytes[0] == 0x0A && bytes[1] == 0x1B && bytes[2] == 9);
    EXPECT_TRUE(ini_.GetStruct("n", "low", bytes, 2) && bytes[0] == 'a' - 55);
    EXPECT_FALSE(ini_.GetStruct("n", "hex", bytes, 3));
    EXPECT_FALSE(ini_.GetStruct("n", "none", bytes, 0));
}

TEST_F(KwBuildIniTest, SettersFormatAndKeepThePlace) {
    ASSERT_TRUE(Parse("[s]\na=1\nb=2\n"));
    void* s = ini_.FindSection("s");
    void* b = ini_.FindKey(s, "b");
    EXPECT_EQ(ini_.SetMember(s, "a", -5), ini_.GetValue("s", "a"));
    ini_.SetMember(s, "c", 4000000000u);
    ini_.SetMember(s, "d", 0.5);
    ini_.SetMember(s, "eXX", true, 1);
    ini_.SetMember(nullptr, "m", "valueXX", 5);
    // A value may be set to itself.
    ini_.SetMember(s, "b", ini_.GetString("s", "b", ""));
    EXPECT_EQ(ini_.FindKey(s, "b"), b);
    EXPECT_EQ(Show(ini_), "[s]a=-5|b=2|c=4000000000|d=0.500000|e=1|[Main]m=value|");
    ini_.SetMember(s, "d", -1.7e308);
    EXPECT_EQ(ini_.GetDouble("s", "d", 0.0), -1.7e308);
    EXPECT_EQ(std::strlen(ini_.GetString("s", "d", "")), 1u + 309 + 7);

    unsigned char bytes[256];
    for (int i = 0; i < 256; ++i) bytes[i] = static_cast<unsigned char>(i);
    EXPECT_EQ(ini_.SetMemberStruct(s, "h", bytes, 256), nullptr);
    ASSERT_NE(ini_.SetMemberStruct(s, "h", bytes + 1, 255), nullptr);
    unsigned char back[255] = {};
    EXPECT_TRUE(ini_.GetStruct("s", "h", back, 255));
    EXPECT_EQ(std::memcmp(back, bytes + 1, 255), 0);
    EXPECT_EQ(ini_.SetMember(s, nullptr, "x"), nullptr);

    EXPECT_TRUE(ini_.RemoveMember(ini_.GetValue("s", "a")));
    EXPECT_FALSE(ini_.RemoveMember(s, "a"));
    EXPECT_TRUE(ini_.RemoveMember(s, "b"));
    EXPECT_TRUE(ini_.RemoveSection("Main"));
    EXPECT_FALSE(ini_.RemoveSection("Main"));
    EXPECT_TRUE(ini_.RemoveSection(s));
    EXPECT_EQ(Show(ini_), "");
}

// Look-ups by table agree with a plain model while names come and go, loaded and made ones mixed.
TEST_F(KwBuildIniTest, ManyNamesAreFoundWhateverComesAndGoes) {
    std::string text;
    for (int i = 0; i < 3000; ++i) {
        text += (i % 10 == 0 ? "[s" + std::to_string(i / 10) + "]\n" : "") + "k" + std::to_string(i) + "=" +
                std::to_string(i) + "\n";
    }
    ASSERT_TRUE(Parse(text));
    std::vector<int> values(3000);
    for (int i = 0; i < 3000; ++i) values[static_cast<std::size_t>(i)] = i % 3 == 0 ? -1 : i;
    void* many = ini_.FindSection("s0");
    unsigned int random = 1;
    for (int step = 0; step < 20000; ++step) {
        random = random * 1664525u + 1013904223u;
        const int at = static_cast<int>(random >> 8) % 3000;
        int& value = values[static_cast<std::size_t>(at)];
        // Keys of one section, which grows large, and of the sections of ten.
        void* sec = at % 3 == 0 ? many : ini_.FindSection(("s" + std::to_string(at / 10)).c_str());
        const std::string key = (at % 3 == 0 ? "m" : "k") + std::to_string(at);
        if (random % 5 < 2) {
            const bool there = ini_.FindKey(sec, key.c_str()) != nullptr;
            ASSERT_EQ(ini_.RemoveMember(sec, key.c_str()), there);
            value = -1;
        } else {
            ASSERT_NE(ini_.SetMember(sec, key.c_str(), step), nullptr);
            value = step;
        }
        const char* name = static_cast<SIniSec*>(sec)->name;
        ASSERT_EQ(ini_.GetInt(name, key.c_str(), -1), value);
    }
    int found = 0;
    for (int i = 0; i < 300; i += 2) found += ini_.RemoveSection(("s" + std::to_string(i)).c_str()) ? 1 : 0;
    EXPECT_EQ(found, 150);
    for (int i = 0; i < 300; ++i) ASSERT_EQ(ini_.FindSection(("s" + std::to_string(i)).c_str()) != nullptr, i % 2 == 1);
}

TEST_F(KwBuildIniTest, FilesAreReadAndSavedPlainly) {
    const std::string path = Put("a.ini", "; comment\nx = 1\n[S]\ny=\"a;b\"\n");
    KwStreamShare share(1, 0);
    EXPECT_TRUE(ini_.Load(path.c_str(), &share));
    EXPECT_TRUE(ini_.Init(path.c_str(), nullptr));
    EXPECT_TRUE(ini_.Save(Path("b.ini").c_str()));
    EXPECT_EQ(Get("b.ini"), "[Main]\nx=1\n\n\n[S]\ny=a;b\n\n\n");
    EXPECT_FALSE(ini_.Init(Path("none.ini").c_str(), nullptr));
    EXPECT_EQ(Show(ini_), "[Main]x=1|[S]y=a;b|") << "an unreadable file changes nothing";

    const std::string bad = Put("bad.ini", "k=1\n[x");
    TakeLog();
    EXPECT_FALSE(ini_.Init(bad.c_str(), &share));
    EXPECT_TRUE(TakeLog().empty());
    EXPECT_FALSE(ini_.Init(bad.c_str(), nullptr));
    EXPECT_EQ(LogLine(), "load file init " + bad + " error");
    EXPECT_FALSE(ini_.SavePreserved(bad.c_str())) << "what was not understood must not be lost";
    EXPECT_EQ(LogLine(), "ini text error: the text was not read to its end");
    EXPECT_EQ(Get("bad.ini"), "k=1\n[x");

    const std::string empty = Put("empty.ini", "");
    EXPECT_TRUE(ini_.Init(empty.c_str(), nullptr));
    EXPECT_TRUE(ini_.Init(empty.c_str(), &share));
    EXPECT_FALSE(ini_.Save(Path("no/such/folder.ini").c_str()));
    TakeLog();
}

TEST_F(KwBuildIniTest, ThePreservedTextChangesOnlyWhatWasSet) {
    const std::string text =
        "\xEF\xBB\xBF; about the file\r\n\r\n[A]\r\nkeep = 1 ; one\r\nset = 2  ; two\r\npath=\"a/b\"\r\nflag\r\n"
        "gone = 3 ; three\r\n\r\n; about B\r\n[B]\r\nx = 1\r\n; inside\r\n\r\n; about C\r\n[C]\r\nx = 1\r\nx = 2\r\n";
    ASSERT_TRUE(Parse(text));
    EXPECT_EQ(Preserved(), text);
    Set("A", "set", "two");
    Set("A", "keep", "1 ");  // as it is
    Set("A", "path", "c");
    Set("A", "flag", "x;y");
    Set("A", "new", "");
    Set("C", "x", "a/b");
    Set("D", "y", "1");
    EXPECT_TRUE(ini_.RemoveMember(ini_.FindSection("A"), "gone"));
    EXPECT_TRUE(ini_.RemoveSection("B"));
    const std::string changed =
        "\xEF\xBB\xBF; about the file\r\n\r\n[A]\r\nkeep = 1 ; one\r\nset = \"two\"  ; two\r\npath=\"c\"\r\n"
        "flag=\"x;y\"\r\nnew = \r\n\r\n; about C\r\n[C]\r\nx = 1\r\nx = \"a/b\"\r\n\r\n[D]\r\ny = 1\r\n";
    EXPECT_EQ(Preserved(), changed);

    const std::string path = Put("a.ini", text);
    ASSERT_TRUE(ini_.SavePreserved(path.c_str()));
    EXPECT_EQ(Get("a.ini"), changed);
    EXPECT_EQ(CountEntries(), 1) << "nothing is left beside it";
}

TEST_F(KwBuildIniTest, ThePreservedTextReadsBackTheSameInOddPlaces) {
    const struct {
        const char* text;
        const char* after;  // a=changed, b removed, n added in Main
    } cases[] = {
        {"a=1/b=2", "a=v/**/\nn=1\n"},
        {"a [Main] = 1", "a [Main] = v\nn=1\n"},
        {"b [Main] = 1\na=\"1\" ;c", " [Main]  \na=\"v\" ;c\nn=1\n"},
        {"b\n a // c", " a =v// c\nn=1\n"},
        {"a=\"1\" b=\"2\" c=\"3\"\n", "a=\"v\"  c=\"3\"\nn=1\n"},
        {"b=1\r\rb=2;x\ra=", "\ra=v\rn=1\r"},
    };
    for (const auto& each : cases) {
        ASSERT_TRUE(Parse(each.text));
        void* main = ini_.FindSection("Main");
        Set("Main", "a", "v");
        ini_.RemoveMember(main, "b");
        ini_.RemoveMember(main, "/b");
        Set("Main", "n", "1");
        EXPECT_EQ(Preserved(), each.after) << each.text;
    }

    ini_.Clear();
    Set("A", "k", " blank ");
    Set("A", "say", "\"hi\" she said");
    TakeLog();
    EXPECT_EQ(Preserved(), "refused");
    EXPECT_EQ(LogLine(), "ini text error: [A]say cannot be expressed");
    Set("A", "say", "she said \"hi\"");
    EXPECT_EQ(Preserved(), "[A]\nk=\" blank \"\nsay=she said \"hi\"\n");
    Set("A", "a b", "1");
    EXPECT_EQ(Preserved(), "refused");
    ini_.RemoveMember(ini_.FindSection("A"), "a b");
    Set("B]", "x", "1");
    EXPECT_EQ(Preserved(), "refused");
    TakeLog();
}

}  // namespace
