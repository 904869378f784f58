// What a running engine makes of a settings file that others damage, replace, lock and edit.
#include "server/HomeFiles.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using qz::test::bytes_of;
using qz::test::put_bytes;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class SettingsFileTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(server.engine.ini.edit([](qz::config::IniDocument& document) {
            document.write("General SetUp", "AdminScreenName", "boss");
            document.write("Safeguards", "VerifySender", "True");
            document.write("Safeguards", "QueuedPerSender", "50");
            document.write("Transport", "MaxConnections", "40");
        }));
        server.start();
        pass(61s); // the online information of the start is written, too
        good = bytes_of(path);
        server.events.on_event = [this](const std::string& event) {
            if (event.starts_with("Error ")) {
                errors_.push_back(event + " " + server.events.last_error);
            } else if (event.find("is off now") != std::string::npos) {
                lines_.push_back(event);
            }
        };
    }

    /// Time passes in steps of half a second, each with a tick.
    void pass(std::chrono::seconds time)
    {
        for (auto passed = 0s; passed < time; passed += 1s) {
            server.machine.clock().advance(1s);
            server.machine.tick(2);
        }
    }
    bool safeguards_are_on() const
    {
        return server.engine.deployment.verify_sender() && server.engine.deployment.queued_per_sender() == 50
            && server.engine.deployment.max_connections() == 40
            && server.engine.settings.get_AdminScreenName() == "boss";
    }
    /// Since they were last asked for.
    std::vector<std::string> errors() { return std::exchange(errors_, {}); }
    /// Of safeguards that went off.
    std::vector<std::string> lines() { return std::exchange(lines_, {}); }

    qz::test::TestEngine server;
    std::filesystem::path path = server.machine.home() / qz::server::kSettingsFile;
    std::string good;

private:
    std::vector<std::string> errors_;
    std::vector<std::string> lines_;
};

/// Holds the lock of a folder, as any other program may.
class HeldLock {
public:
    explicit HeldLock(const std::filesystem::path& folder)
        : folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        EXPECT_EQ(::flock(folder_, LOCK_EX | LOCK_NB), 0);
    }
    ~HeldLock() { ::close(folder_); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

private:
    int folder_;
};

} // namespace

TEST_F(SettingsFileTest, WhatCannotBeUsedLeavesTheLastSettingsInForce)
{
    const struct {
        const char* what;
        std::function<void()> damage;
    } cases[] = {
        {"removed",
            [] {
            }},
        {"empty",
            [&] {
                put_bytes(path, "");
            }},
        {"garbage",
            [&] {
                put_bytes(path,
                    std::string("\x7f"
                                "ELF\0[x]\n\xff",
                        10));
            }},
        {"text without sections",
            [&] {
                put_bytes(path, "VerifySender=False\n");
            }},
        {"cut in a line",
            [&] {
                put_bytes(path, good.substr(0, good.find("QueuedPerSender") + 5));
            }},
        {"without a section that it had",
            [&] {
                put_bytes(path, good.substr(0, good.find("[Safeguards]")));
            }},
        {"a folder",
            [&] {
                std::filesystem::create_directory(path);
            }},
        {"a pipe",
            [&] {
                ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
            }},
        {"a link to itself",
            [&] {
                std::filesystem::create_symlink(path, path);
            }},
        {"too large",
            [&] {
                put_bytes(path, "");
                std::filesystem::resize_file(path, qz::platform::AtomicFile::kSizeLimit + 1);
            }},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        std::filesystem::remove(path);
        each.damage();
        for (int tick = 0; tick < 10; ++tick) {
            pass(1s);
            ASSERT_TRUE(safeguards_are_on());
        }
        EXPECT_THAT(errors(), ElementsAre(AllOf(HasSubstr("ReadIniValue"), HasSubstr("stay in force"))));
        pass(180s);
        EXPECT_TRUE(safeguards_are_on());
        EXPECT_EQ(errors().size(), std::string_view(each.what) == "removed" ? 0U : 3U) << "one a minute";
        std::filesystem::remove_all(path);
        put_bytes(path, good);
        pass(63s);
        EXPECT_THAT(errors(), IsEmpty());
    }
}

