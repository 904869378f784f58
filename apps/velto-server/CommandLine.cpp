#include "CommandLine.h"

#include "CallCommand.h"
#include "CheckCommand.h"
#include "ConfigCommand.h"
#include "StatusCommand.h"

#include <algorithm>
#include <iostream>
#include <map>

namespace velto {

namespace {

constexpr const char* kFooter = R"(Examples:
  velto-server init --home /srv/velto          make a home with its settings and database
  velto-server run --home /srv/velto           run the server in the foreground; Ctrl-C ends it gracefully
  velto-server status --home /srv/velto        is it running, and how busy is it?
  velto-server COMMAND --help                  more on one command, with examples

Exit codes: 0 done, 1 failed, 2 usage, 3 no server running, 78 configuration.
The home folder is that of --home, else of VELTO_HOME, else the current folder.)";

} // namespace

CommandLine::CommandLine()
{
    app_.footer(kFooter);
    app_.require_subcommand(1);
    add_home(app_);
    add_init();
    add_run();
    add_status();
    add_check();
    add_config();
    add_user();
    add_room();
    add_command();
    add_db();
    add_call();
    add_log();
    add_inactivity();
    add_backup();
    add_version();
}

Exit CommandLine::run(int argc, char** argv)
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

/// Takes what follows "call MEMBER" out of the command line: arguments of a member may begin with a hyphen. A
/// --home among them still names the home, unless "--" stands before it.
std::vector<std::string> CommandLine::take_call_arguments(std::vector<std::string> words)
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

CLI::App& CommandLine::group(
    const std::string& name, const std::string& description, const std::string& examples)
{
    auto* group = app_.add_subcommand(name, description);
    group->require_subcommand(1);
    group->footer(examples);
    return *group;
}

CLI::App* CommandLine::subcommand(CLI::App& parent, const std::string& name, const std::string& description,
    const std::string& examples, std::function<Exit()> work)
{
    auto* sub = parent.add_subcommand(name, description);
    add_home(*sub);
    sub->footer(examples);
    sub->callback([this, work = std::move(work)] { chosen_ = work; });
    return sub;
}

CLI::App* CommandLine::work_command(CLI::App& parent, const std::string& name, const std::string& description,
    const std::string& examples, Work work)
{
    return subcommand(parent, name, description, examples, [work = std::move(work)] {
        work();
        return Exit::Done;
    });
}

CLI::App* CommandLine::named_command(CLI::App& parent, const std::string& name,
    const std::string& description, const std::string& examples, Work work)
{
    auto* sub = work_command(parent, name, description, examples, std::move(work));
    sub->add_option("NAME", name_, "Screen name")->required();
    return sub;
}

/// An empty name would mean the current folder: an unset variable of a script, not what somebody wants.
CLI::Validator CommandLine::is_named()
{
    return {[](const std::string& folder) {
                return folder.empty() ? std::string("the name of the folder is empty") : std::string();
            },
        ""};
}

void CommandLine::add_home(CLI::App& app)
{
    app.add_option("--home", home_, "Home folder of the server")->type_name("DIR")->check(is_named());
}

void CommandLine::add_json(CLI::App& app)
{
    app.add_flag("--json", json_, "As JSON");
}

void CommandLine::add_list_form(CLI::App& app)
{
    auto* names = app.add_flag("--names", names_, "Only the names, one a line");
    app.add_flag("--json", json_, "As JSON")->excludes(names);
}

ListForm CommandLine::list_form() const
{
    if (names_) {
        return ListForm::Names;
    }
    return json_ ? ListForm::Json : ListForm::Table;
}

void CommandLine::add_init()
{
    auto* sub = work_command(app_, "init", "Make a home: settings, key, database", R"(Examples:
  velto-server init --home /srv/velto
  velto-server init --demo --home demo)",
        [this] { run_init(home(), init_); });
    sub->add_flag("--demo", init_.demo, "Add a few accounts to try, with printed random passwords");
}

void CommandLine::add_run()
{
    auto* sub = subcommand(app_, "run", "Run the server in the foreground", R"(Examples:
  velto-server run --home /srv/velto           Ctrl-C or SIGTERM ends it gracefully, a second one at once
  velto-server run --log-format json 2>> velto.log
  velto-server run --events | jq .event        every event as one JSON line on standard output
  velto-server run --trace-sql 2> velto.log    when something is wrong: what the database is asked)",
        [this] { return run_server(home(), run_); });
    sub->add_flag("--events", run_.events, "Print every event as one JSON line");
    sub->add_flag("--trace-sql", run_.trace_sql,
        "Log each SQL statement with its values and its time; passwords and texts of messages are not shown");
    const std::map<std::string, LogFormat> formats{
        {"text", LogFormat::Text}, {"json", LogFormat::Json}, {"journal", LogFormat::Journal}};
    sub->add_option("--log-format", run_.log_format,
           "Lines on standard error: text, json (one object a line) or journal (priorities before the "
           "lines); "
           "left out, it is journal where the journal listens, else text")
        ->type_name("FORMAT")
        ->transform(CLI::CheckedTransformer(formats, CLI::ignore_case));
}

