#include "config/IniFile.h"

#include "base/EngineError.h"
#include "base/Text.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::string_literals;
using qz::config::IniDocument;
using qz::config::IniFile;

namespace {

std::vector<std::string> texts(const std::vector<qz::config::IniEntry>& entries)
{
    std::vector<std::string> result;
    result.reserve(entries.size());
    for (const auto& entry : entries) {
        result.push_back(
            entry.section + "/" + entry.key + "=" + entry.value + (entry.effective ? "" : " (shadowed)"));
    }
    return result;
}

class IniFileTest : public testing::Test {
protected:
    std::string after(const std::string& before, const std::function<void(IniDocument&)>& change)
    {
        IniDocument document(before);
        change(document);
        return document.bytes();
    }

    qz::test::TemporaryFolder folder_;
    std::filesystem::path path_ = folder_ / "VELTO_Server.ini";
    IniFile ini_{path_};
};

} // namespace

TEST_F(IniFileTest, ReadsValuesByTheRules)
{
    const struct {
        const char* why;
        std::string file;
        std::string value;
    } cases[] = {
        {"plain", "[General SetUp]\nKey=v\n", "v"},
        {"case of section and key", "[GENERAL setup]\r\nkEY=v\r\n", "v"},
        {"blanks", "  [ General SetUp ] ; note\n \t Key \t = \t a b \t \n", "a b"},
        {"no line end", "[General SetUp]\nKey=v", "v"},
        {"byte order mark", "\xEF\xBB\xBF[General SetUp]\nKey=v\n", "v"},
        {"first section wins", "[General SetUp]\n[Other]\nKey=x\n[general setup]\nKey=y\n", ""},
        {"no key", "[General SetUp]\n=x\nKey=v\n", "v"},
        {"first key wins", "[General SetUp]\nKey=1\nkey=2\n", "1"},
        {"double quotes", "[General SetUp]\nKey=\" v \"\n", " v "},
        {"single quotes", "[General SetUp]\nKey='v'\n", "v"},
        {"one pair only", "[General SetUp]\nKey=\"\"v\"\"\n", "\"v\""},
        {"quotes that do not match", "[General SetUp]\nKey=\"v'\n", "\"v'"},
        {"a lone quote", "[General SetUp]\nKey=\"\n", "\""},
        {"equals in the value", "[General SetUp]\nKey=a=b;c\n", "a=b;c"},
        {"comment", "[General SetUp]\n;Key=x\n ; Key=y\nKey=v\n", "v"},
        {"NUL", "[General SetUp]\nKey=ab\0cd\n"s, "ab"},
        {"above all sections", "Key=v\n[General SetUp]\n", ""},
        {"header that never ends", "[General SetUp\nKey=v\n", ""},
        {"cut", "[General SetUp]\nKey=" + std::string(300, 'x') + "\n", std::string(253, 'x')},
        {"as long as may be", "[General SetUp]\nKey=\"" + std::string(253, 'x') + "\"\n",
            std::string(253, 'x')},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(IniDocument(each.file).read("General SetUp", "Key"), each.value) << each.why;
    }
    std::string accents;
    for (int i = 0; i < 254; ++i) {
        accents += "é";
    }
    EXPECT_EQ(IniDocument("[A]\nb=" + accents).read("A", "b").size(), 2U * 253) << "characters, not bytes";
}

TEST_F(IniFileTest, KeepsEverythingThatItDoesNotChange)
{
    const std::string file = "\xEF\xBB\xBF; the server's settings\r\n"
                             "stray line\r\n"
                             "\r\n"
                             "[SetUp]\r\n"
                             "; how fast\r\n"
                             "ServerSpeed = 1  \r\n"
                             "unknown\r\n"
                             "Own=\"kept\"\r\n"
                             "\r\n"
                             "; mail\r\n"
                             "[Mail]\r\n"
                             "Port=25"; // no line end
    EXPECT_EQ(after(file, [](IniDocument& d) { d.write("setup", "SERVERSPEED", "2"); }),
        std::string(file).replace(file.find("= 1  "), 5, "= 2"));
    EXPECT_EQ(after(file, [](IniDocument& d) { d.write("SetUp", "New", "x"); }),
        std::string(file).replace(file.find("\r\n\r\n; mail"), 2, "\r\nNew=x\r\n"));
    EXPECT_EQ(after(file, [](IniDocument& d) { d.write("Mail", "New", "x"); }), file + "\r\nNew=x\r\n");
    EXPECT_EQ(after(file, [](IniDocument& d) { d.write("Policy", "New", "x"); }),
        file + "\r\n\r\n[Policy]\r\nNew=x\r\n");
    EXPECT_EQ(after(file, [](IniDocument& d) { d.remove("Setup", "own"); }),
        std::string(file).erase(file.find("Own="), 12));
    const auto from = file.find("[SetUp]");
    EXPECT_EQ(after(file, [](IniDocument& d) { d.remove_section("SETUP"); }),
        std::string(file).erase(from, file.find("; mail") - from))
        << "the comment above the next section is the next section's";
}

