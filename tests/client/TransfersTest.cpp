// Two clients that move a file over the loopback. The server between them, and a network that breaks, are
// played by the test.
#include "client/transfer/Transfers.h"

#include "client/Conversation.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <netinet/in.h>
#include <poll.h>
#include <regex>
#include <sys/socket.h>

using namespace std::chrono_literals;
using namespace qz::client;
using namespace qz::client::transfer;
using qz::test::bytes_of;
using qz::test::put_bytes;

namespace {

/// The machine's time, and what the test adds to it.
struct MovableClock final : qz::Clock {
    virtual ~MovableClock() = default;
    qz::DateTime now() const override { return {}; }
    std::chrono::steady_clock::time_point steady() const override
    {
        return std::chrono::steady_clock::now() + ahead;
    }
    std::chrono::seconds ahead{0};
};

struct User final : ClientEvents, TransferEvents {
    explicit User(std::string own_name)
        : name(std::move(own_name)), core({name, "secret"}, crypto, *this),
          transfers(core, crypto, clock, *this, {})
    {
        core.start(clock.steady());
        core.opened("127.0.0.1", clock.steady());
        hear("session sessionidvalue=42");
        hear("logon answer=accepted");
        said();
    }
    virtual ~User() = default;

    void connected() override { }
    void logged_on() override { }
    void refused(const std::vector<std::string>& /*reasons*/) override { }
    void incoming(const Incoming& each) override { shown += transfers.take(each) ? 0 : 1; }
    void disconnected(const Disconnected& /*disconnected*/) override { transfers.disconnected(); }

    void offered(const View& transfer) override
    {
        log += "offered " + transfer.name + " by " + transfer.peer + "\n";
        if (accepts) {
            EXPECT_FALSE(transfers.accept(transfer.number, folder.path()));
        }
    }
    void started(const View& /*transfer*/) override { log += "started\n"; }
    void ended(const View& transfer, const Ending& ending) override
    {
        log += describe(ending) + "\n";
        last = transfer;
        outcome = ending.outcome;
    }
    void not_understood(const std::string& from) override { log += "not understood: " + from + "\n"; }

    void hear(const std::string& text, double number = 7)
    {
        core.received(qz::test::from_server(text, number), clock.steady());
    }
    std::vector<std::string> said()
    {
        const auto texts = qz::test::said(core.output());
        core.consume_output(core.output().size());
        return texts;
    }

    std::string name;
    qz::platform::SodiumCrypto crypto;
    MovableClock clock;
    qz::test::TemporaryFolder folder;
    ClientCore core;
    Transfers transfers;
    bool accepts = true;
    int shown = 0; // what is not about transfers
    std::string log;
    std::optional<Outcome> outcome;
    View last;
};

struct Socket {
    explicit Socket(const char* address = "127.0.0.1", bool listens = true)
        : descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0))
    {
        auto bound = numeric_address(address, 0).value();
        EXPECT_EQ(::bind(descriptor.number(), bound.generic(), bound.size), 0);
        EXPECT_EQ(::getsockname(descriptor.number(), bound.generic(), &bound.size), 0);
        port = ntohs(reinterpret_cast<sockaddr_in&>(bound.storage).sin_port);
        EXPECT_TRUE(!listens || ::listen(descriptor.number(), 4) == 0);
    }
    void connect(std::uint16_t to) const
    {
        const auto address = numeric_address("127.0.0.1", to).value();
        ::connect(descriptor.number(), address.generic(), address.size);
    }
    Descriptor descriptor;
    std::uint16_t port = 0;
};

/// Stands between two clients and cuts their first connection after so many bytes.
class BreakingNetwork {
public:
    std::uint16_t port() const { return listener_.port; }
    std::uint16_t target = 0;
    std::size_t bytes_until_break = std::string::npos;
    int connections = 0;