TEST_F(SettingsFileTest, WithoutDescriptorsTheLastSettingsStayInForce)
{
    put_bytes(path, good + "\n"); // has just changed, so it must be read
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{3, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    server.machine.clock().advance(3s);
    const bool on = safeguards_are_on();
    server.machine.clock().advance(3s);
    const bool still_on = safeguards_are_on();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_TRUE(on && still_on);
}

TEST_F(SettingsFileTest, AnEditorThatWritesInPlaceNeverSwitchesASafeguardOff)
{
    const auto edited = good + "[Test]\niniTest=by hand\n";
    for (int save = 0; save < 50; ++save) {
        for (std::size_t end = 0; end <= edited.size(); end += 1 + edited.size() / 7) {
            put_bytes(path, edited.substr(0, end));
            ASSERT_TRUE(safeguards_are_on());
            server.machine.tick(); // the engine must not write what it finds now, nor over it
        }
        put_bytes(path, edited);
        server.machine.clock().advance(1s);
        server.machine.tick();
        ASSERT_TRUE(safeguards_are_on());
        ASSERT_EQ(bytes_of(path), edited);
    }
    pass(4s);
    EXPECT_EQ(server.engine.settings.get_iniTest(), "by hand") << "it has stood still";
    EXPECT_TRUE(safeguards_are_on());
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(SettingsFileTest, ASafeguardGoesOffByAnEditThatStoodStillAndTheLogNamesIt)
{
    const auto without = [&](const std::string& what, const std::string& instead) {
        return std::string(good).replace(good.find(what), what.size(), instead);
    };
    put_bytes(path, without("VerifySender=True\n", ""));
    pass(1s);
    EXPECT_TRUE(server.engine.deployment.verify_sender());
    pass(3s);
    EXPECT_FALSE(server.engine.deployment.verify_sender());
    const auto named = [](const char* name) {
        return AllOf(HasSubstr("is off now"), HasSubstr(name));
    };
    EXPECT_THAT(lines(), ElementsAre(named("[Safeguards] VerifySender")));

    put_bytes(path, without("QueuedPerSender=50", "QueuedPerSender=0"));
    pass(4s);
    EXPECT_TRUE(server.engine.deployment.verify_sender());
    EXPECT_FALSE(server.engine.deployment.queued_per_sender());
    EXPECT_THAT(lines(), ElementsAre(named("[Safeguards] QueuedPerSender")));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(SettingsFileTest, AFileThatBreaksOffAtTheEndOfALineIsNoWish)
{
    const std::string head = "[Transport]\nMaxConnections=40\n[General SetUp]\nAdminScreenName=boss\n"
                             "; on purpose\n[Safeguards]\nVerifySender=True\n";
    const std::string all =
        head + "; about the next\nQueuedPerSender=50\n[Policy]\nAllowFileTransfer=False\n";
    put_bytes(path, all);
    pass(4s);
    ASSERT_TRUE(safeguards_are_on());
    for (const auto& cut :
        {head, head + "; about the next\n", head + "\n", head.substr(0, head.find("VerifySender")),
            all.substr(0, all.find("[Policy]")), std::string(head).replace(head.find("40"), 2, "41")}) {
        put_bytes(path, cut);
        pass(5s);
        EXPECT_TRUE(safeguards_are_on()) << cut;
        EXPECT_EQ(bytes_of(path), cut);
        EXPECT_THAT(errors(), ElementsAre(HasSubstr("as one does that was not written to its end"))) << cut;
        put_bytes(path, all);
        pass(60s);
    }
    // Somebody who has gone on writing behind it, or who has left what follows, means it.
    for (const auto& meant : {head + ";QueuedPerSender=50\n", head + "[Policy]\nAllowFileTransfer=False\n"}) {
        put_bytes(path, meant);
        pass(5s);
        EXPECT_FALSE(server.engine.deployment.queued_per_sender()) << meant;
        EXPECT_THAT(lines(), ElementsAre(HasSubstr("QueuedPerSender is off now")));
        put_bytes(path, all);
        pass(5s);
        EXPECT_TRUE(safeguards_are_on());
    }
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(SettingsFileTest, EachTroubleIsToldAtOnceAndThenOnceAMinute)
{
    put_bytes(path, "");
    pass(4s);
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("the file is empty")));
    put_bytes(path, std::string("a\0=b\n", 6));
    pass(5s);
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("not a text")));
    for (int flap = 0; flap < 5; ++flap) {
        put_bytes(path, flap % 2 == 0 ? "" : std::string("a\0=b\n", 6));
        pass(5s);
    }
    EXPECT_THAT(errors(), IsEmpty());
    const auto with = [&](const std::string& value) {
        return std::string(good).replace(good.find("VerifySender=True"), 17, value);
    };
    for (const auto* value : {"VerifySender=Ture", "VerifySender=", "VerifySender"}) {
        put_bytes(path, with(value));
        pass(5s);
        EXPECT_EQ(errors().size(), 1U) << value;
    }
}

TEST_F(SettingsFileTest, AMissingFileIsWrittenAgain)
{
    server.events.take();
    std::filesystem::remove(path);
    pass(1s);
    EXPECT_FALSE(std::filesystem::exists(path)) << "an editor may be about to put another one there";
    pass(3s);
    EXPECT_THAT(bytes_of(path), AllOf(HasSubstr("VerifySender=True"), HasSubstr("AdminScreenName=boss")));
    pass(120s);
    const auto told = server.events.take_starting("Log The settings file was missing; it is written again");
    EXPECT_EQ(told.size(), 1U);
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("the file is missing")));
    EXPECT_TRUE(safeguards_are_on());
}