TEST_F(IniFileTest, PutsNewEntriesWhereTheyBelong)
{
    const struct {
        const char* why;
        std::string before;
        std::string after;
    } cases[] = {
        {"empty file", "", "[S]\nk=v\n"},
        {"only a mark", "\xEF\xBB\xBF", "\xEF\xBB\xBF[S]\nk=v\n"},
        {"comment of its own", "[S]\n; about k\n", "[S]\n; about k\nk=v\n"},
        {"blank lines at the end", "[S]\na=b\n\n\n", "[S]\na=b\nk=v\n\n\n"},
        {"blanks without line end", "[S]\na=b\n  ", "[S]\na=b\nk=v\n  "},
        {"blank line is there", "[A]\na=b\n\n", "[A]\na=b\n\n[S]\nk=v\n"},
        {"no section yet", "; hello\n", "; hello\n\n[S]\nk=v\n"},
        {"value without a text", "[S]\nk=\nz=1\n", "[S]\nk=v\nz=1\n"},
        {"blanks after the sign", "[S]\nk=  \nz=1\n", "[S]\nk=v\nz=1\n"},
        {"first of two", "[S]\nk=1\nk=2\n[s]\nk=3\n", "[S]\nk=v\nk=2\n[s]\nk=3\n"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(after(each.before, [](IniDocument& d) { d.write("S", "k", "v"); }), each.after) << each.why;
    }
}

TEST_F(IniFileTest, RemovesEveryEntryOfTheName)
{
    const std::string file = "[S]\nk=1\na=b\nK=2\nk=3\n[T]\nk=4\n[s]\nk=5\n";
    EXPECT_EQ(after(file, [](IniDocument& d) { d.remove("S", "k"); }), "[S]\na=b\n[T]\nk=4\n[s]\nk=5\n");
    EXPECT_EQ(after(file, [](IniDocument& d) { d.remove_section("S"); }), "[T]\nk=4\n");
    EXPECT_EQ(after(file,
                  [](IniDocument& d) {
                      d.remove("S", "k");
                      d.write("S", "k", "6");
                      d.remove("S", "none");
                      d.remove_section("none");
                  }),
        "[S]\na=b\nk=6\n[T]\nk=4\n[s]\nk=5\n");
    EXPECT_EQ(after("[A]\na=1\n\n[B]\nb=2\n",
                  [](IniDocument& d) {
                      d.remove_section("B");
                      d.write("B", "b", "3");
                  }),
        "[A]\na=1\n\n[B]\nb=3\n")
        << "blank lines do not pile up";
}

TEST_F(IniFileTest, AnyTextIsKeptAndAnyEditReadsBackAlike)
{
    const std::string pieces[] = {"[a]", "[b", "]", "[", ";", "=", "k", "K", "l", " ", "\t", "\r\n", "\n",
        "\n", "\n", "\"", "'", "%3D", "%", "\xEF\xBB\xBF", "\0"s, "\xFF"};
    const std::string names[] = {"a", "b", "k", "l", "=", "[a]", ";k", "%3D", "a]\nk"};
    std::minstd_rand random(20260302); // NOLINT(cert-msc51-cpp): the same texts in every run
    const auto any_of = [&](const auto& list) {
        return list[random() % std::size(list)];
    };
    for (int round = 0; round < 3000; ++round) {
        std::string file;
        for (auto left = random() % 30; left > 0; --left) {
            file += any_of(pieces);
        }
        IniDocument document(file);
        ASSERT_EQ(document.bytes(), file);
        for (auto left = random() % 6; left > 0; --left) {
            const auto section = any_of(names);
            const auto key = any_of(names);
            switch (random() % 4) {
            case 0:
                document.remove(section, key);
                EXPECT_EQ(document.read(section, key), "");
                break;
            case 1:
                document.remove_section(section);
                EXPECT_EQ(document.read(section, key), "");
                break;
            default:
                document.write(section, key, "v" + std::to_string(left));
                EXPECT_EQ(document.read(section, key), "v" + std::to_string(left));
            }
        }
        const IniDocument again(document.bytes());
        for (const auto& section : names) {
            for (const auto& key : names) {
                ASSERT_EQ(again.read(section, key), document.read(section, key)) << file;
            }
        }
        ASSERT_EQ(texts(again.entries()), texts(document.entries())) << file;
    }
}

TEST_F(IniFileTest, ForeignTextForgesNothing)
{
    const std::string keys[] = {"a=b", "[a]", "[Policy]\nAllowAOLIM", ";a", "a%3Db", "%5Ba]", "a%", "a%3",
        "é=É", "\xFF\xFE", "x\ny=z", "a;b[c]", "%253D", std::string().append(10'000'000, 'k')};
    ASSERT_TRUE(ini_.WriteIniValue("Policy", "AllowAOLIM", "False"));
    ASSERT_TRUE(ini_.edit([&](IniDocument& document) {
        for (const auto& key : keys) {
            document.write("UsersStatus", key, "status of " + key.substr(0, 10) + "\r\n[Policy]\0\nx=y"s);
        }
        document.write("a]\n[Policy", "AllowAOLIM", "True");
        EXPECT_FALSE(document.write("", "key", "none"));
        EXPECT_FALSE(document.write("Policy", " \n", "none"));
    }));
    for (const auto& key : keys) {
        EXPECT_EQ(ini_.ReadIniValue("usersstatus", key),
            "status of " + qz::single_line(key.substr(0, 10)) + "[Policy]x=y")
            << key.substr(0, 20);
    }
    EXPECT_EQ(ini_.ReadIniValue("Policy", "AllowAOLIM"), "False");
    EXPECT_EQ(ini_.ReadIniValue("a][Policy", "AllowAOLIM"), "True");
    EXPECT_EQ(ini_.entries().size(), std::size(keys) + 2) << "no two keys met, no entry was added";
    ASSERT_TRUE(ini_.WriteIniValue("Test", "iniTest", std::string().append(10'000'000, 'v')));
    EXPECT_EQ(ini_.ReadIniValue("Test", "iniTest"), std::string(253, 'v'));
}

TEST_F(IniFileTest, ListsEntriesAndWhichOfThemCount)
{
    const IniDocument document("x=0\n[a]\nk=\"1\"\nK= 2\n[50%25]\nk=3\n[A]\nl=4\n;m=5\nn\n");
    EXPECT_EQ(texts(document.entries()),
        (std::vector<std::string>{
            "/x=0 (shadowed)", "a/k=1", "a/K=2 (shadowed)", "50%25/k=3", "A/l=4 (shadowed)"}));
}

TEST_F(IniFileTest, StripsBracketsOnlyWhereTheyAre)
{
    const std::pair<const char*, const char*> cases[] = {{"[a]", "a"}, {"a]", "a"}, {"[a", "a"}, {"a", "a"},
        {"[[a]]", "[a]"}, {"", ""}, {"[", ""}, {"[]", ""}};
    for (const auto& [given, name] : cases) {
        EXPECT_EQ(qz::config::StripSectionBrackets(given), name) << given;
    }
    ini_.WriteIniValue("S", "k", "v");
    ini_.WriteIniValue("S", "l", "w");
    EXPECT_TRUE(ini_.DeleteIniEntry("[s]", "K"));
    EXPECT_EQ(qz::test::bytes_of(path_), "[S]\nl=w\n");
    EXPECT_TRUE(ini_.DeleteIniEntry("[S]", ""));
    EXPECT_EQ(qz::test::bytes_of(path_), "");
}

TEST_F(IniFileTest, TheFirstWriteMakesTheFile)
{
    EXPECT_EQ(ini_.ReadIniValue("S", "k"), "");
    EXPECT_TRUE(ini_.DeleteIniEntry("S", "k"));
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_TRUE(ini_.WriteIniValue("S", "k", "v"));
    EXPECT_EQ(ini_.ReadIniValue("S", "k"), "v");
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(path_).permissions()), 0640U);
    EXPECT_EQ(folder_.file_count(), 1);
    EXPECT_FALSE(IniFile(folder_.path() / "missing" / "x.ini").WriteIniValue("S", "k", "v"));
}

