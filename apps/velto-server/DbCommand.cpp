#include "DbCommand.h"

#include "HomeStore.h"
#include "base/Text.h"
#include "common/Console.h"
#include "store/Statements.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>

namespace velto {

namespace {

/// Milliseconds for one short question and its answer: the middle one of some.
double latency(HomeStore& store)
{
    using Clock = std::chrono::steady_clock;
    std::array<double, 11> times{};
    for (auto& time : times) {
        const auto begin = Clock::now();
        store.database.query(qz::store::statements::kProbe);
        time = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    }
    std::sort(times.begin(), times.end());
    return std::round(times[times.size() / 2] * 1000) / 1000;
}

} // namespace

void run_db_init(const Home& home)
{
    home.require_initialised();
    HomeStore store(home);
    auto& tables = store.database.maintenance();
    const auto before = tables.schema_version();
    tables.make_schema();
    std::cout << qz::printable(store.database.description()) << "\n"
              << (before == tables.current_schema_version() ? "The tables were there already"
                         : before == 0                      ? "The tables are made"
                                                            : "The tables are brought up to date")
              << ": schema version " << tables.current_schema_version() << "\n";
}

Exit run_db_status(const Home& home, bool json)
{
    home.require_initialised();
    HomeStore store(home, Access::Read);
    const auto version = store.database.maintenance().schema_version();
    const auto current = store.database.maintenance().current_schema_version();
    const bool usable = store.database.ConnectionTest() == store.database.get_ConnectionOK();
    if (json) {
        nlohmann::ordered_json status{
            {"provider", store.deployment.provider() == qz::platform::Provider::Odbc ? "odbc" : "embedded"},
            {"database", store.database.description()}, {"schema_version", version},
            {"current_schema_version", current}, {"usable", usable}};
        if (usable) {
            status["latency_ms"] = latency(store);
        }
        print_json(status);
    } else {
        std::cout << "Database        " << qz::printable(store.database.description()) << "\n"
                  << "Schema version  " << version << " (this program's is " << current << ")\n";
        if (usable) {
            std::cout << "Latency         " << latency(store) << " ms\n";
        }
    }
    if (version == current && usable) {
        return Exit::Done;
    }
    std::cerr << "velto-server: the tables are " << (usable ? "not those of this version" : "missing")
              << "; make them with: velto-server db init --home " << home.folder().string() << "\n";
    return Exit::Configuration;
}

} // namespace velto
