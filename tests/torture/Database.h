// What the server under torture keeps its tables in: a file, or a database server that has troubles of its
// own.
#pragma once

#include "support/DatabaseServer.h"
#include "support/ForeignProgram.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace qz::torture {

class Database {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// @param provider  "embedded" or "postgresql".
    /// @param file  of the embedded database.
    Database(const std::string& provider, std::filesystem::path file, std::mt19937_64& random);

    bool is_embedded() const { return server_ == nullptr; }
    /// Null with the embedded database.
    test::DatabaseServer* server() { return server_.get(); }

    /// Stops and restarts the server now and then, for less and for more than the time in which an answer is
    /// waited for.
    void make_trouble(Time now);
    void end_trouble();
    /// It does not answer at the moment, or did not a moment ago.
    bool is_in_trouble() const { return stopped_ || is_recovering_; }

    /// How the database's own shell is called with these statements.
    std::vector<std::string> shell(const std::vector<std::string>& statements) const;
    static std::vector<std::string> shell_of(
        const std::filesystem::path& file, const std::vector<std::string>& statements);
    /// Sees what is stored.
    test::ForeignProgram look(const Clock& clock);

    /// Counts how often the log was copied into the file and began again since the last look.
    void look_at_log();
    int log_beginnings() const { return log_beginnings_; }
    int pauses() const { return pauses_; }
    int restarts() const { return restarts_; }

private:
    void stop(Time until);
    void wake();

    std::filesystem::path file_;
    std::mt19937_64& random_;
    std::unique_ptr<test::DatabaseServer> server_;
    bool stopped_ = false;
    bool is_recovering_ = false; // the first moments after it
    Time until_{};
    std::uint32_t log_sequence_ = 0;
    int log_beginnings_ = 0;
    int pauses_ = 0;
    int restarts_ = 0;
};

} // namespace qz::torture