TEST_F(IniFileTest, AnEditByHandCountsAtTheNextRead)
{
    // Same length each time, in place, faster than the times of files advance.
    for (int i = 100; i < 400; ++i) {
        qz::test::put_bytes(path_, "[S]\nk=" + std::to_string(i) + "\n");
        ASSERT_EQ(ini_.ReadIniValue("S", "k"), std::to_string(i));
    }
    std::filesystem::remove(path_);
    EXPECT_EQ(ini_.ReadIniValue("S", "k"), "");
}

TEST_F(IniFileTest, DuringOneLookOnlyOwnEditsAndNestedLooksSeeTheFileAnew)
{
    IniFile other{path_};
    other.WriteIniValue("S", "Key", "first");
    const auto value = [&] {
        return ini_.ReadIniValue("S", "Key");
    };
    {
        const IniFile::OneLook look(ini_);
        EXPECT_EQ(value(), "first");
        other.WriteIniValue("S", "Key", "second");
        EXPECT_EQ(value(), "first");
        {
            const IniFile::OneLook nested(ini_);
            EXPECT_EQ(value(), "second");
        }
        // An edit starts from what the file holds, whatever was looked at before.
        other.WriteIniValue("S", "Theirs", "kept");
        ini_.WriteIniValue("S", "Key", "third");
        EXPECT_EQ(value(), "third");
        EXPECT_EQ(ini_.ReadIniValue("S", "Theirs"), "kept");
    }
    other.WriteIniValue("S", "Key", "fourth");
    EXPECT_EQ(value(), "fourth");
}

