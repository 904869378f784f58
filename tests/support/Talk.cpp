#include "support/Talk.h"

#include "helpers/SettingsCipher.h"
#include "platform/sodium/SodiumCrypto.h"
#include "store/Statements.h"
#include "support/Conversation.h"
#include "support/LoopRunner.h"
#include "support/LoopbackMachine.h"
#include "support/LoopbackPeer.h"
#include "support/TestMachine.h"

#include <stdexcept>
#include <utility>

namespace qz::test {

namespace {

constexpr std::string_view kOffer = "session sessionidvalue=";

class MemoryWire final : public Wire {
public:
    MemoryWire(TestMachine& machine, MemoryPeer peer) : machine_(machine), peer_(std::move(peer)) { }

    void send(const std::string& bytes) override
    {
        peer_.send(bytes);
        machine_.loop().run_pending();
    }
    std::string take() override { return peer_.take(); }
    bool ended() override { return peer_.ended(); }
    void vanish() override
    {
        peer_.vanish();
        machine_.loop().run_pending();
    }

private:
    TestMachine& machine_;
    MemoryPeer peer_;
};

class MemoryTalk final : public Talk {
public:
    server::Engine& engine() override { return server_.engine; }
    RecordingEvents& events() override { return server_.events; }
    ChatClient connect() override
    {
        const std::string address = "192.0.2.10";
        return {std::make_unique<MemoryWire>(server_.machine, server_.machine.network().connect(address)),
            address};
    }
    void tick(int times) override { server_.machine.tick(times); }

private:
    TestEngine server_;
};

class LoopbackWire final : public Wire {
public:
    LoopbackWire(LoopRunner& runner, RecordingEvents& events, std::uint16_t port)
        : runner_(runner), events_(events), peer_(port)
    {
        runner_.until([&] { return peer_.available() > 0; });
    }

    void send(const std::string& bytes) override
    {
        if (bytes.empty()) {
            return;
        }
        const auto handled = events_.handled();
        peer_.send(bytes);
        runner_.until([&] {
            taken_ += peer_.take();
            return events_.handled() > handled || peer_.ended();
        });
        runner_.run_for(std::chrono::milliseconds(2)); // what it caused leaves at the end of the turn
    }
    std::string take() override
    {
        taken_ += peer_.take();
        return std::exchange(taken_, {});
    }
    bool ended() override
    {
        taken_ += peer_.take();
        return peer_.ended();
    }
    void vanish() override
    {
        const auto events = events_.list.size();
        peer_.reset();
        runner_.until([&] { return events_.list.size() > events; });
    }

private:
    LoopRunner& runner_;
    RecordingEvents& events_;
    LoopbackPeer peer_;
    std::string taken_;
};

class LoopbackTalk final : public Talk {
public:
    server::Engine& engine() override { return engine_; }
    RecordingEvents& events() override { return events_; }
    ChatClient connect() override
    {
        return {std::make_unique<LoopbackWire>(runner_, events_, machine_.port()), engine_.get_ServerIP()};
    }
    void tick(int times) override
    {
        for (; times > 0; --times) {
            engine_.housekeeping.timer_ticked();
        }
        runner_.run_for(std::chrono::milliseconds(2));
    }

private:
    LoopbackMachine machine_;
    RecordingEvents events_;
    server::Engine engine_{machine_, events_};
    LoopRunner runner_{machine_.loop()};
};

} // namespace

ChatClient::ChatClient(std::unique_ptr<Wire> wire, std::string address)
    : wire_(std::move(wire)), address_(std::move(address))
{
    wire_->send("");
    const auto offer = hear();
    if (offer.size() != 1 || !offer.front().starts_with(kOffer)) {
        throw std::runtime_error("no session offer");
    }
    session_id_ = offer.front().substr(kOffer.size());
}

std::string ChatClient::log_on_text(const std::string& name, const std::string& password)
{
    platform::SodiumCrypto crypto;
    const auto coded = [&](const std::string& text) {
        return helpers::EncodeCredential(crypto, text, address_, helpers::CredentialForm::Address);
    };
    return envelope("logon screenname=" + coded(name) + " password=" + coded(password)
        + " sessionidvalue=" + session_id_);
}

void ChatClient::log_on(const std::string& name, const std::string& password)
{
    wire_->send(log_on_text(name, password));
}

void ChatClient::say(const std::string& keyword, const std::string& body)
{
    wire_->send(envelope(keyword + " " + body + " sessionidvalue=" + session_id_));
}

std::vector<std::string> ChatClient::hear()
{
    return messages_in(wire_->take());
}

bool ChatClient::ended()
{
    return wire_->ended();
}

void Talk::add_user(
    const std::string& name, bool enabled, const std::string& first_name, const std::string& last_name)
{
    add_row(engine().database, store::tables::kUsers,
        {{"UserName", name}, {"Password", "secret"}, {"AccountActive", enabled}, {"FirstName", first_name},
            {"LastName", last_name}});
}

void Talk::add_buddy(const std::string& owner, const std::string& buddy, const std::string& group)
{
    add_row(engine().database, store::tables::kBuddies,
        {{"UserName", owner}, {"Buddy", buddy}, {"Group", group}});
}

void Talk::add_room(const std::string& name, const std::string& owner)
{
    add_row(engine().database, store::tables::kRooms, {{"RoomName", name}, {"UserName_Owner", owner}});
}

void Talk::start()
{
    engine().Server_Start();
    tick(1); // the first tick does less than the others
    events().list.clear();
}

ChatClient Talk::on_line(const std::string& name)
{
    auto client = connect();
    client.log_on(name);
    client.hear();
    return client;
}

std::vector<std::string> Talk::log()
{
    auto lines = events().take_starting("Log ");
    std::erase_if(lines, [](const auto& line) { return line.starts_with("Log New connection request"); });
    for (auto& line : lines) {
        line.erase(0, std::string_view("Log ").size());
    }
    return lines;
}

std::unique_ptr<Talk> talk_in_memory()
{
    return std::make_unique<MemoryTalk>();
}

std::unique_ptr<Talk> talk_over_loopback()
{
    return std::make_unique<LoopbackTalk>();
}

std::string name_of(TalkKind kind)
{
    return kind == talk_in_memory ? "InMemory" : "OverLoopback";
}

} // namespace qz::test
