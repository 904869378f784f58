// What the store costs on a real home: a line of the activity log, and the question whether the users have
// changed.

#include "base/Journal.h"
#include "config/IniFile.h"
#include "config/KeyFile.h"
#include "config/Settings.h"
#include "helpers/MessageParser.h"
#include "helpers/SettingsCipher.h"
#include "platform/asio/AsioMachine.h"
#include "store/ActivityLog.h"
#include "store/Counters.h"
#include "store/Database.h"
#include "store/Directory.h"
#include "store/Overrides.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include <unistd.h>

namespace {

/// A failure makes every figure worthless.
class StrictJournal final : public qz::Journal {
public:
    void Log(const std::string& /*message*/, const std::string& /*name*/, const std::string& /*ip*/) override
    {
    }
    void log_own(const std::string& /*message*/) override { }
    void ReportError(
        std::string_view routine, const qz::EngineError& error, const std::string& /*address*/) override
    {
        std::cerr << routine << ": " << error.description() << "\n";
        std::abort();
    }
    void raise_error(
        std::string_view routine, const qz::EngineError& error, const std::string& address) override
    {
        ReportError(routine, error, address);
    }
};

/// A home in a folder of its own, gone with the object.
class Folder {
public:
    Folder() { std::filesystem::create_directories(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(path); }

    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("velto-bench-store-" + std::to_string(getpid()));
};

struct Store {
    Store() { database.BuildConnectionString(); }

    Folder folder;
    qz::platform::AsioMachine machine{folder.path};
    StrictJournal journal;
    qz::config::IniFile ini{folder.path / "VELTO_Server.ini"};
    qz::config::KeyFile key{folder.path / "VELTO_Server.key", machine.crypto()};
    qz::helpers::SettingsCipher cipher{machine.crypto(), key};
    qz::config::Settings settings{ini, cipher, journal};
    qz::config::Deployment deployment{ini};
    qz::helpers::MessageParser parser{machine.crypto()};
    qz::store::Database database{[this] {
                                     return machine.create_connection(
                                         {qz::platform::Provider::Embedded, qz::platform::Durability::Process,
                                             folder.path / "VELTO.db", qz::store::all_overrides()});
                                 },
        settings, deployment, journal};
    qz::store::ActivityLog log{database, settings, parser, journal};
    qz::store::Counters counters{database, journal};
    qz::store::Directory directory{database, counters, journal};
};

/// Write2dbLog for 5,000 users in no order, a hundred lines a turn.
void write_log_lines(benchmark::State& state)
{
    Store store;
    unsigned number = 0;
    while (state.KeepRunning()) {
        const auto user = "user" + std::to_string(number * 7919U % 5'000U);
        store.log.Write2dbLog(
            "LogOn successfully for " + user + " from 192.168.10.20", user, "192.168.10.20");
        if (++number % 100 == 0) {
            store.database.turn_ended();
        }
    }
    store.database.turn_ended();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(write_log_lines)->UseRealTime()->Iterations(200'000);

/// SetUsers when nobody has changed one of 10,000 users.
void reload_unchanged_users(benchmark::State& state)
{
    Store store;
    for (int i = 0; i < 10'000; ++i) {
        store.database.run(qz::store::statements::kInsertUser, "user" + std::to_string(i),
            "{v1}0123456789abcdef", "First", "Last", "user@example.org");
    }
    store.database.turn_ended();
    store.directory.SetUsers();
    while (state.KeepRunning()) {
        store.directory.SetUsers();
    }
    state.counters["users"] = static_cast<double>(store.directory.users().size());
}
BENCHMARK(reload_unchanged_users);

/// SetUsers when another program may have changed one of 10,000 users.
void load_all_users(benchmark::State& state)
{
    Store store;
    int number = 0;
    const auto add_user = [&] {
        store.database.run(qz::store::statements::kInsertUser, "user" + std::to_string(++number),
            "#0123456789abcdef", "First", "Last", "user@example.org");
    };
    while (number < 10'000) {
        add_user();
    }
    while (state.KeepRunning()) {
        state.PauseTiming();
        add_user();
        state.ResumeTiming();
        store.directory.SetUsers();
    }
}
BENCHMARK(load_all_users)->Unit(benchmark::kMillisecond);

} // namespace