TEST_F(IniFileTest, AFileThatCannotBeReadIsNotReplaced)
{
    std::filesystem::create_directory(path_);
    EXPECT_EQ(ini_.ReadIniValue("S", "k"), "");
    EXPECT_FALSE(ini_.WriteIniValue("S", "k", "v"));
    EXPECT_THROW(ini_.require_readable(), qz::EngineError);
    EXPECT_TRUE(std::filesystem::is_directory(path_));
}

TEST_F(IniFileTest, NothingChangedNothingWritten)
{
    ini_.WriteIniValue("S", "k", "v");
    const auto stamp = qz::platform::AtomicFile(path_).stamp();
    EXPECT_TRUE(ini_.WriteIniValue("S", "k", "v"));
    EXPECT_TRUE(ini_.edit([](IniDocument& document) {
        document.remove("S", "k");
        document.write("S", "k", "v");
    }));
    EXPECT_EQ(qz::platform::AtomicFile(path_).stamp(), stamp);
}

TEST_F(IniFileTest, ChangesOfTwoProcessesAreAllKept)
{
    constexpr int kKeys = 200;
    const pid_t child = ::fork();
    IniFile own(path_);
    const std::string who = child == 0 ? "child" : "parent";
    bool written = true;
    for (int i = 0; i < kKeys; ++i) {
        written = own.WriteIniValue("S", who + std::to_string(i), "v") && written;
    }
    if (child == 0) {
        ::_exit(written ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(written);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(own.entries().size(), 2U * kKeys);
    EXPECT_EQ(folder_.file_count(), 1);
}

TEST_F(IniFileTest, RewritesManyKeysInOneEdit)
{
    constexpr int kUsers = 10'000;
    const auto refresh = [&](const std::string& status) {
        return ini_.edit([&](IniDocument& document) {
            for (int i = 0; i < kUsers; ++i) {
                const std::string name = "user" + std::to_string(i);
                document.remove("UsersStatus", name);
                document.write("UsersStatus", name, status);
            }
        });
    };
    ini_.WriteIniValue("UsersStatus", "user0", "offline");
    ini_.WriteIniValue("Policy", "AllowAOLIM", "True");
    EXPECT_TRUE(refresh("online"));
    EXPECT_TRUE(refresh("away"));
    EXPECT_EQ(ini_.ReadIniValue("UsersStatus", "USER9999"), "away");
    EXPECT_EQ(ini_.ReadIniValue("Policy", "AllowAOLIM"), "True");
}
