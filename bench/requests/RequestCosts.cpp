// What each request costs the server, by the number of accounts: everything from the bytes of the request to
// the commit at the end of its turn, over sockets in memory and a real database file.
//
//     build/release/bench/velto_request_costs [accounts ...]        200 1000 10000 unless told
//
// Each account has 20 buddies; there is a room for every ten accounts. As many users are on line at every
// size, so that what grows in the table grows with the tables alone.
#include "store/Statements.h"
#include "support/Conversation.h"
#include "support/Talk.h"
#include "support/TestMachine.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <time.h>

namespace {

using namespace qz::test;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr int kBuddiesOfEach = 20;
constexpr int kOnLine = 50;
constexpr std::int16_t kSockets = 2'000;
constexpr auto kEnough = std::chrono::milliseconds(400); // of one request
constexpr int kMostRounds = 200;
constexpr int kFewestRounds = 5;

/// A failure makes every figure worthless.
struct StrictEvents final : qz::server::MainEvents {
    void Error(const std::string& routine, std::int32_t number, const std::string& /*source*/,
        const std::string& description, const std::string& /*pc_ip*/) override
    {
        if (!expects_overflow || number != 6) {
            std::cerr << routine << ": " << description << '\n';
            std::exit(EXIT_FAILURE);
        }
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

    bool expects_overflow = false; // a text of more than 16 chunks is not sent to its end
};

std::string user(int number)
{
    return "user" + std::to_string(number);
}

std::string room(int number)
{
    return "room" + std::to_string(number);
}

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

/// A server with its tables filled and some of its users on line.
class Server {
public:
    explicit Server(int accounts) : accounts_(accounts)
    {
        fill_tables();
        engine.Server_Start();
        machine.tick(1); // the first tick does less than the others
        engine.pool.LoadSockets(
            kSockets, false); // the clock stands still, so none that was used rests enough
        for (int i = 0; i < kOnLine; ++i) {
            clients_.push_back(log_on(user(i)));
        }
    }

    ChatClient connect()
    {
        const std::string address = "192.0.2.10";
        return {std::make_unique<MemoryWire>(machine, machine.network().connect(address)), address};
    }
    ChatClient log_on(const std::string& name)
    {
        auto client = connect();
        client.log_on(name);
        client.hear();
        return client;
    }
    /// Of the user with this number, who has been on line from the start.
    ChatClient& client(int number) { return clients_.at(static_cast<std::size_t>(number)); }
    int accounts() const { return accounts_; }

    TestMachine machine;
    StrictEvents events;
    qz::server::Engine engine{machine, events};

private:
    void fill_tables()
    {
        using namespace qz::store::tables;
        auto& database = engine.database;
        for (int i = 0; i < accounts_; ++i) {
            database.insert(kUsers,
                {{"UserName", "Password", "FirstName", "LastName", "IMClientInUse"},
                    {user(i), std::string("secret"), std::string("Given") + std::to_string(i),
                        std::string("Family"), std::string("1.0.0")}});
            for (int k = 1; k <= kBuddiesOfEach; ++k) {
                database.insert(kBuddies,
                    {{"UserName", "Buddy", "Group"},
                        {user(i), user((i + k) % accounts_), std::string("friends")}});
            }
        }
        for (int i = 0; i < accounts_ / 10; ++i) {
            database.insert(kRooms, {{"RoomName", "UserName_Owner"}, {room(i), user(i)}});
        }
        database.turn_ended();
    }

