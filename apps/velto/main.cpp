// velto: the client for terminals and scripts.

#include "ChatCommand.h"
#include "FileCommands.h"
#include "ListCommands.h"
#include "ListenCommand.h"
#include "LogOnOptions.h"
#include "SendCommand.h"
#include "Version.h"
#include "common/Exit.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>

namespace velto {

namespace {

constexpr const char* kExamples = R"(Without a command, velto is a chat; /help lists what can be typed there.

Examples:
  velto --user ada                                       talk
  velto --user ada --server im.example.org:2001
  velto send --user ada ben "Lunch at 12?"               waits until ben's client has it
  uptime | velto send --user robot --password-file pw '#lobby' -
  velto listen --user ada --json --count 1               the next message, as one JSON line
  velto send-file --user ada ben report.pdf              directly, from machine to machine
  velto receive-file --user ben --from ada --once
  velto who --user ada --server im.example.org:2001      everybody on line
  velto rooms --user ada --json

Exit codes: 0 done, 1 failed or refused, 2 usage, 3 server not reachable,
4 accepted by the server but not confirmed by the recipient in time.

VELTO_SERVER, VELTO_USER and VELTO_PASSWORD_FILE stand for the options of these names. A name is logged on
once at a time: a command that logs on with the name of a running client ends that client's connection, so
give scripts a name of their own.)";

std::string environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string{} : value;
}

/// The command line, and the one command that it chose.
class CommandLine {
public:
    CommandLine()
    {
        if (const auto server = environment("VELTO_SERVER"); !server.empty()) {
            log_on_.server = server;
        }
        log_on_.user = environment("VELTO_USER");
        log_on_.password.file = environment("VELTO_PASSWORD_FILE");
        app_.footer(kExamples);
        app_.require_subcommand(0, 1);
        add_log_on(app_);
        add_ports(app_, chat_.file_ports);
        app_.add_option("--into", chat_.into, "Folder for files in a chat; ~/Downloads, or the current one")
            ->check(CLI::ExistingDirectory)
            ->type_name("DIR");
        add_send();
        add_listen();
        add_files();
        add_lists();
        app_.add_subcommand("version", "Print the version")->callback([this] {
            chosen_ = [] {
                std::cout << "velto " << kVersion << "\n";
                return Exit::Done;
            };
        });
    }

    Exit run(int argc, char** argv)
    {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            const bool asked_for_help = error.get_exit_code() == 0;
            app_.exit(error);
            return asked_for_help ? Exit::Done : Exit::Usage;
        }
        if (log_on_.password.standard_input) {
            log_on_.password.file.clear(); // of the environment
        }
        return chosen_();
    }

