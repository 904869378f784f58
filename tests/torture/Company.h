// Those who work beside the server: administration commands, and programs that read its database.
#pragma once

#include "torture/Database.h"
#include "torture/Server.h"
#include "torture/Truth.h"

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <list>
#include <random>
#include <string>
#include <vector>

namespace qz::torture {

/// One or two of them run at all times, each as a process of its own. What they said they did must have been
/// done at the end.
class Company {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// All of them outlive the company.
    Company(Server& server, const Database& database, const std::filesystem::path& folder, Truth& truth,
        std::mt19937_64& random);
    /// Ends who still runs.
    ~Company();
    Company(const Company&) = delete;
    Company& operator=(const Company&) = delete;

    /// Starts who is due, and looks who has ended.
    void work(Time now);
    /// In the last work() somebody ended.
    bool one_has_ended() const { return one_has_ended_; }
    /// A server that starts finds its port free only when nobody tries it at the moment.
    void leave_the_port();
    /// Waits until all have ended; nobody is started any more.
    void finish();

    /// Checks a database that nobody serves, as whoever comes to a killed server might.
    void check_integrity();
    /// The server has ended: what the commands did must be there.
    void compare();

    /// Those whom `user add` has added.
    const std::vector<std::string>& accounts() const { return accounts_; }
    int commands() const { return commands_; }
    int integrity_checks() const { return integrity_checks_; }

private:
    struct Task;
    /// A kind of program.
    struct Kind {
        const char* name;
        int share; // of all that are started
        std::vector<std::string> (Company::*words)(Task& task);
        /// What it ends with when nothing is wrong.
        std::vector<int> codes;
        void (Company::*ended)(const Task& task, bool done, const std::string& output) = nullptr;
        bool tries_port = false; // when no server runs
    };
    struct Task {
        const Kind* kind = nullptr;
        std::string subject;      // account or value that it is about
        std::size_t accounts = 0; // so many had been added before
        bool may_fail = false;    // the disk was full, or the database server away
        std::filesystem::path output;
        Time began;
        pid_t process = 0;
    };

    static const std::vector<Kind>& kinds();
    void start(Time now);
    bool has_ended(Task& task, Time now);
    template <typename Condition> void wait_while(Condition condition);
    void judge(const Task& task, int code);
    std::uint64_t below(std::uint64_t limit) { return random_() % limit; }

    std::vector<std::string> add_user(Task& task);
    std::vector<std::string> list_users(Task& task);
    std::vector<std::string> set_value(Task& task);
    std::vector<std::string> back_up(Task& task);
    std::vector<std::string> read_log(Task& task);
    std::vector<std::string> tell_status(Task& task);
    std::vector<std::string> check(Task& task);
    std::vector<std::string> read(Task& task);
    std::vector<std::string> read_for_long(Task& task);
    void user_added(const Task& task, bool done, const std::string& output);
    void users_listed(const Task& task, bool done, const std::string& output);
    void value_set(const Task& task, bool done, const std::string& output);
    void backed_up(const Task& task, bool done, const std::string& output);

    /// Runs a program to its end.
    int run(const std::vector<std::string>& words, std::string& output);
    void compare_backup();
    void require_accounts(std::size_t count, const std::string& names, const std::string& where);

    Server& server_;
    const Database& database_;
    std::filesystem::path folder_;
    Truth& truth_;
    std::mt19937_64& random_;
    std::list<Task> tasks_;
    Time next_{};
    bool one_has_ended_ = false;
    int started_ = 0;
    int commands_ = 0;
    int integrity_checks_ = 0;
    std::vector<std::string> accounts_;
    std::vector<std::string> values_; // of which the setting has one: the last that was set, and what failed
    bool has_backup_ = false;
    std::size_t accounts_in_backup_ = 0; // at least
};

} // namespace qz::torture
