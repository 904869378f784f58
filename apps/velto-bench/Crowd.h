// Many clients on one thread: connects them, logs them on, and hands up what comes for them.
#pragma once

#include "Wire.h"
#include "client/Descriptor.h"
#include "helpers/UnitCutter.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace velto::bench {

/// The name of the account with a number, from 0 on.
std::string account_name(std::size_t number);

class Crowd {
public:
    using Handler = std::function<void(std::size_t client, const Unit& unit)>;

    explicit Crowd(std::uint16_t port);

    /// Connects accounts and logs them on, some at a time, until all have got the last text of a logon.
    /// @throws std::runtime_error when one is refused, or nothing comes for thirty seconds.
    void log_on(std::size_t first_account, std::size_t count);
    /// Ends all connections.
    void leave();
    std::size_t size() const { return clients_.size(); }

    /// Who gets the units of clients that are logged on.
    void on_unit(Handler handler) { handler_ = std::move(handler); }
    const std::string& name(std::size_t client) const { return clients_[client].name; }

    /// Queues a request; it leaves with the next flush. The session is put in front of the body.
    void request(
        std::size_t client, std::string_view number, std::string_view keyword, std::string_view body);
    void flush();
    /// Waits for input and handles what is there; sends what the handling has queued.
    /// @throws std::runtime_error when the server ends a connection.
    void poll(std::chrono::milliseconds patience);
    /// Polls until a condition holds.
    /// @throws std::runtime_error when nothing comes for thirty seconds.
    void poll_until(const std::function<bool()>& done);

private:
    struct Client {
        qz::client::Descriptor socket;
        std::string name;
        std::string session;
        qz::helpers::UnitCutter cutter;
        std::string output;
        bool logged_on = false;
        bool queued = false;
    };

    void connect(std::size_t account);
    void read(std::size_t client);
    void handle(std::size_t client, const Unit& unit);
    void write(Client& client);

    std::uint16_t port_;
    qz::client::Descriptor epoll_;
    std::vector<Client> clients_;
    std::vector<std::size_t> dirty_;
    std::size_t logged_on_ = 0;
    Handler handler_;
    std::string password_;
};

} // namespace velto::bench