    void run()
    {
        const int accepted = ::accept4(listener_.descriptor.number(), nullptr, nullptr, SOCK_NONBLOCK);
        if (accepted >= 0) {
            ++connections;
            ends_[0] = Descriptor(accepted);
            ends_[1] = std::move(Socket("127.0.0.1", false).descriptor);
            const auto address = numeric_address("127.0.0.1", target).value();
            ::connect(ends_[1].number(), address.generic(), address.size);
            rest_[0].clear();
            rest_[1].clear();
        }
        pass(0, 1);
        pass(1, 0);
    }

private:
    void pass(std::size_t from, std::size_t to)
    {
        char bytes[16'384];
        auto& rest = rest_[from];
        const auto size = rest.empty() ? ::recv(ends_[from].number(), bytes, sizeof bytes, 0) : -1;
        if (size == 0 || bytes_until_break == 0) {
            bytes_until_break = bytes_until_break == 0 ? std::string::npos : bytes_until_break;
            ends_[0].reset();
            ends_[1].reset();
            return;
        }
        if (size > 0) {
            const auto taken = (std::min)(static_cast<std::size_t>(size), bytes_until_break);
            bytes_until_break -= bytes_until_break == std::string::npos ? 0 : taken;
            rest.append(bytes, taken);
        }
        const auto sent = ::send(ends_[to].number(), rest.data(), rest.size(), MSG_NOSIGNAL);
        rest.erase(0, sent > 0 ? static_cast<std::size_t>(sent) : 0);
    }

    Socket listener_;
    Descriptor ends_[2];
    std::string rest_[2];
};

class TransfersTest : public testing::Test {
protected:
    TransfersTest() { put_bytes(file, bytes); }

    /// What the server does with what a client says.
    void serve(User& from, User& to)
    {
        for (auto text : from.said()) {
            said.push_back(text);
            text = change(text);
            const auto keyword = text.substr(0, text.find(' '));
            const bool is_text = keyword == "msg";
            if (keyword == "activeusers") {
                from.hear("activeusers " + users);
            } else if (keyword == "filetransfer" && !forbids) {
                to.hear(
                    std::regex_replace(text, std::regex(" sessionidvalue=42"), "") + " remoteip=127.0.0.1");
            } else if (keyword == "filetransfer") {
                from.hear(
                    "notice File Transfer not allowed by internal policy. Please contact root for support");
            } else if (is_text) {
                to.hear(std::regex_replace(text, std::regex(" sessionidvalue=42"), ""), ++number);
            }
        }
    }
    /// The program's loops, until the condition holds.
    bool run_until(const std::function<bool()>& condition)
    {
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (!condition() && std::chrono::steady_clock::now() < end) {
            serve(ann, ben);
            serve(ben, ann);
            network.run();
            std::vector<Watch> watches;
            for (auto* const user : {&ann, &ben}) {
                user->transfers.on_ready();
                user->transfers.add_watches(watches);
            }
            std::vector<pollfd> waiting;
            for (const auto& watch : watches) {
                const int events = (watch.read ? POLLIN : 0) | (watch.write ? POLLOUT : 0);
                waiting.push_back({watch.descriptor, static_cast<short>(events), 0});
            }
            ::poll(waiting.data(), waiting.size(), 1); // the network of the test is not among them
        }
        return condition();
    }
    bool both_end()
    {
        return run_until([this] { return ann.outcome && ben.outcome && ann.transfers.is_idle(); });
    }
    int offer()
    {
        const auto sent = ann.transfers.send("Ben", file);
        return sent.index() == 0 ? std::get<0>(sent) : 0;
    }
    /// From now on the server tells another port than the one that a client listens on.
    void tell_port(const std::string& kind, std::uint16_t port, std::uint16_t* real = nullptr)
    {
        change = [kind, port, real](const std::string& text) {
            std::smatch found;
            if (std::regex_search(text, found, std::regex("velto-file/1 " + kind + " .*port=([0-9]+)"))) {
                if (real != nullptr) {
                    *real = static_cast<std::uint16_t>(std::stoi(found[1]));
                }
                return std::regex_replace(text, std::regex("port=[0-9]+"), "port=" + std::to_string(port));
            }
            return text;
        };
    }

    User ann{"ann"};
    User ben{"ben"};
    std::string users = "ann online#ben online";
    bool forbids = false;
    std::function<std::string(const std::string&)> change = [](const std::string& text) {
        return text;
    };
    double number = 100;
    std::vector<std::string> said;
    BreakingNetwork network;
    std::string bytes = std::string(2'000'000, 'a') + std::string(1'000'001, 'b');
    std::filesystem::path file = ann.folder / "big file.bin";
};

} // namespace

TEST_F(TransfersTest, AFileArrives)
{
    ASSERT_NE(offer(), 0);
    EXPECT_EQ(std::get<Ending>(ann.transfers.send("ben", file)).outcome, Outcome::Busy) << "not answered yet";
    EXPECT_EQ(std::get<Ending>(ann.transfers.send("Ann", file)).outcome, Outcome::Oneself);
    ASSERT_TRUE(both_end());
    EXPECT_EQ(ann.log, "started\nDone.\n");
    EXPECT_EQ(ben.log, "offered big file.bin by ann\nstarted\nDone.\n");
    EXPECT_EQ(ben.last.path, ben.folder / "big file.bin");
    EXPECT_EQ(ben.last.done, bytes.size());
    EXPECT_TRUE(bytes_of(ben.last.path) == bytes);
    EXPECT_EQ(ben.folder.file_count(), 1);
    EXPECT_EQ(ann.shown + ben.shown, 0) << "nobody reads the negotiation";
}

