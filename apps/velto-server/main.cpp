// velto-server: runs and administers one server.

#include "CallCommand.h"
#include "CheckCommand.h"
#include "ConfigCommand.h"
#include "Home.h"
#include "InitCommand.h"
#include "LogCommand.h"
#include "RoomCommand.h"
#include "RunCommand.h"
#include "StatusCommand.h"
#include "UserCommand.h"
#include "common/Exit.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace velto {

namespace {

constexpr const char* kExamples = R"(Examples:
  velto-server init --home /srv/velto          make a home with its settings and database
  velto-server run --home /srv/velto           run the server in the foreground; Ctrl-C ends it gracefully
  velto-server status --json                   process, address, users on line, waiting messages...
  velto-server check --home /srv/velto         look the settings over
  velto-server config set "General SetUp/ListeningPort" 2002
  velto-server call get_ListeningPort          call one member of the engine's interface
  velto-server call set_LogOlderThan 90        ... with its arguments
  velto-server user add anna --password-file secret.txt
  velto-server room add lobby --owner anna
  velto-server log -n 50                       the newest lines of the activity log

Exit codes: 0 done, 1 failed, 2 usage, 3 no server running, 78 configuration.
The home folder is that of --home, else of VELTO_HOME, else the current folder.)";

/// The command line, and the one command that it chose.
class CommandLine {
public:
    CommandLine()
    {
        app_.footer(kExamples);
        app_.require_subcommand(1);
        add_home(app_);
        add_init();
        add_run();
        add_status();
        add_check();
        add_config();
        add_user();
        add_room();
        add_call();
        add_log();
        command("version", "Print the version", [] {
            std::cout << "velto-server " VELTO_VERSION "\n";
            return Exit::Done;
        });
    }

    Exit run(int argc, char** argv)
    {
        auto words = take_call_arguments({argv + 1, argv + argc});
        std::reverse(words.begin(), words.end()); // the order in which the library takes them
        try {
            app_.parse(std::move(words));
        } catch (const CLI::ParseError& error) {
            const bool asked_for_help = error.get_exit_code() == 0;
            app_.exit(error);
            return asked_for_help ? Exit::Done : Exit::Usage;
        }
        return chosen_();
    }

private:
    /// Takes what follows "call MEMBER" out of the command line: arguments of a member may begin with a
    /// hyphen. A --home among them still names the home, unless "--" stands before it.
    std::vector<std::string> take_call_arguments(std::vector<std::string> words)
    {
        auto word = words.begin();
        const auto skip_options = [&] {
            for (; word != words.end() && word->starts_with("-"); ++word) {
                if (*word == "--home" && word + 1 != words.end()) {
                    ++word;
                }
            }
        };
        skip_options();
        if (word == words.end() || *word != "call") {
            return words;
        }
        ++word;
        skip_options();
        if (word == words.end()) {
            return words;
        }
        const auto member = word - words.begin();
        std::vector<std::string> kept(words.begin(), words.begin() + member + 1);
        for (++word; word != words.end(); ++word) {
            if (*word == "--") {
                arguments_.insert(arguments_.end(), word + 1, words.end());
                break;
            }
            const bool names_home = *word == "--home" || word->starts_with("--home=");
            auto& place = names_home ? kept : arguments_;
            place.push_back(*word);
            if (*word == "--home" && word + 1 != words.end()) {
                kept.push_back(*++word);
            }
        }
        return kept;
    }

    CLI::App* command(const std::string& name, const std::string& description, std::function<Exit()> work)
    {
        return subcommand(app_, name, description, std::move(work));
    }

    CLI::App* subcommand(
        CLI::App& parent, const std::string& name, const std::string& description, std::function<Exit()> work)
    {
        auto* sub = parent.add_subcommand(name, description);
        add_home(*sub);
        sub->callback([this, work = std::move(work)] { chosen_ = work; });
        return sub;
    }

    /// A subcommand that has nothing to say beyond done or failed.
    CLI::App* work_command(
        CLI::App& parent, const std::string& name, const std::string& description, std::function<void()> work)
    {
        return subcommand(parent, name, description, [work = std::move(work)] {
            work();
            return Exit::Done;
        });
    }

    /// The same for one that is about one account.
    CLI::App* named_command(
        CLI::App& parent, const std::string& name, const std::string& description, std::function<void()> work)
    {
        auto* sub = work_command(parent, name, description, std::move(work));
        sub->add_option("NAME", name_, "Screen name")->required();
        return sub;
    }

    void add_home(CLI::App& app)
    {
        app.add_option("--home", home_, "Home folder of the server")->type_name("DIR");
    }
    Home home() const { return Home(home_); }

    void add_init()
    {
        auto* sub = command("init", "Make a home: settings, key, database", [this] {
            run_init(home(), init_);
            return Exit::Done;
        });
        sub->add_flag("--demo", init_.demo, "Add a few accounts to try, with printed random passwords");
    }

    void add_run()
    {
        auto* sub =
            command("run", "Run the server in the foreground", [this] { return run_server(home(), run_); });
        sub->add_flag("--events", run_.events, "Print every event as one JSON line");
    }

    void add_status()
    {
        auto* sub = command("status", "What the running server tells of itself; exit code 3 when none runs",
            [this] { return run_status(home(), json_); });
        sub->add_flag("--json", json_, "As JSON");
    }

