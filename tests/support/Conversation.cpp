#include "support/Conversation.h"

#include "base/Text.h"
#include "helpers/Frame.h"
#include "helpers/ProtocolKeywords.h"
#include "helpers/ServerCommandNames.h"
#include "helpers/UnitCutter.h"
#include "support/LoopRunner.h"
#include "support/LoopbackMachine.h"
#include "support/LoopbackPeer.h"
#include "support/RecordingMailer.h"
#include "support/TestMachine.h"

#include <gtest/gtest.h>

#include <charconv>
#include <deque>
#include <functional>
#include <map>

namespace qz::test {

namespace {

class MemoryStage final : public Stage {
public:
    MemoryStage() { server_.start(); }

    server::Engine& engine() override { return server_.engine; }
    void connect() override
    {
        peers_.push_back(server_.machine.network().connect());
        server_.settle();
    }
    void send(std::size_t client, std::string_view bytes) override { peers_.at(client).send(bytes); }
    std::string receive(
        std::size_t client, const std::function<bool(const std::string&)>& /*enough*/) override
    {
        server_.settle();
        return peers_.at(client).take();
    }
    bool ended(std::size_t client) override { return peers_.at(client).ended(); }
    std::int16_t socket(std::size_t client) override { return peers_.at(client).number(); }

private:
    TestEngine server_;
    std::deque<MemoryPeer> peers_;
};

class LoopbackStage final : public Stage {
public:
    LoopbackStage() { engine_.Server_Start(); }

    server::Engine& engine() override { return engine_; }
    void connect() override
    {
        const auto before = connections();
        peers_.emplace_back(machine_.port());
        runner_.until([&] { return connections() > before; });
        const auto& event = events_.list[last_connection()];
        std::int16_t number = 0;
        const auto digits = event.substr(event.rfind(' ') + 1);
        std::from_chars(digits.data(), digits.data() + digits.size(), number);
        numbers_.push_back(number);
    }
    void send(std::size_t client, std::string_view bytes) override { peers_.at(client).send(bytes); }
    std::string receive(std::size_t client, const std::function<bool(const std::string&)>& enough) override
    {
        std::string bytes;
        runner_.until([&] {
            bytes += peers_.at(client).take();
            return peers_.at(client).ended() || enough(bytes);
        });
        return bytes;
    }
    bool ended(std::size_t client) override { return peers_.at(client).ended(); }
    std::int16_t socket(std::size_t client) override { return numbers_.at(client); }

private:
    std::ptrdiff_t connections() const
    {
        return std::count_if(events_.list.begin(), events_.list.end(),
            [](const auto& event) { return event.starts_with("Connection "); });
    }
    std::size_t last_connection() const
    {
        auto at = events_.list.size() - 1;
        while (!events_.list[at].starts_with("Connection ")) {
            --at;
        }
        return at;
    }

    LoopbackMachine machine_;
    RecordingEvents events_;
    server::Engine engine_{machine_, events_};
    LoopRunner runner_{machine_.loop()};
    std::deque<LoopbackPeer> peers_;
    std::vector<std::int16_t> numbers_;
};

/// One dialogue on its way.
class Play {
public:
    explicit Play(Stage& stage) : stage_(stage) { }