    int accounts_;
    std::vector<ChatClient> clients_;
};

/// Sends a request with the session id in front, so that a message's text may be the rest.
void say(Server& server, int client, const std::string& keyword, const std::string& body, int number = 1)
{
    auto& peer = server.client(client);
    peer.wire().send(envelope(keyword + " sessionidvalue=" + peer.session_id() + " " + body, number));
}

/// One row of the table.
struct Case {
    std::string name;
    /// Done before each round and not measured.
    std::function<void(Server&, int round)> before;
    std::function<void(Server&, int round)> measured;
};

Case request(const std::string& name, int client, const std::string& keyword,
    const std::function<std::string(int round)>& body)
{
    return {name, {}, [=](Server& server, int round) {
                say(server, client, keyword, body(round), round + 1);
            }};
}

Case request(const std::string& name, const std::string& keyword, const std::string& body)
{
    return request(name, 0, keyword, [body](int /*round*/) { return body; });
}

/// Buddies that nobody has yet, and the owner of the rows.
std::string stranger(int round)
{
    return "stranger" + std::to_string(round);
}

std::vector<Case> logon_cases()
{
    auto newcomer = std::make_shared<std::vector<ChatClient>>();
    const auto come = [newcomer](Server& server, int /*round*/) {
        newcomer->push_back(server.connect());
    };
    const auto log_on = [newcomer](Server& server, int /*round*/) {
        newcomer->back().log_on(user(server.accounts() - 1));
    };
    const auto go = [newcomer](Server& /*server*/, int /*round*/) {
        newcomer->back().wire().vanish();
        newcomer->clear();
    };
    return {
        {"logon",
            [=](Server& server, int round) {
                if (!newcomer->empty()) {
                    go(server, round);
                }
                come(server, round);
            },
            log_on},
        {"logon after somebody's clientversion",
            [=](Server& server, int round) {
                go(server, round);
                say(server, 1, "clientversion",
                    "screenname=user1 clientversion=3.0." + std::to_string(round));
                come(server, round);
            },
            log_on},
        {"log-off",
            [=](Server& server, int round) {
                if (newcomer->empty()) {
                    come(server, round);
                    log_on(server, round);
                }
            },
            go},
        {"logon with a wrong password", {},
            [](Server& server, int /*round*/) {
                auto client = server.connect();
                client.log_on("user1", "wrong");
                client.wire().vanish();
            }},
    };
}

std::vector<Case> buddy_cases()
{
    return {
        request("status", 0, "status",
            [](int round) { return "screenname=user0 status=away" + std::to_string(round); }),
        request("addbuddy", 0, "addbuddy",
            [](int round) { return "screenname=user0 newbuddy=" + stranger(round) + " group=work"; }),
        request("addbuddy, listed already", "addbuddy", "screenname=user0 newbuddy=user5 group=work"),
        {"deletebuddy",
            [](Server& server, int round) {
                say(server, 0, "addbuddy", "screenname=user0 newbuddy=" + stranger(round) + " group=work");
            },
            [](Server& server, int round) {
                say(server, 0, "deletebuddy", "screenname=user0 screenname2delete=" + stranger(round));
            }},
        request("deletebuddy, not listed", "deletebuddy", "screenname=user0 screenname2delete=nobody"),
        request("buddydetails get", "buddydetails", "action=get screenname=user0 buddy=user5"),
        request("buddydetails update", 0, "buddydetails",
            [](int round) {
                return "action=update screenname=user0 buddy=user5 group=g comment=c key=k"
                    + std::to_string(round);
            }),
        request("buddykey get", "buddykey", "action=get screenname=user0 buddy=user5"),
        request("buddykey update", 0, "buddykey",
            [](int round) {
                return "action=update screenname=user0 buddy=user5 key=k" + std::to_string(round);
            }),
        request("onlinebuddies", "onlinebuddies", "screenname=user0"),
        request("allbuddies", "allbuddies", "screenname=user0"),
    };
}

std::vector<Case> search_cases()
{
    return {
        request("findbuddy, one found", "findbuddy", "screennametofind=given150"),
        request("findbuddy, none found", "findbuddy", "screennametofind=zebra"),
        {"findbuddy, all found (*)", {},
            [](Server& server, int /*round*/) {
                server.events.expects_overflow = true;
                say(server, 0, "findbuddy", "screennametofind=family");
                server.events.expects_overflow = false;
            }},
        request("activeusers", "activeusers", ""),
        request("whereisbuddy", "whereisbuddy", "screennametofind=user1"),
    };
}

std::vector<Case> room_cases()
{
    const auto make = [](int round) {
        return "action=createnew screenname=user0 roomname=new" + std::to_string(round);
    };
    const auto join = [](int round) {
        return "action=join screenname=user0 roomname=" + room(round % 10);
    };
    const auto leave = [](int round) {
        return "action=leave screenname=user0 roomname=" + room(round % 10);
    };
    return {
        request("roomlist (*)", "roomlist", "screenname=user0"),
        request("room createnew", 0, "room",
            [](int round) {
                return "action=createnew screenname=user0 roomname=new" + std::to_string(round);
            }),
        {"room delete", [=](Server& server, int round) { say(server, 0, "room", make(round)); },
            [](Server& server, int round) {
                say(server, 0, "room", "action=delete screenname=user0 roomname=new" + std::to_string(round));
            }},
        {"room join", [=](Server& server, int round) { say(server, 0, "room", leave(round)); },
            [=](Server& server, int round) {
                say(server, 0, "room", join(round));
            }},
        {"room leave", [=](Server& server, int round) { say(server, 0, "room", join(round)); },
            [=](Server& server, int round) {
                say(server, 0, "room", leave(round));
            }},
        request("room guest", "room", "action=guest screenname=user0 roomname=room3"),
        request("room whereiam", "room", "action=whereiam screenname=user0"),
    };
}

std::vector<Case> other_cases()
{
    return {
        request("clientversion", 0, "clientversion",
            [](int round) { return "screenname=user0 clientversion=2.0." + std::to_string(round); }),
        request("autoreply check", "autoreply", "action=check screenname=user0"),
        request("autoreply update", 0, "autoreply",
            [](int round) {
                return "action=update screenname=user0 status=False message=m" + std::to_string(round);
            }),
        request("msg", 0, "msg",
            [](int /*round*/) { return "screennamefrom=user0 screennameto=user2 msg=hello"; }),
        request("receipt", 2, "receipt", [](int round) { return "msgid=" + std::to_string(round + 1); }),
        request("typing", "typing", "screennamefrom=user0 screennameto=user2 status=on"),
        request("filetransfer", "filetransfer", "screennamefrom=user0 screennameto=user2 action=request"),
        request("lastversion", "lastversion", ""),
        request("adminscreenname", "adminscreenname", "screenname=user0"),
        request("echo", "echo", ""),
    };
}

/// What is read again after a change by another program, which nobody can cause over the network.
std::vector<Case> foreign_cases()
{
    return {
        {"look-up after another program added an account (**)",
            [](Server& server, int round) {
                server.machine.database().add(qz::store::tables::kUsers, {{"UserName", stranger(round)}});
            },
            [](Server& server, int /*round*/) {
                server.engine.accounts.ScreenNameExist("user1");
            }},
        {"addbuddy after another program added a buddy (**)",
            [](Server& server, int round) {
                server.machine.database().add(
                    qz::store::tables::kBuddies, {{"UserName", "user3"}, {"Buddy", stranger(round)}});
            },
            [](Server& server, int round) {
                say(server, 0, "addbuddy",
                    "screenname=user0 newbuddy=late" + std::to_string(round) + " group=work");
            }},
    };
}

std::vector<Case> all_cases()
{
    std::vector<Case> all;
    for (auto&& some :
        {logon_cases(), buddy_cases(), search_cases(), room_cases(), other_cases(), foreign_cases()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

/// Processor time of this process so far: what other programs of the machine do does not count.
Microseconds processor_time()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// @return the mean of the rounds in microseconds.
double measure(Server& server, const Case& each)
{
    Microseconds spent{};
    int round = 0;
    for (; round < kFewestRounds || (round < kMostRounds && spent < kEnough); ++round) {
        if (each.before) {
            each.before(server, round);
        }
        const auto begin = processor_time();
        each.measured(server, round);
        spent += processor_time() - begin;
        for (int i = 0; i < kOnLine; ++i) {
            server.client(i).wire().take();
        }
    }
    return spent.count() / round;
}

void print_table(const std::vector<int>& sizes)
{
    std::vector<std::pair<std::string, std::vector<double>>> rows;
    for (const auto size : sizes) {
        Server server(size);
        std::size_t row = 0;
        for (const auto& each : all_cases()) {
            if (rows.size() == row) {
                rows.emplace_back(each.name, std::vector<double>{});
            }
            rows[row++].second.push_back(measure(server, each));
        }
    }
    std::printf("| request |");
    for (const auto size : sizes) {
        std::printf(" %d accounts, CPU us |", size);
    }
    std::printf("\n|---|");
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        std::printf("---:|");
    }
    std::printf("\n");
    for (const auto& [name, times] : rows) {
        std::printf("| %s |", name.c_str());
        for (const auto time : times) {
            std::printf(" %.1f |", time);
        }
        std::printf("\n");
    }
    std::printf("\n(*) The answer itself grows with the table.\n(**) The whole table is read again.\n");
}

} // namespace

int main(int count, char** words)
{
    std::vector<int> sizes;
    for (int i = 1; i < count; ++i) {
        sizes.push_back(std::atoi(words[i]));
    }
    print_table(sizes.empty() ? std::vector<int>{200, 1'000, 10'000} : sizes);
}