    void add_check()
    {
        command("check", "Look the home over: settings, files, port, database",
            [this] { return run_check(home()); });
    }

    void add_config()
    {
        auto* config = app_.add_subcommand("config", "List, show and change settings");
        config->require_subcommand(1);
        auto* list =
            subcommand(*config, "list", "All settings, with what each does; secrets are masked", [this] {
                run_config_list(home(), json_);
                return Exit::Done;
            });
        list->add_flag("--json", json_, "As JSON");
        auto* get = subcommand(*config, "get", "One setting", [this] {
            run_config_get(home(), name_);
            return Exit::Done;
        });
        get->add_option("SETTING", name_, "Section/Key, for instance \"General SetUp/ListeningPort\"")
            ->required();
        auto* set = subcommand(*config, "set", "Change one setting", [this] {
            run_config_set(home(), name_, value_);
            return Exit::Done;
        });
        set->add_option("SETTING", name_, "Section/Key")->required();
        set->add_option(
            "VALUE", value_, "The new value; left out for a secret, which is asked for or piped in");
    }

    void add_user()
    {
        auto* user = app_.add_subcommand("user", "Add, list, change accounts; a running server sees it");
        user->require_subcommand(1);
        auto* add = work_command(*user, "add", "Add an account; its name is stored in lower case",
            [this] { run_user_add(home(), new_user_, password_); });
        add->add_option("NAME", new_user_.name, "Screen name")->required();
        add->add_option("--email", new_user_.email, "Mail address");
        add->add_option("--first-name", new_user_.first_name, "First name");
        add->add_option("--last-name", new_user_.last_name, "Last name");
        add_password_source(*add);
        auto* list = work_command(*user, "list", "All accounts", [this] { run_user_list(home(), json_); });
        list->add_flag("--json", json_, "As JSON");
        auto* show =
            named_command(*user, "show", "One account", [this] { run_user_show(home(), name_, json_); });
        show->add_flag("--json", json_, "As JSON");
        auto* password = named_command(*user, "password", "Change the password of an account",
            [this] { run_user_password(home(), name_, password_); });
        add_password_source(*password);
        named_command(
            *user, "enable", "Let an account log on", [this] { run_user_enable(home(), name_, true); });
        named_command(*user, "disable", "Keep an account from logging on",
            [this] { run_user_enable(home(), name_, false); });
    }

    void add_room()
    {
        auto* room = app_.add_subcommand("room", "List, add, delete rooms");
        room->require_subcommand(1);
        auto* list = work_command(*room, "list", "All rooms", [this] { run_room_list(home(), json_); });
        list->add_flag("--json", json_, "As JSON");
        auto* add = work_command(*room, "add", "Add a room; its name is stored in lower case",
            [this] { run_room_add(home(), name_, owner_); });
        add->add_option("NAME", name_, "Name of the room, without #")->required();
        add->add_option("--owner", owner_, "Screen name of the room's owner")->required();
        auto* remove =
            work_command(*room, "delete", "Delete a room", [this] { run_room_delete(home(), name_); });
        remove->add_option("NAME", name_, "Name of the room, without #")->required();
    }

    void add_password_source(CLI::App& app)
    {
        auto* file =
            app.add_option("--password-file", password_.file, "File whose first line is the password")
                ->type_name("FILE");
        app.add_flag("--password-stdin", password_.standard_input, "Read the password from standard input")
            ->excludes(file);
        app.footer("Without these options the password is asked for.");
    }

    void add_call()
    {
        auto* sub =
            command("call", "Call one member of the engine's interface, without starting the server", [this] {
                if (list_) {
                    list_members();
                    return Exit::Done;
                }
                if (name_.empty()) {
                    throw CommandError(Exit::Usage, "name a member, or list them with --list");
                }
                return run_call(home(), name_, arguments_);
            });
        sub->add_flag("--list", list_, "List the members, one signature a line");
        sub->add_option("MEMBER", name_, "Name of the member");
        sub->footer("The member's arguments follow its name, in their order.");
    }

    void add_log()
    {
        auto* sub = command("log", "The newest lines of the activity log, oldest first", [this] {
            run_log(home(), log_);
            return Exit::Done;
        });
        sub->add_option("-n,--lines", log_.lines, "How many lines")
            ->check(CLI::Range(1, 1000000))
            ->capture_default_str();
        sub->add_flag("--json", log_.json, "As JSON");
    }

    CLI::App app_{"The VELTO instant-messaging server", "velto-server"};
    std::function<Exit()> chosen_;
    std::string home_;
    std::string name_;
    std::optional<std::string> value_;
    std::vector<std::string> arguments_;
    std::string owner_;
    NewUser new_user_;
    PasswordSource password_;
    InitOptions init_;
    RunOptions run_;
    LogOptions log_;
    bool json_ = false;
    bool list_ = false;
};

} // namespace

} // namespace velto

int main(int argc, char** argv)
{
    try {
        return static_cast<int>(velto::CommandLine().run(argc, argv));
    } catch (const velto::CommandError& error) {
        std::cerr << "velto-server: " << error.what() << "\n";
        return static_cast<int>(error.code());
    } catch (const std::exception& error) {
        std::cerr << "velto-server: " << error.what() << "\n";
        return static_cast<int>(velto::Exit::Failed);
    }
}