TEST_F(TransfersTest, ABrokenConnectionComesBackAndGoesOn)
{
    tell_port("accept", network.port(), &network.target);
    network.bytes_until_break = 2'000'000;
    ASSERT_NE(offer(), 0);
    ASSERT_TRUE(
        run_until([this] { return network.connections == 1 && network.bytes_until_break > 2'000'000; }));
    EXPECT_EQ(ben.transfers.list().at(0).stage, Stage::Moving);
    ASSERT_TRUE(both_end()) << ann.log << ben.log; // after a second
    EXPECT_EQ(network.connections, 2);
    EXPECT_TRUE(bytes_of(ben.folder / "big file.bin") == bytes);
    EXPECT_EQ(ann.log, "started\nDone.\n");
}

TEST_F(TransfersTest, AnotherOfferGoesOnFromWhatIsThere)
{
    tell_port("accept", network.port(), &network.target);
    network.bytes_until_break = 2'000'000;
    ASSERT_NE(offer(), 0);
    ASSERT_TRUE(
        run_until([this] { return network.connections == 1 && network.bytes_until_break > 2'000'000; }));
    network.target = 0; // the network does not come back
    ann.clock.ahead = ben.clock.ahead = 30s;
    ASSERT_TRUE(run_until([this] { return !ben.transfers.list().at(0).is_connected; }));
    ann.clock.ahead = ben.clock.ahead = 200s;
    ASSERT_TRUE(both_end());
    EXPECT_EQ(ann.outcome, Outcome::Broken);
    EXPECT_EQ(ben.outcome, Outcome::Broken);
    ASSERT_TRUE(run_until([this] { return ben.transfers.is_idle(); }));
    const auto arrived = std::filesystem::file_size(ben.folder / "big file.bin.part");
    EXPECT_GT(arrived, 1'000'000U);

    ann.outcome = ben.outcome = std::nullopt;
    tell_port("accept", network.port(), &network.target);
    network.bytes_until_break = 2'000'000; // not enough for all of it
    ASSERT_NE(offer(), 0);
    ASSERT_TRUE(both_end());
    EXPECT_LT(network.bytes_until_break, 2'000'000U) << "it never broke";
    EXPECT_EQ(ben.outcome, Outcome::Done);
    EXPECT_TRUE(bytes_of(ben.folder / "big file.bin") == bytes);
}

TEST_F(TransfersTest, ASenderThatWasStartedAnewGoesOnAtOnce)
{
    tell_port("accept", network.port(), &network.target);
    network.bytes_until_break = 2'000'000;
    ASSERT_NE(offer(), 0);
    ASSERT_TRUE(
        run_until([this] { return network.connections == 1 && network.bytes_until_break > 2'000'000; }));
    network.target = 0;
    ASSERT_TRUE(run_until([this] { return !ben.transfers.list().at(0).is_connected; }));
    change = [](const std::string& text) {
        return text;
    };
    ben.log.clear();
    ASSERT_NE(offer(), 0) << "ben still waits for the first connection to come back";
    ASSERT_TRUE(run_until([this] { return ben.outcome == Outcome::Done; }));
    EXPECT_EQ(ben.log.substr(0, ben.log.find("offered")),
        "The connection broke, and the other side offers the file anew.\n");
    EXPECT_TRUE(bytes_of(ben.folder / "big file.bin") == bytes);
    EXPECT_EQ(ben.folder.file_count(), 1) << "it went on with what was there";
}

TEST_F(TransfersTest, WhoCannotConnectListens)
{
    const Socket nobody("127.0.0.1", false);
    tell_port("accept", nobody.port);
    ASSERT_NE(offer(), 0);
    ASSERT_TRUE(both_end());
    EXPECT_EQ(ben.outcome, Outcome::Done);
    EXPECT_TRUE(bytes_of(ben.folder / "big file.bin") == bytes);

    ann.outcome = ben.outcome = std::nullopt;
    tell_port("(accept|listen)", nobody.port);
    ASSERT_NE(offer(), 0);
    ASSERT_TRUE(both_end());
    EXPECT_EQ(ann.outcome, Outcome::Unreachable);
    EXPECT_EQ(ben.outcome, Outcome::Unreachable);
    EXPECT_EQ(ben.folder.file_count(), 1) << "nothing of the second file";
}

