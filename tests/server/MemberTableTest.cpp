#include "server/MemberTable.h"

#include "base/EngineError.h"
#include "base/Text.h"
#include "support/TestMachine.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

using qz::server::find_member;
using qz::server::main_members;
using qz::server::Variant;
using namespace std::string_literals;

TEST(MemberTable, DescribesEveryMember)
{
    std::set<std::string> names;
    for (const auto& member : main_members()) {
        EXPECT_TRUE(names.insert(qz::lower(member.name)).second) << member.name;
        bool optional = false;
        for (const auto& parameter : member.parameters) {
            EXPECT_FALSE(parameter.name.empty()) << member.name;
            EXPECT_NE(parameter.type, qz::server::ValueType::Empty) << member.name;
            EXPECT_TRUE(parameter.optional() || !optional) << member.name << ": required after optional";
            optional = parameter.optional();
        }
    }
    EXPECT_EQ(names.size(), 112U);
    EXPECT_EQ(find_member("server_start"), find_member("Server_Start"));
    EXPECT_EQ(find_member("Server_Star"), nullptr);
}

TEST(MemberTable, SignaturesFollowTheDeclarations)
{
    for (const auto* signature :
        {"Server_Start()", "get_ListeningPort() -> UI2",
            "set_ServerCommand(CommandToSend: BSTR, [Parameters: BSTR = \"\"])",
            "delete_ServerCommand([ID: I4 = 0])", "set_ServerStatus(ServerStatus: ServerStatus)",
            "LoadSockets(NumberOfSocketsToLoad: I2, [ByRef ToPreserve: BOOL = 0])",
            "set_AllowAOLIM(Value: BOOL)", "get_Log_web([LastRecord: I4 = 100]) -> BSTR()",
            "Retrieve_UserCreationTime(UserName: BSTR) -> DATE", "get_QueueMessages() -> QueueMessageSmall()",
            "ChangeUserNamePassword(ScreenName: BSTR, OldPassword: BSTR, NewPassword: BSTR, index: I2, "
            "RemoteIP: BSTR, [ByRef ServiceMessage: BSTR = \"\"]) -> BOOL"}) {
        const std::string text = signature;
        const auto* member = find_member(text.substr(0, text.find('(')));
        ASSERT_NE(member, nullptr) << text;
        EXPECT_EQ(member->signature(), text);
    }
}

TEST(MemberTable, CallsWithArgumentsAndWritesBack)
{
    qz::test::TestMachine machine;
    qz::test::RecordingEvents events;
    qz::server::Main main(machine, events);
    const auto call = [&](const char* name, std::vector<Variant> arguments) {
        const auto result = find_member(name)->call(main, arguments);
        return std::pair(result, arguments);
    };
    EXPECT_EQ(call("set_NewScreenName", {"Ann"s, "a@b"s, "\xFF"s, "B"s, "old"s}).first, Variant(true));
    machine.loop().run_pending();
    auto [changed, arguments] =
        call("ChangeUserNamePassword", {"ann"s, "wrong"s, "new"s, std::int32_t{1}, "::1"s, "before"s});
    EXPECT_EQ(changed, Variant(false));
    EXPECT_EQ(arguments.back(), Variant("The password has been not changed!"s));
    EXPECT_EQ(arguments.front(), Variant("ann"s));
    EXPECT_EQ(call("Retrieve_UserFirstName", {"ann"s}).first, Variant("\xEF\xBF\xBD"s));
    EXPECT_EQ(call("get_BuddiesCount", {}).first, Variant(std::int32_t{1}));
    // Only -1 and 0 are Booleans to the policy setters.
    call("set_AllowAOLIM", {std::int32_t{0}});
    call("set_AllowAOLIM", {std::int32_t{1}});
    EXPECT_EQ(call("get_AllowAOLIM", {}).first, Variant(false));
    EXPECT_EQ(call("ListAllUsers_web", {}).first, Variant(std::vector{"ann"s}));
    EXPECT_ANY_THROW(call("ScreenNameExist", {"ann"s}));
}

TEST(Variant, ReadsArgumentsWrittenAsText)
{
    using enum qz::server::ValueType;
    const struct {
        qz::server::ValueType type;
        const char* text;
        int error; // 0 for none
        Variant value{};
    } cases[] = {
        {Boolean, "TRUE", 0, std::int32_t{-1}},
        {Boolean, "no", 0, std::int32_t{0}},
        {Boolean, "7", 0, std::int32_t{7}},
        {Boolean, "32768", 6},
        {Boolean, "ja", 13},
        {Integer16, "-32768", 0, std::int32_t{-32768}},
        {Integer16, "32768", 6},
        {Integer16, "", 13},
        {Integer16, "1.5", 13},
        {Integer16, " 1", 13},
        {Integer16, "+1", 13},
        {Integer16, "0x1", 13},
        {Unsigned16, "65535", 0, std::int32_t{65535}},
        {Unsigned16, "-1", 6},
        {Integer32, "2147483647", 0, std::int32_t{2147483647}},
        {Integer32, "2147483648", 6},
        {Integer32, "99999999999999999999", 6},
        {Integer32, "99999999999999999999x", 13},
        {Speed, "2", 0, std::int32_t{2}},
        {Text, "\n", 0, "\n"s},
        {Date, "2026-03-02 09:00:00", 0, *qz::DateTime::parse("2026-03-02 09:00:00")},
        {Date, "soon", 13},
        {Texts, "a", 13},
    };
    for (const auto& each : cases) {
        try {
            EXPECT_EQ(variant_from_text(each.type, each.text), each.value) << each.text;
            EXPECT_EQ(each.error, 0) << each.text;
        } catch (const qz::EngineError& error) {
            EXPECT_EQ(error.number(), each.error) << each.text << ": " << error.description();
        }
    }
}
