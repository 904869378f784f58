// The command line: what may be said, and the one command that was.
#pragma once

#include "BackupCommand.h"
#include "DbCopyCommand.h"
#include "Home.h"
#include "InactivityCommand.h"
#include "InitCommand.h"
#include "ListForm.h"
#include "LogCommand.h"
#include "RunCommand.h"
#include "UserCommand.h"
#include "common/Exit.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace velto {

class CommandLine {
public:
    CommandLine();
    /// Runs the command that the arguments name.
    Exit run(int argc, char** argv);

private:
    using Work = std::function<void()>;

    std::vector<std::string> take_call_arguments(std::vector<std::string> words);
    /// A command that only has subcommands.
    CLI::App& group(const std::string& name, const std::string& description, const std::string& examples);
    CLI::App* subcommand(CLI::App& parent, const std::string& name, const std::string& description,
        const std::string& examples, std::function<Exit()> work);
    /// A subcommand that has nothing to say beyond done or failed.
    CLI::App* work_command(CLI::App& parent, const std::string& name, const std::string& description,
        const std::string& examples, Work work);
    /// The same for one that is about one account.
    CLI::App* named_command(CLI::App& parent, const std::string& name, const std::string& description,
        const std::string& examples, Work work);
    static CLI::Validator is_named();
    void add_home(CLI::App& app);
    void add_json(CLI::App& app);
    void add_list_form(CLI::App& app);
    ListForm list_form() const;
    Home home() const { return Home(home_); }

    void add_init();
    void add_run();
    void add_status();
    void add_check();
    void add_config();
    void add_call();
    void add_log();
    void add_inactivity();
    void add_backup();
    void add_version();
    // Accounts, rooms, and what a running server is told: in CommandLineTables.cpp.
    void add_user();
    void add_user_changes(CLI::App& user);
    void add_room();
    void add_command();
    void add_db();
    void add_password_source(CLI::App& app);

    CLI::App app_{"The VELTO instant-messaging server", "velto-server"};
    std::function<Exit()> chosen_;
    std::string home_;
    std::string name_;
    std::string text_;
    std::optional<std::string> value_;
    std::vector<std::string> arguments_;
    std::string owner_;
    NewUser new_user_;
    PasswordSource password_;
    BackupOptions backup_;
    DbCopyOptions copy_;
    InitOptions init_;
    RunOptions run_;
    LogOptions log_;
    InactivityOptions inactivity_;
    bool json_ = false;
    bool names_ = false;
    bool list_ = false;
};

} // namespace velto
