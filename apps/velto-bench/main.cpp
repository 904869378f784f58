// velto-bench: loads a server of its own and tells what it costs.

#include "Relay.h"
#include "Suite.h"
#include "common/Exit.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <fstream>
#include <iostream>

namespace {

using namespace velto::bench;

constexpr const char* kFooter = R"(Examples:
  velto-bench run                              measure everything, in a few minutes
  velto-bench run messages latency             two of the measurements
  velto-bench run --json figures.json          also write the figures as JSON
  velto-bench relay --port 9000                the bare relay that figures are compared with

Exit codes: 0 done, 1 failed, 2 usage.)";

void write_json(const std::string& path, const Report& report, bool complete)
{
    std::ofstream file(path);
    auto figures = report.json();
    figures["complete"] = complete;
    file << figures.dump(2) << "\n";
    if (!file.flush()) {
        throw std::runtime_error("the figures cannot be written to " + path);
    }
}

void add_run(CLI::App& app, SuiteOptions& options, std::string& json)
{
    auto* run = app.add_subcommand("run", "Measure a server, which is started on a scratch home");
    run->footer("Examples:\n  velto-bench run\n  velto-bench run messages --seconds 2 --json figures.json");
    run->add_option("MEASUREMENT", options.only, "What to measure; everything when none is named")
        ->check(CLI::IsMember(Suite::names()));
    run->add_option("--server", options.server, "The program velto-server")
        ->check(CLI::ExistingFile)
        ->capture_default_str();
    run->add_option(
           "--scratch", options.scratch, "Folder for the scratch home; new or empty, removed in the end")
        ->capture_default_str();
    run->add_option("--seconds", options.seconds, "Seconds for which messages are exchanged in a round")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
    run->add_option("--json", json, "File for the figures as JSON");
    run->callback([&] {
        Suite suite(options);
        const bool complete = suite.run();
        suite.report().print();
        if (!json.empty()) {
            write_json(json, suite.report(), complete);
        }
        if (!complete) {
            throw std::runtime_error("not everything was measured; the lines above say what and why");
        }
    });
}

int run_command_line(int argc, char** argv)
{
    CLI::App app("Loads a VELTO server and tells what it costs");
    app.footer(kFooter);
    app.require_subcommand(1);
    SuiteOptions options;
    options.server = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "velto-server";
    options.scratch = std::filesystem::temp_directory_path() / ("velto-bench-" + std::to_string(getpid()));
    std::string json;
    add_run(app, options, json);
    std::uint16_t port = 0;
    auto* relay = app.add_subcommand("relay", "Pass messages between clients and keep nothing");
    relay->footer("Example:\n  velto-bench relay --port 9000");
    relay->add_option("--port", port, "Port on the loopback interface")
        ->required()
        ->check(CLI::Range(1, 65535));
    relay->callback([&] { run_relay(port); });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(velto::Exit::Usage);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run_command_line(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "velto-bench: " << error.what() << "\n";
        return static_cast<int>(velto::Exit::Failed);
    }
}
