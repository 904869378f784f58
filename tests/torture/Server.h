// The server under torture: a process that is killed, starved of disk, and whose clock is moved.
#pragma once

#include "support/DatabaseServer.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace qz::torture {

class Server {
public:
    /// Makes a home with these users, whose passwords are "secret". As root the home of an embedded database
    /// is a small file system of its own.
    /// @param database  the database server to use; null for the embedded database.
    Server(std::filesystem::path program, std::filesystem::path folder, const std::vector<std::string>& users,
        const test::DatabaseServer* database);
    /// Ends what still runs.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    void start();
    void kill();
    /// @return false when the server did not end by itself within twenty seconds.
    bool shut_down();
    bool runs() const { return process_ != 0; }
    /// Takes note of a server that has ended by itself.
    /// @return true when it has.
    bool reap();
    bool accepts_connections() const;

    bool can_starve() const { return mounted_; }
    /// Takes all that is free on the disk, but for so many pages.
    void starve(int pages_left);
    void feed();
    bool is_starved() const { return starved_; }

    bool can_move_clock() const { return !clock_library_.empty(); }
    /// The server's clock is so many seconds ahead of the machine's from now on, at once.
    void move_clock(std::int64_t seconds);
    std::int64_t clock_offset() const { return clock_offset_; }

    /// The words of a command on the home, whose clock is the server's.
    std::vector<std::string> command(const std::vector<std::string>& arguments) const;

    std::uint16_t port() const { return port_; }
    std::filesystem::path home() const { return folder_ / "home"; }
    std::filesystem::path log() const { return folder_ / "server.log"; }

private:
    void use(const test::DatabaseServer& database);
    void run(std::initializer_list<std::string> arguments, const std::string& input = {});
    pid_t spawn(const std::vector<std::string>& arguments, const std::filesystem::path& input) const;

    std::filesystem::path program_;
    std::filesystem::path folder_;
    std::filesystem::path clock_library_; // empty when there is none
    std::uint16_t port_ = 0;
    pid_t process_ = 0;
    bool mounted_ = false;
    bool starved_ = false;
    std::int64_t clock_offset_ = 0;
};

} // namespace qz::torture
