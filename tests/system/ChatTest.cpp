// Three people and a server process: what users see, and what stands in the tables afterwards.
#include "client/Connection.h"
#include "platform/SystemClock.h"
#include "platform/sodium/SodiumCrypto.h"
#include "store/Statements.h"
#include "support/ForeignProgram.h"
#include "system/ServerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using namespace qz;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

/// A person at a client: writes down what it shows.
class Person final : public client::ClientEvents {
public:
    Person(std::string name, std::uint16_t port, std::string password = "secret")
        : name_(std::move(name)),
          connection_({"127.0.0.1", port}, {name_, std::move(password)}, crypto_, clock_, *this)
    {
        connection_.start();
    }

    void connected() override { }
    void logged_on() override { shown.emplace_back("logged on"); }
    void refused(const std::vector<std::string>& reasons) override
    {
        shown.push_back("refused " + (reasons.empty() ? std::string("without a reason") : reasons.front()));
    }
    void incoming(const client::Incoming& incoming) override
    {
        std::visit([&](const auto& each) { show(each); }, incoming);
    }
    void disconnected(const client::Disconnected& /*disconnected*/) override
    {
        shown.emplace_back("disconnected");
    }

    /// Waits until a line that holds the text was shown.
    bool sees(const std::string& text)
    {
        const auto is_shown = [&] {
            return std::any_of(shown.begin(), shown.end(),
                [&](const auto& line) { return line.find(text) != std::string::npos; });
        };
        return connection_.run_until(is_shown, 15s); // a message is tried every ten seconds
    }
    client::MessageId write(const std::string& to, const std::string& text, bool receipt = false)
    {
        const auto sent = connection_.core().send_message({to, text, receipt, std::nullopt});
        EXPECT_EQ(sent.result, client::SendResult::Sent);
        settle();
        return sent.id;
    }
    void ask(const client::Request& request)
    {
        EXPECT_EQ(connection_.core().send(request), client::SendResult::Sent);
        settle();
    }
    /// The server has worked on everything that was sent so far.
    void settle()
    {
        const auto before = echoes_;
        connection_.core().send(client::requests::echo());
        EXPECT_TRUE(connection_.run_until([&] { return echoes_ > before; }, 8s));
    }
    void leave()
    {
        connection_.stop();
        shown.clear();
    }
    void come_back() { connection_.start(); }

    std::vector<std::string> shown;

private:
    void show(const client::Message& message)
    {
        shown.push_back(
            (message.room.empty() ? "" : "[" + message.room + "] ") + message.sender + ": " + message.text);
    }
    void show(const client::Receipt& receipt) { shown.push_back("receipt " + std::to_string(receipt.id)); }
    void show(const client::Notice& notice) { shown.push_back("notice " + notice.text); }
    void show(const client::PresenceChange& change)
    {
        shown.push_back(change.presence.name + " is " + change.presence.status);
    }
    void show(const client::Typing& typing) { shown.push_back(typing.sender + " types"); }
    void show(const client::RoomReply& reply) { shown.push_back("room " + reply.room + reply.feedback); }
    void show(const client::Echo& /*echo*/) { ++echoes_; }
    template <typename Other> void show(const Other& /*other*/) { }

    std::string name_;
    platform::SodiumCrypto crypto_;
    platform::SystemClock clock_;
    client::Connection connection_;
    int echoes_ = 0;
};

class ChatTest : public testing::Test {
protected:
    void SetUp() override
    {
        for (const auto* name : {"ada", "ben", "cleo"}) {
            ASSERT_EQ(server.run({"user", "add", name, "--password-stdin"}, "secret\n"), 0) << server.output;
        }
        server.start();
    }
    std::vector<std::string> messages()
    {
        platform::SystemClock clock;
        test::ForeignProgram database(server.home() / "VELTO.db", clock);
        return database.rows(store::tables::kMessages,
            {"UserName_From", "UserName_To", "Sent", "Delivered", "ReceiptRequested"});
    }

    test::ServerProcess server;
};

} // namespace

TEST_F(ChatTest, ThreePeopleTalkAndOneComesLater)
{
    Person ada("ada", server.port());
    Person ben("ben", server.port());
    ASSERT_TRUE(ada.sees("logged on"));
    ASSERT_TRUE(ben.sees("logged on"));

    const auto first = ada.write("ben", "Hello, Ben = #1 ü", true);
    EXPECT_TRUE(ben.sees("ada: Hello, Ben = #1 ü"));
    ben.settle();
    EXPECT_TRUE(ada.sees("receipt " + std::to_string(first)));

    ben.ask(client::requests::save_auto_reply(true, "Out for lunch"));
    ada.write("ben", "Are you there?");
    EXPECT_TRUE(ada.sees("ben: Out for lunch"));
    ben.ask(client::requests::save_auto_reply(false, ""));

    ada.write("cleo", "For later 1");
    ada.write("cleo", "For later 2", true);
    EXPECT_TRUE(ada.sees("notice You are sending a message to cleo that looks to be offline"));
    Person cleo("cleo", server.port());
    EXPECT_TRUE(cleo.sees("ada: For later 2"));
    cleo.settle();
    const auto late = std::find_if(
        cleo.shown.begin(), cleo.shown.end(), [](const auto& line) { return line == "ada: For later 1"; });
    ASSERT_NE(late, cleo.shown.end()) << "the first message is not overtaken by the second";

    ben.ask(client::requests::create_room("tea", ""));
    EXPECT_TRUE(ben.sees("The room tea has been created sucessfully"));
    cleo.ask(client::requests::join_room("tea"));
    ben.write("#tea", "Milk?");
    EXPECT_TRUE(cleo.sees("[tea] ben: Milk?"));
    cleo.settle();

    server.send_signal(SIGTERM);
    EXPECT_TRUE(ada.sees("notice VELTOServer is shutting down, please reconnect in a few of minutes"));
    EXPECT_EQ(server.wait(), 0);
    EXPECT_THAT(messages(),
        ElementsAre("ada|ben|1|1|1", "ada|ben|1|1|0", "ben|ada|1|1|0", "ada|cleo|1|1|0", "ada|cleo|1|1|1",
            "ben|cleo|1|1|0"));
}

TEST_F(ChatTest, TellsStrangersFromUsers)
{
    Person wrong("ada", server.port(), "guess");
    EXPECT_TRUE(wrong.sees("refused without a reason"));
    ASSERT_EQ(server.run({"user", "disable", "ben"}), 0) << server.output;
    Person disabled("ben", server.port());
    EXPECT_TRUE(disabled.sees("refused Your account is disabled!"));

    Person ada("ada", server.port());
    ASSERT_TRUE(ada.sees("logged on"));
    ada.write("nobody", "Hello?");
    EXPECT_TRUE(ada.sees("notice The buddy nobody doesn't exist!"));
    ada.write("#nowhere", "Hello?");
    EXPECT_TRUE(ada.sees("notice The room nowhere doesn't exist!"));
    EXPECT_TRUE(messages().empty());
    EXPECT_NE(server.run({"run"}), 0) << "one server per home";
    EXPECT_THAT(server.output, HasSubstr("already"));
}