TEST_F(TransfersTest, OnlyTheOtherSidesAddressMayKnock)
{
    std::uint16_t port = 0;
    tell_port("accept", network.port(), &port);
    ASSERT_NE(offer(), 0);
    ASSERT_TRUE(run_until([&port] { return port != 0; }));
    const Socket stranger("127.0.0.2", false);
    stranger.connect(port);
    char byte = 0;
    ASSERT_TRUE(run_until([&] { return ::recv(stranger.descriptor.number(), &byte, 1, 0) == 0; }))
        << "closed without a word";
    network.target = port;
    ASSERT_TRUE(both_end());
    EXPECT_EQ(ben.outcome, Outcome::Done);
}

TEST_F(TransfersTest, ACancelledTransferEndsOnBothSides)
{
    std::filesystem::resize_file(file, 50'000'000); // far more than is under way
    for (auto* const who : {&ann, &ben}) {
        auto& other = who == &ann ? ben : ann;
        ann.outcome = ben.outcome = std::nullopt;
        tell_port("accept", network.port(), &network.target);
        network.bytes_until_break = std::string::npos;
        ASSERT_NE(offer(), 0);
        ASSERT_TRUE(
            run_until([&] { return !ben.transfers.list().empty() && ben.transfers.list()[0].done > 0; }));
        EXPECT_TRUE(who->transfers.cancel(who->transfers.list().at(0).number));
        ASSERT_TRUE(both_end());
        EXPECT_EQ(who->outcome, Outcome::Cancelled);
        EXPECT_EQ(other.outcome, Outcome::Cancelled);
        EXPECT_FALSE(std::filesystem::exists(ben.folder / "big file.bin"));
        ASSERT_TRUE(run_until([this] { return ben.transfers.is_idle(); }));
    }
}

TEST_F(TransfersTest, WhyNothingWasMovedIsSaid)
{
    struct Case {
        const char* what;
        std::function<void()> before;
        std::function<void()> after; // the offer has reached the other side, if it could
        const char* ann;
        const char* ben;
    };
    const auto later = [this](std::chrono::seconds time) {
        ann.clock.ahead += time;
        ben.clock.ahead += time;
    };
    const Case cases[] = {
        {"off line", [this] { users = "ann online#bena online"; }, {}, "The other user is not on line.\n",
            ""},
        {"forbidden", [this] { forbids = true; }, {}, "The administrator's policy forbids file transfer.\n",
            ""},
        {"refused", {}, [this] { ben.transfers.cancel(ben.transfers.list().at(0).number); },
            "The other user refused the file.\n", "offered big file.bin by ann\nCancelled.\n"},
        {"withdrawn", {}, [this] { ann.transfers.cancel(ann.transfers.list().at(0).number); }, "Cancelled.\n",
            "offered big file.bin by ann\nCancelled by the other side.\n"},
        {"no answer", {}, [later] { later(601s); }, "No answer came in time.\n",
            "offered big file.bin by ann\nNo answer came in time.\n"},
        {"a program that does not tell what",
            [this] {
                change = [](const std::string& text) {
                    return text.starts_with("msg") ? "nothing" : text;
                };
            },
            [later] { later(61s); }, "The other user refused the file.\n", "not understood: ann\n"},
        // The last one: the test's server has no second logon.
        {"the server is lost",
            [this] {
                change = [](const std::string& text) {
                    return text;
                };
            },
            [this] { ann.core.closed("The line is dead.", ann.clock.steady()); },
            "The connection to the server ended before both sides had agreed.\n",
            "offered big file.bin by ann\n"},
    };
    for (const auto& each : cases) {
        ann.log.clear();
        ben.log.clear();
        said.clear();
        users = "ann online#ben online";
        forbids = false;
        change = [](const std::string& text) {
            return text;
        };
        ben.accepts = false;
        if (each.before) {
            each.before();
        }
        ASSERT_NE(offer(), 0) << each.what;
        run_until([&] { return !ben.log.empty() || !ann.log.empty() || said.size() > 2; });
        serve(ann, ben);
        if (each.after) {
            each.after();
        }
        run_until([&] { return !ann.log.empty() && ann.transfers.is_idle(); });
        serve(ann, ben);
        EXPECT_EQ(ann.log, each.ann) << each.what;
        EXPECT_EQ(ben.log, each.ben) << each.what;
        ben.transfers.disconnected();
        ben.transfers.on_ready();
    }
}
