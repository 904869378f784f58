// The part of the command line that is about accounts, rooms and the table of commands.

#include "CommandLine.h"
#include "DbCommand.h"
#include "RoomCommand.h"
#include "ServerCommand.h"

namespace velto {

void CommandLine::add_user()
{
    auto& user = group("user", "Add, list, change accounts; a running server sees it", R"(Examples:
  velto-server user add anna
  velto-server user list)");
    auto* add = work_command(user, "add", "Add an account; its name is stored in lower case",
        R"(Without a --password option the password is asked for.
Examples:
  velto-server user add anna --email anna@example.org
  velto-server user add ben --first-name Ben --password-file secret.txt)",
        [this] { run_user_add(home(), new_user_, password_); });
    add->add_option("NAME", new_user_.name, "Screen name")->required();
    add->add_option("--email", new_user_.email, "Mail address");
    add->add_option("--first-name", new_user_.first_name, "First name");
    add->add_option("--last-name", new_user_.last_name, "Last name");
    add_password_source(*add);
    auto* list = work_command(user, "list", "All accounts", R"(Examples:
  velto-server user list
  velto-server user list --json | jq -r '.[] | select(.enabled | not) | .name')",
        [this] { run_user_list(home(), list_form()); });
    add_list_form(*list);
    auto* show = named_command(user, "show", "One account", R"(Examples:
  velto-server user show anna)",
        [this] { run_user_show(home(), name_, json_); });
    add_json(*show);
    add_user_changes(user);
}

void CommandLine::add_user_changes(CLI::App& user)
{
    auto* password = named_command(user, "password", "Change the password of an account",
        R"(Without a --password option the password is asked for.
Examples:
  velto-server user password anna
  pwgen 12 1 | velto-server user password anna --password-stdin)",
        [this] { run_user_password(home(), name_, password_); });
    add_password_source(*password);
    named_command(user, "enable", "Let an account log on", R"(Examples:
  velto-server user enable anna)",
        [this] { run_user_enable(home(), name_, true); });
    named_command(user, "disable", "Keep an account from logging on",
        R"(Who is on line stays so until he is logged off.
Examples:
  velto-server user disable anna
  velto-server command logoff anna)",
        [this] { run_user_enable(home(), name_, false); });
}

void CommandLine::add_password_source(CLI::App& app)
{
    auto* file = app.add_option("--password-file", password_.file, "File whose first line is the password")
                     ->type_name("FILE");
    app.add_flag("--password-stdin", password_.standard_input, "Read the password from standard input")
        ->excludes(file);
}

void CommandLine::add_room()
{
    auto& room = group("room", "List, add, delete rooms", R"(Examples:
  velto-server room add lobby --owner anna
  velto-server room list)");
    auto* list = work_command(room, "list", "All rooms", R"(Examples:
  velto-server room list --json)",
        [this] { run_room_list(home(), list_form()); });
    add_list_form(*list);
    auto* add = work_command(room, "add", "Add a room; its name is stored in lower case", R"(Examples:
  velto-server room add lobby --owner anna)",
        [this] { run_room_add(home(), name_, owner_); });
    add->add_option("NAME", name_, "Name of the room, without #")->required();
    add->add_option("--owner", owner_, "Screen name of the room's owner")->required();
    auto* remove = work_command(room, "delete", "Delete a room", R"(Examples:
  velto-server room delete lobby)",
        [this] { run_room_delete(home(), name_); });
    remove->add_option("NAME", name_, "Name of the room, without #")->required();
}

void CommandLine::add_command()
{
    auto& command = group("command", "Tell the running server what to do", R"(Examples:
  velto-server command message "Maintenance at noon"
  velto-server command shutdown)");
    work_command(command, "shutdown", "Close all connections and end the server", R"(Examples:
  velto-server command shutdown                exit code 3 when no server runs on the home)",
        [this] { run_command_shutdown(home()); });
    work_command(command, "policy", "Send the policy to every client", R"(Examples:
  velto-server config set Policy/AllowFileTransfer False && velto-server command policy)",
        [this] { run_command_policy(home()); });
    work_command(command, "lastversion", "Tell every client which version is the latest", R"(Examples:
  velto-server command lastversion)",
        [this] { run_command_last_version(home()); });
    work_command(command, "closeall", "Close all connections", R"(Examples:
  velto-server command closeall)",
        [this] { run_command_close_all(home()); });
    auto* remote = work_command(command, "remotecommand", "Pass a command to every client", R"(Examples:
  velto-server command remotecommand refresh "New addresses were added")",
        [this] { run_command_remote(home(), name_, text_); });
    remote->add_option("COMMAND", name_, "What the clients are to do")->required();
    remote->add_option("TEXT", text_, "What goes with it");
    auto* message = work_command(command, "message", "Show a text to every client", R"(Examples:
  velto-server command message "Maintenance at noon")",
        [this] { run_command_message(home(), text_); });
    message->add_option("TEXT", text_, "The text")->required();
    named_command(command, "logoff", "Log one user off", R"(Examples:
  velto-server command logoff anna)",
        [this] { run_command_log_off(home(), name_); });
}

void CommandLine::add_db()
{
    auto& db = group("db", "Make, look at, and move the database", R"(Examples:
  velto-server db init
  velto-server db status)");
    work_command(db, "init", "Make the tables that are missing", R"(What is there stays.
Examples:
  velto-server db init --home /srv/velto)",
        [this] { run_db_init(home()); });
    auto* status = subcommand(db, "status", "What is connected, its latency and the version of its tables",
        R"(Examples:
  velto-server db status
  velto-server db status --json | jq .latency_ms)",
        [this] { return run_db_status(home(), json_); });
    add_json(*status);
    auto* copy = work_command(db, "copy", "Copy everything from one home's database to another's",
        R"(Both homes need the same key file. Counts and checksums are compared in the end.
Examples:
  velto-server db copy --from /srv/velto --to /srv/velto-postgresql)",
        [this] { run_db_copy(copy_); });
    copy->add_option("--from", copy_.from, "Home whose rows are copied")
        ->required()
        ->type_name("DIR")
        ->check(is_named());
    copy->add_option("--to", copy_.to, "Home that gets them")
        ->required()
        ->type_name("DIR")
        ->check(is_named());
    copy->add_flag("--replace", copy_.replace, "Delete first what the target holds");
}

} // namespace velto