void CommandLine::add_status()
{
    auto* sub = subcommand(app_, "status", "What the running server tells of itself", R"(Examples:
  velto-server status                          exit code 3 when no server runs on the home
  velto-server status --json | jq .users_on_line)",
        [this] { return run_status(home(), json_); });
    add_json(*sub);
}

void CommandLine::add_check()
{
    auto* sub = subcommand(app_, "check", "Look the home over: settings, files, port, database", R"(Examples:
  velto-server check --home /srv/velto         exit code 78 when something must be mended
  velto-server check --json | jq -r '.findings[].text')",
        [this] { return run_check(home(), json_); });
    add_json(*sub);
}

void CommandLine::add_config()
{
    auto& config = group("config", "List, show and change settings", R"(Examples:
  velto-server config list
  velto-server config set "General SetUp/ListeningPort" 2002)");
    auto* list = work_command(config, "list", "All settings, with what each does; secrets are masked",
        R"(Examples:
  velto-server config list
  velto-server config list --json | jq '.[].key')",
        [this] { run_config_list(home(), list_form()); });
    add_list_form(*list);
    auto* get = work_command(config, "get", "One setting", R"(Examples:
  velto-server config get "General SetUp/ListeningPort")",
        [this] { run_config_get(home(), name_); });
    get->add_option("SETTING", name_, "Section/Key, for instance \"General SetUp/ListeningPort\"")
        ->required();
    auto* set = work_command(config, "set", "Change one setting", R"(Examples:
  velto-server config set "General SetUp/ListeningPort" 2002
  velto-server config set "DB SetUp/dbPassword" < secret.txt)",
        [this] { run_config_set(home(), name_, value_); });
    set->add_option("SETTING", name_, "Section/Key")->required();
    set->add_option("VALUE", value_, "The new value; left out for a secret, which is asked for or piped in");
}

void CommandLine::add_call()
{
    auto* sub =
        subcommand(app_, "call", "Call one member of the engine's interface, without starting the server",
            R"(The member's arguments follow its name, in their order.
Examples:
  velto-server call --list                     all members, one signature a line
  velto-server call get_ListeningPort
  velto-server call set_LogOlderThan 90)",
            [this] {
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
}

void CommandLine::add_log()
{
    auto* sub = work_command(app_, "log", "The newest lines of the activity log, oldest first", R"(Examples:
  velto-server log -n 50
  velto-server log --json | jq -r '.[]')",
        [this] {
            log_.json = json_;
            run_log(home(), log_);
        });
    sub->add_option("-n,--lines", log_.lines, "How many lines")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
    add_json(*sub);
}

void CommandLine::add_inactivity()
{
    auto* sub =
        work_command(app_, "inactivity", "Accounts that are not used: who is to be warned or disabled",
            R"(The job itself runs in the server, once a day where DailyJobsOncePerDay is on.
Examples:
  velto-server inactivity --dry-run
  velto-server inactivity --dry-run --json | jq -r '.users[].user'
  velto-server inactivity --apply              disable now whom the server would not)",
            [this] {
                inactivity_.json = json_;
                run_inactivity(home(), inactivity_);
            });
    auto* dry_run = sub->add_flag("--dry-run", inactivity_.dry_run, "Only tell; change and mail nothing");
    add_json(*sub);
    auto* apply = sub->add_flag("--apply", inactivity_.apply, "Disable now, and mail those who are");
    apply->excludes(dry_run)->excludes(sub->get_option("--json"));
    sub->add_flag("--yes", inactivity_.yes, "Do not ask")->needs(apply);
}

void CommandLine::add_backup()
{
    auto* sub = work_command(app_, "backup",
        "One file from which the home can be restored, also while the server runs",
        R"(The file is a tar archive with settings, key and database; keep it where nobody else reads it.
Examples:
  velto-server backup /var/backups/velto.tar
  velto-server backup --force /var/backups/velto.tar
  tar -tvf /var/backups/velto.tar              what is in it)",
        [this] { run_backup(home(), backup_); });
    sub->add_option("FILE", backup_.file, "The backup")->required();
    sub->add_flag("--force", backup_.force, "Replace the file when it is there");
}

void CommandLine::add_version()
{
    work_command(app_, "version", "Print the version", R"(Examples:
  velto-server version)",
        [] { std::cout << "velto-server " VELTO_VERSION "\n"; });
}

} // namespace velto
