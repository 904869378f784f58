// Somebody at a client of a server process.
#pragma once

#include "client/Connection.h"
#include "platform/SystemClock.h"
#include "platform/sodium/SodiumCrypto.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace qz::test {

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
        return connection_.run_until(
            is_shown, std::chrono::seconds(15)); // a message is tried every ten seconds
    }
    client::MessageId write(const std::string& to, const std::string& text, bool receipt = false)
    {
        const auto sent = connection_.core().send_message({to, text, receipt, std::nullopt});
        EXPECT_EQ(sent.result, client::SendResult::Sent);
        settle();
        return sent.id;
    }
    /// Leaves it to the client to send it until the server has it.
    void deliver(const std::string& to, const std::string& text)
    {
        EXPECT_EQ(connection_.core().deliver_message({to, text, false, std::nullopt}).result,
            client::SendResult::Sent);
    }
    void ask(const client::Request& request)
    {
        EXPECT_EQ(connection_.core().send(request), client::SendResult::Sent);
        settle();
    }
    /// The server has worked on everything that was sent so far.
    void settle() { EXPECT_TRUE(hears_echo()); }
    /// The same where the server may end the connection meanwhile.
    void settle_in_time()
    {
        const auto tries = {1, 2, 3, 4, 5, 6};
        EXPECT_TRUE(std::any_of(tries.begin(), tries.end(), [&](int) { return hears_echo(); }));
    }
    void leave()
    {
        connection_.stop();
        shown.clear();
    }
    void come_back() { connection_.start(); }

    std::vector<std::string> shown;

private:
    bool hears_echo()
    {
        const auto before = echoes_;
        connection_.core().send(client::requests::echo());
        return connection_.run_until([&] { return echoes_ > before; }, std::chrono::seconds(8));
    }
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

} // namespace qz::test
