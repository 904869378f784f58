// How many logons a second one engine does: real sockets on the loopback interface, a database file, accounts
// with a few buddies each. A logon is a connection, the request, and everything that the server then sends.
#include "helpers/ProtocolKeywords.h"
#include "helpers/SettingsCipher.h"
#include "platform/asio/AsioMachine.h"
#include "platform/sodium/SodiumCrypto.h"
#include "server/Engine.h"
#include "store/Statements.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr int kLogOns = 2000;
constexpr int kBuddies = 5;

struct Silent final : qz::server::MainEvents {
    void Error(const std::string& routine, std::int32_t /*number*/, const std::string& /*source*/,
        const std::string& description, const std::string& /*pc_ip*/) override
    {
        std::cerr << routine << ": " << description << '\n';
    }
    void LogMessage(const std::string& /*message*/, const std::string& /*user_name*/,
        const std::string& /*remote_ip*/) override
    {
    }
    void ServerInfo(const std::string& /*message*/) override { }
    void OnLineUsers(std::int32_t /*users*/) override { }
    void SocketActivity(qz::server::SocketActivity /*activity*/) override { }
    void TimerActivity() override { }
    void ShutDown() override { }
    void ServerStart() override { }
    void CloseSoftware(const std::string& /*description*/) override { }
    void NewConnectionRequested(const std::string& /*address*/) override { }
};

std::string name_of(int number)
{
    return "user" + std::to_string(number);
}

void add_accounts(qz::store::Database& database)
{
    for (int i = 0; i < kLogOns; ++i) {
        database.insert(
            qz::store::tables::kUsers, {{"UserName", "Password"}, {name_of(i), std::string("secret")}});
        for (int k = 1; k <= kBuddies; ++k) {
            database.insert(qz::store::tables::kBuddies,
                {{"UserName", "Buddy", "Group"},
                    {name_of(i), name_of((i + k) % kLogOns), std::string("friends")}});
        }
    }
    database.turn_ended();
}

std::uint16_t free_port()
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t size = sizeof(address);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), size) != 0
        || getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::runtime_error("no free port");
    }
    close(descriptor);
    return ntohs(address.sin_port);
}

/// Waits for bytes, as a client does.
class Client {
public:
    explicit Client(std::uint16_t port) : descriptor_(socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::runtime_error("connect");
        }
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { close(descriptor_); }

    void send_text(const std::string& text) const
    {
        if (send(descriptor_, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) {
            throw std::runtime_error("send");
        }
    }
    /// Everything up to and with the frame that holds the text.
    std::string read_to(const std::string& text)
    {
        for (;;) {
            const auto at = received_.find(text);
            const auto end = at == std::string::npos ? at : received_.find('\x04', at);
            if (end != std::string::npos) {
                return std::exchange(received_, {});
            }
            std::array<char, 4096> buffer{};
            const auto count = recv(descriptor_, buffer.data(), buffer.size(), 0);
            if (count <= 0) {
                throw std::runtime_error("the server ended the connection");
            }
            received_.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }

private:
    int descriptor_;
    std::string received_;
};

void log_on(std::uint16_t port, const std::string& name, qz::helpers::Crypto& crypto,
    std::vector<std::unique_ptr<Client>>& clients)
{
    const auto& words = qz::helpers::protocol_keywords();
    auto& client = *clients.emplace_back(std::make_unique<Client>(port));
    const std::string key = "sessionidvalue=";
    const auto offer = client.read_to(key);
    const auto begin = offer.find(key);
    const auto session = offer.substr(begin, offer.find(words.EnvelopeEnd, begin) - begin);
    const auto coded = [&](const std::string& text) {
        return EncodeCredential(crypto, text, "", qz::helpers::CredentialForm::Plain);
    };
    client.send_text(words.EnvelopeStart + words.NumberStart + "1" + words.NumberEnd + "\r\nlogon screenname="
        + coded(name) + " password=" + coded("secret") + " " + session + words.EnvelopeEnd);
    client.read_to("expiration=");
}

void logons_in_a_row(benchmark::State& state)
{
    while (state.KeepRunning()) {
        state.PauseTiming();
        std::string folder = (std::filesystem::temp_directory_path() / "velto-bench-XXXXXX").string();
        if (mkdtemp(folder.data()) == nullptr) {
            throw std::runtime_error("no folder");
        }
        {
            Silent events;
            qz::platform::AsioMachine machine(folder);
            qz::server::Engine engine(machine, events);
            add_accounts(engine.database);
            const auto port = free_port();
            engine.set_ListeningPort(port);
            engine.Server_Start();
            engine.pool.LoadSockets(kLogOns, false);
            std::vector<std::unique_ptr<Client>> clients;
            qz::platform::SodiumCrypto crypto;
            state.ResumeTiming();
            std::thread crowd([&] {
                for (int i = 0; i < kLogOns; ++i) {
                    log_on(port, name_of(i), crypto, clients);
                }
                machine.loop().post([&] { machine.loop().stop(); });
            });
            machine.loop().run();
            state.PauseTiming();
            crowd.join();
        }
        std::filesystem::remove_all(folder);
        state.ResumeTiming();
    }
    state.counters["logons"] =
        benchmark::Counter(static_cast<double>(kLogOns * state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK(logons_in_a_row)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

} // namespace
