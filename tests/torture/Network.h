// The network between the clients and the server: cuts, holds, slows down and repeats what goes over it.
#pragma once

#include "helpers/UnitCutter.h"

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <random>
#include <string>
#include <vector>

namespace qz::torture {

struct NetworkCounts {
    int links = 0;
    int cuts = 0;
    int half_open = 0;
    int slow = 0;
    int repeated = 0;
};

/// Every connection to its port is a link to the server's.
class Network {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// @param server_port  where the server listens.
    Network(std::uint16_t server_port, std::mt19937_64& random);
    ~Network();
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    std::uint16_t port() const { return port_; }
    /// Descriptors to watch are added.
    void watch(std::vector<pollfd>& descriptors) const;
    /// Moves what can be moved.
    void work(Time now);

    // One random link gets into trouble, if there is any.
    void cut();
    /// Nothing passes for some time; then the client's side is closed, and the server's stays open.
    void leave_half_open(Time now);
    void slow_down(Time now);
    /// How many of a hundred messages arrive twice.
    void repeat(int percent) { repeat_percent_ = percent; }
    /// Nobody is in trouble any more.
    void heal();

    NetworkCounts counts;

private:
    struct Link {
        int client = -1;
        int server = -1;
        std::string to_server;
        std::string to_client;
        helpers::UnitCutter cutter; // of what the client sends
        Time held_until{};          // nothing passes
        Time slow_until{};
        bool lose_client = false; // when the hold ends
    };

    void accept_all();
    bool move(Link& link, Time now);
    bool from_client(Link& link);
    Link* any();

    std::mt19937_64& random_;
    std::uint16_t server_port_;
    std::uint16_t port_ = 0;
    int listener_ = -1;
    int repeat_percent_ = 0;
    std::list<Link> links_;
};

} // namespace qz::torture
