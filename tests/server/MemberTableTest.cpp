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
    const char* const with_a_reference =
        "ChangeUserNamePassword(ScreenName: BSTR, OldPassword: BSTR, NewPassword: BSTR, index: I2, RemoteIP: "
        "BSTR, [ByRef ServiceMessage: BSTR = \"\"]) -> BOOL";
    for (const auto* signature : {"Server_Start()", "get_ListeningPort() -> UI2",
             "set_ServerCommand(CommandToSend: BSTR, [Parameters: BSTR = \"\"])",
             "delete_ServerCommand([ID: I4 = 0])", "set_ServerStatus(ServerStatus: ServerStatus)",
             "LoadSockets(NumberOfSocketsToLoad: I2, [ByRef ToPreserve: BOOL = 0])",
             "set_AllowAOLIM(Value: BOOL)", "get_Log_web([LastRecord: I4 = 100]) -> BSTR()",
             "Retrieve_UserCreationTime(UserName: BSTR) -> DATE",
             "get_QueueMessages() -> QueueMessageSmall()", with_a_reference}) {
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
        int error; // 0 for none
        const char* text;
        Variant value{};
    } cases[] = {
        {Boolean, 0, "TRUE", std::int32_t{-1}},
        {Boolean, 0, "no", std::int32_t{0}},
        {Boolean, 0, "7", std::int32_t{7}},
        {Boolean, 6, "32768"},
        {Boolean, 13, "ja"},
        {Integer16, 0, "-32768", std::int32_t{-32768}},
        {Integer16, 6, "32768"},
        {Integer16, 13, ""},
        {Integer16, 13, "1.5"},
        {Integer16, 13, " 1"},
        {Integer16, 13, "+1"},
        {Integer16, 13, "0x1"},
        {Unsigned16, 0, "65535", std::int32_t{65535}},
        {Unsigned16, 6, "-1"},
        {Integer32, 0, "2147483647", std::int32_t{2147483647}},
        {Integer32, 6, "2147483648"},
        {Integer32, 6, "99999999999999999999"},
        {Integer32, 13, "99999999999999999999x"},
        {Speed, 0, "2", std::int32_t{2}},
        {Text, 0, "\n", "\n"s},
        {Date, 0, "2026-03-02 09:00:00", *qz::DateTime::parse("2026-03-02 09:00:00")},
        {Date, 13, "soon"},
        {Texts, 13, "a"},
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