TEST_F(SettingsFileTest, WhatOurOwnCommandsWriteCountsAtOnce)
{
    qz::config::IniFile command(path);
    for (const char* value : {"False", "True", "False"}) {
        ASSERT_TRUE(command.WriteIniValue("Safeguards", "VerifySender", value));
        EXPECT_EQ(server.engine.deployment.verify_sender(), std::string_view(value) == "True");
    }
    put_bytes(path, good); // an editor that had it open
    EXPECT_FALSE(server.engine.deployment.verify_sender());
}

TEST_F(SettingsFileTest, AMalformedValueLeavesTheLastValidOne)
{
    auto malformed = good;
    for (const auto& [value, instead] :
        std::vector<std::pair<std::string, std::string>>{{"VerifySender=True", "VerifySender=Ture"},
            {"QueuedPerSender=50", "QueuedPerSender=5O"}, {"MaxConnections=40", "MaxConnections=lots"}}) {
        malformed.replace(malformed.find(value), value.size(), instead);
    }
    put_bytes(path, malformed + "[Test]\niniTest=taken\n");
    pass(5s);
    EXPECT_EQ(server.engine.settings.get_iniTest(), "taken");
    EXPECT_TRUE(safeguards_are_on());
    EXPECT_THAT(errors(),
        testing::UnorderedElementsAre(
            HasSubstr("VerifySender"), HasSubstr("QueuedPerSender"), HasSubstr("MaxConnections")));
    EXPECT_THAT(lines(), IsEmpty());
    pass(60s);
    EXPECT_EQ(errors().size(), 3U) << "again after a minute";
    EXPECT_TRUE(safeguards_are_on());
}

TEST_F(SettingsFileTest, ALineThatLostItsMeaningLeavesTheLastValue)
{
    const std::pair<const char*, const char*> cases[] = {
        {"VerifySender=\n", "VerifySender: line"},
        {"VerifySender: True\n", "has no \"=\""},
        {"VerifySendr=True\n", "VerifySender is meant?"},
        {"#VerifySender=True\n", "comments begin with"},
        {"VerifySender=False\nVerifySender=True\n", "with different values"},
        {"[Policy]\n[Safeguards]\nVerifySender=False\n", "only the first counts"},
        {"[Safegards]\nVerifySender=True\n", "[Safeguards] is meant?"},
    };
    for (const auto& [instead, error] : cases) {
        SCOPED_TRACE(instead);
        auto edited = good;
        const std::string line = "VerifySender=True\n";
        edited.replace(edited.find(line), line.size(), instead);
        put_bytes(path, edited + "[Test]\niniTest=taken\n");
        pass(5s);
        EXPECT_EQ(server.engine.settings.get_iniTest(), "taken");
        EXPECT_TRUE(server.engine.deployment.verify_sender());
        EXPECT_THAT(errors(),
            testing::Contains(AllOf(HasSubstr("[Safeguards] VerifySender: line"), HasSubstr(error),
                HasSubstr("the last valid value stays in force"))));
        EXPECT_THAT(lines(), IsEmpty());
        put_bytes(path, good);
        pass(5s);
        errors();
    }
}

TEST_F(SettingsFileTest, AHeldLockStopsNothingAndLosesNothing)
{
    const auto refreshed = [&] {
        return qz::config::IniFile(path).ReadIniValue("OnLineInfo", "lasttimerefresh");
    };
    const auto before = refreshed();
    const auto begin = std::chrono::steady_clock::now();
    {
        const HeldLock lock(server.machine.home());
        server.engine.settings.set_AdminScreenName("other");
        server.engine.settings.set_SPTMP_Server("mail.example.org");
        EXPECT_EQ(server.engine.settings.get_AdminScreenName(), "other");
        pass(70s);
        EXPECT_EQ(server.engine.settings.get_AdminScreenName(), "other");
        EXPECT_EQ(server.engine.settings.get_SPTMP_Server(), "mail.example.org");
        EXPECT_EQ(bytes_of(path), good);
        EXPECT_EQ(refreshed(), before);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 4s) << "nobody waited for the lock";
    pass(2s);
    EXPECT_THAT(bytes_of(path), HasSubstr("AdminScreenName=other"));
    EXPECT_NE(refreshed(), before) << "what could not be published is published a second later";
    EXPECT_EQ(server.engine.settings.get_SPTMP_Server(), "mail.example.org");
    EXPECT_TRUE(server.engine.deployment.verify_sender());
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(SettingsFileTest, WhatAHostSetsIsNeitherLostNorWrittenIntoAHalfFile)
{
    put_bytes(path, "");
    server.engine.settings.set_AdminScreenName("other");
    EXPECT_EQ(server.engine.settings.get_AdminScreenName(), "other");
    pass(10s);
    EXPECT_EQ(bytes_of(path), "") << "a nearly empty file would be taken for the settings at the next start";
    std::filesystem::remove(path);
    pass(61s);
    const auto written = bytes_of(path);
    EXPECT_THAT(written, AllOf(HasSubstr("VerifySender=True"), HasSubstr("AdminScreenName=other")))
        << "a lost file is written again";
}