    void step(std::string text)
    {
        SCOPED_TRACE(text);
        ASSERT_FALSE(text.empty());
        const auto client = static_cast<std::size_t>(text.front() - '0');
        text = replace_all(text.substr(1), "{session}", sessions_[client]);
        if (text == " connects") {
            connect(client);
        } else if (text.starts_with(" is ")) {
            stage_.engine().connections.fill(text.substr(4), sessions_[client], stage_.socket(client),
                "192.0.2.10", DateTime::parse("2026-03-02 09:00:00").value());
        } else if (text.starts_with("> ")) {
            stage_.send(client, envelope(text.substr(2)));
        } else if (text.starts_with("! ")) {
            stage_.send(client, text.substr(2));
        } else if (text.starts_with("[")) {
            send_frames(client, text);
        } else if (text.starts_with("< ")) {
            EXPECT_EQ(next(client), text.substr(2));
        } else if (text == " ends") {
            EXPECT_EQ(next(client), "") << "and then the end";
            EXPECT_TRUE(stage_.ended(client));
        } else {
            FAIL() << "no such step";
        }
    }
    void end()
    {
        for (const auto& [client, messages] : received_) {
            EXPECT_TRUE(messages.empty()) << "client " << client << " also got " << messages.front();
        }
    }

private:
    void connect(std::size_t client)
    {
        stage_.connect();
        const std::string key = "session sessionidvalue=";
        const auto offer = next(client);
        EXPECT_TRUE(offer.starts_with(key)) << offer;
        sessions_[client] = offer.substr((std::min)(key.size(), offer.size()));
    }
    void send_frames(std::size_t client, const std::string& text)
    {
        const auto end = text.find("]> ");
        const auto order = text.substr(1, end - 1);
        const auto count = 1 + static_cast<int>(std::count(order.begin(), order.end(), ','));
        const auto pieces = frames(envelope(text.substr(end + 3)), count, ++frame_messages_);
        for (std::size_t at = 0; at < order.size(); at += 2) {
            stage_.send(client, pieces.at(static_cast<std::size_t>(order[at] - '1')));
        }
    }
    /// The next message; the empty text when none comes.
    std::string next(std::size_t client)
    {
        auto& waiting = received_[client];
        if (waiting.empty()) {
            for (auto& message : messages_in(stage_.receive(
                     client, [](const std::string& bytes) { return !messages_in(bytes).empty(); }))) {
                waiting.push_back(std::move(message));
            }
        }
        if (waiting.empty()) {
            return {};
        }
        auto message = waiting.front();
        waiting.pop_front();
        return message;
    }

    Stage& stage_;
    std::map<std::size_t, std::string> sessions_;
    std::map<std::size_t, std::deque<std::string>> received_;
    int frame_messages_ = 0;
};

} // namespace

std::unique_ptr<Stage> memory_stage()
{
    return std::make_unique<MemoryStage>();
}

std::unique_ptr<Stage> loopback_stage()
{
    return std::make_unique<LoopbackStage>();
}

void play(Stage& stage, const Dialogue& dialogue)
{
    Play current(stage);
    for (const auto& step : dialogue) {
        current.step(step);
    }
    current.end();
}

std::string envelope(std::string_view text, int number)
{
    const auto& words = helpers::protocol_keywords();
    return words.EnvelopeStart + words.NumberStart + std::to_string(number) + words.NumberEnd + "\r\n"
        + std::string(text) + words.EnvelopeEnd;
}

std::vector<std::string> frames(const std::string& envelope, int count, int message)
{
    std::vector<std::string> result;
    const auto size = envelope.size() / static_cast<std::size_t>(count) + 1;
    for (int index = 1; index <= count; ++index) {
        const auto begin = (std::min)(static_cast<std::size_t>(index - 1) * size, envelope.size());
        result.push_back(helpers::write_frame({index, message, index, count}, envelope.substr(begin, size)));
    }
    return result;
}

std::vector<std::string> messages_in(std::string_view bytes)
{
    std::vector<std::string> messages;
    std::string text;
    helpers::UnitCutter cutter;
    while (const auto unit = cutter.next_unit(bytes)) {
        const auto frame = helpers::parse_frame(*unit);
        if (!frame) {
            messages.push_back("no frame: " + printable(*unit));
            continue;
        }
        text += frame->chunk;
        if (frame->header.chunk_index == frame->header.chunk_count) {
            const auto begin = text.find("\r\n") + 2;
            messages.push_back(text.substr(begin, text.size() - begin - 1));
            text.clear();
        }
    }
    return messages;
}

} // namespace qz::test