private:
    CLI::App* command(const std::string& name, const std::string& description, const std::string& footer,
        std::function<Exit()> work)
    {
        auto* sub = app_.add_subcommand(name, description);
        add_log_on(*sub);
        sub->footer(footer);
        sub->callback([this, work = std::move(work)] { chosen_ = work; });
        return sub;
    }

    void add_log_on(CLI::App& app)
    {
        app.add_option("--server", log_on_.server,
               "The server; 127.0.0.1:2001 when neither this nor VELTO_SERVER says")
            ->type_name("HOST:PORT");
        app.add_option("--user", log_on_.user, "Screen name to log on with; else VELTO_USER")
            ->type_name("NAME");
        auto* file = app.add_option("--password-file", log_on_.password.file,
                            "File whose first line is the password; else VELTO_PASSWORD_FILE")
                         ->type_name("FILE");
        app.add_flag("--password-stdin", log_on_.password.standard_input,
               "Read the password from the first line of standard input")
            ->excludes(file);
    }

    void add_send()
    {
        auto* sub = command("send", "Send one message and wait until its recipient has it",
            "Examples:\n"
            "  velto send --user ada ben \"Lunch at 12?\"\n"
            "  velto send --user robot --password-file pw --timeout 300 ben - < report.txt\n"
            "  velto send --user ada --no-wait '#lobby' \"Good morning\"\n\n"
            "Exit codes: 0 delivered (with --no-wait, or to a room: accepted by the server), 1 refused,\n"
            "3 server not reachable, 4 accepted but not confirmed in time. The server goes on trying to "
            "deliver\n"
            "an accepted message until it expires.",
            [this] { return run_send(log_on_, send_); });
        sub->add_option("TO", send_.to, "A screen name, or # and the name of a room (quote the #)")
            ->required();
        sub->add_option("TEXT", send_.text, "The message; - or nothing for standard input");
        sub->add_option("--timeout", send_.timeout, "How long to wait for the recipient's confirmation")
            ->type_name("SECONDS")
            ->check(CLI::Range(1, 1000000))
            ->capture_default_str();
        sub->add_flag("--no-wait", send_.no_wait, "Do not wait for the recipient, only for the server");
        sub->add_flag("-q,--quiet", send_.quiet, "Print nothing when it worked");
    }

    void add_listen()
    {
        auto* sub = command("listen", "Print what comes, one line each, and confirm messages",
            "Examples:\n"
            "  velto listen --user ada\n"
            "  velto listen --user robot --password-file pw --json | while read -r event; do ...; done\n"
            "  velto listen --user robot --password-file pw --json --count 1 --timeout 60\n\n"
            "With --json, \"event\" is message, receipt, typing, status, notice, remote_command, "
            "file_transfer or\n"
            "screen_transfer. Exit codes: 0 done, 1 fewer than --count messages came in time, 3 not "
            "reachable.",
            [this] { return run_listen(log_on_, listen_); });
        sub->add_flag("--json", listen_.json, "One JSON object a line");
        sub->add_option("--count", listen_.count, "End after so many messages")
            ->type_name("N")
            ->check(CLI::Range(1, 1000000000));
        sub->add_option("--timeout", listen_.timeout, "End after so many seconds")
            ->type_name("SECONDS")
            ->check(CLI::Range(1, 1000000000));
    }

    void add_files()
    {
        auto* send = command("send-file", "Offer a file to somebody on line, and wait until it has arrived",
            "Examples:\n"
            "  velto send-file --user ada ben report.pdf\n"
            "  velto send-file --user robot --password-file pw --timeout 60 --quiet ben backup.tar\n\n"
            "The file goes directly from this machine to the other one, enciphered. Sending it again after a "
            "break "
            "goes on\n"
            "from there. Exit codes: 0 it has arrived whole, 1 it has not (the reason is told), 3 server not "
            "reachable.",
            [this] { return run_send_file(log_on_, send_file_); });
        send->add_option("NAME", send_file_.to, "Who is to get it")->required();
        send->add_option("FILE", send_file_.file, "An ordinary file")->required();
        send->add_option("--timeout", send_file_.timeout, "How long to wait until the file is accepted")
            ->type_name("SECONDS")
            ->check(CLI::Range(1, 600))
            ->capture_default_str();
        add_ports(*send, send_file_.ports);
        send->add_flag("-q,--quiet", send_file_.quiet, "Print nothing when it worked, and no progress");

        auto* receive = command("receive-file", "Accept the files that others offer, and print their paths",
            "Examples:\n"
            "  velto receive-file --user robot --password-file pw --from ada --into inbox --once\n"
            "  velto receive-file --user robot --password-file pw --from ada | while read -r path; do ...; "
            "done\n\n"
            "A file never replaces another one: the second report.pdf is \"report (2).pdf\". Without --from, "
            "anybody on the\n"
            "server can fill the disk. Exit codes: 0 done, 1 with --once: the file has not arrived, 3 server "
            "not "
            "reachable.",
            [this] { return run_receive_file(log_on_, receive_file_); });
        receive->add_option("--from", receive_file_.from, "Refuse the files of everybody else")
            ->type_name("NAME");
        receive->add_option("--into", receive_file_.into, "Folder for the files")
            ->check(CLI::ExistingDirectory)
            ->type_name("DIR")
            ->capture_default_str();
        receive->add_flag("--once", receive_file_.once, "End after the first file");
        receive->add_option("--timeout", receive_file_.timeout, "End when no file is under way for so long")
            ->type_name("SECONDS")
            ->check(CLI::Range(1, 1000000000));
        add_ports(*receive, receive_file_.ports);
        receive->add_flag("-q,--quiet", receive_file_.quiet, "Print nothing but the paths, and no progress");
    }

    static void add_ports(CLI::App& app, std::string& ports)
    {
        app.add_option("--file-ports", ports, "Ports on which files may come in; any, when not given")
            ->type_name("FIRST-LAST");
    }

    void add_lists()
    {
        auto* who = command("who", "Everybody on line, with their status",
            "Example:\n  velto who --user ada --json", [this] { return run_who(log_on_, json_); });
        who->add_flag("--json", json_, "As JSON");
        auto* rooms = command("rooms", "All rooms, with their owner and how many are in them",
            "Example:\n  velto rooms --user ada", [this] { return run_rooms(log_on_, json_); });
        rooms->add_flag("--json", json_, "As JSON");
    }

    CLI::App app_{"The VELTO client for terminals and scripts", "velto"};
    std::function<Exit()> chosen_ = [this] {
        return run_chat(log_on_, chat_);
    };
    LogOnOptions log_on_;
    ChatOptions chat_;
    SendOptions send_;
    ListenOptions listen_;
    SendFileOptions send_file_;
    ReceiveFileOptions receive_file_;
    bool json_ = false;
};

} // namespace

} // namespace velto

int main(int argc, char** argv)
{
    // A password is the first line of standard input at most; what follows it is left to those who come
    // later.
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    try {
        return static_cast<int>(velto::CommandLine().run(argc, argv));
    } catch (const velto::CommandError& error) {
        std::cerr << "velto: " << error.what() << "\n";
        return static_cast<int>(error.code());
    } catch (const std::exception& error) {
        std::cerr << "velto: " << error.what() << "\n";
        return static_cast<int>(velto::Exit::Failed);
    }
}
