// The objects of the store on a database in memory, with settings in a folder of their own.
#pragma once

#include "config/Deployment.h"
#include "config/IniFile.h"
#include "config/Settings.h"
#include "helpers/MessageParser.h"
#include "store/Accounts.h"
#include "store/Counters.h"
#include "store/Database.h"
#include "store/Directory.h"
#include "support/DatabaseServer.h"
#include "support/ManualClock.h"
#include "support/MemoryDatabase.h"
#include "support/RecordingJournal.h"
#include "support/Secrets.h"
#include "support/TemporaryFolder.h"
#include "support/WatchedConnection.h"

#include <memory>
#include <string>
#include <vector>

namespace qz::test {

struct MemoryStore {
    MemoryStore()
    {
        database.BuildConnectionString();
        journal.lines.clear();
    }

    std::int64_t add(const platform::Table& table, Fields fields) { return add_row(database, table, fields); }
    /// One column of a whole table, in the order of its keys.
    std::vector<std::string> column(const platform::Table& table, const std::string& name)
    {
        std::vector<std::string> values;
        for (const auto& row : rows_of(database, table)) {
            values.push_back(row[name].text());
        }
        return values;
    }

    ManualClock clock;
    int queries = 0; // that the database was asked
    StatementWatch watch{[this](const std::string& sql) {
        queries += sql.starts_with("SELECT") ? 1 : 0;
    }};
    TemporaryFolder folder;
    RecordingJournal journal;
    Secrets secrets{folder.path()};
    config::IniFile ini{folder / "VELTO_Server.ini"};
    config::Settings settings{ini, secrets.cipher, journal};
    config::Deployment deployment{ini};
    helpers::MessageParser parser{secrets.crypto};
    store::Database database{[this] {
                                 platform::ConnectionOptions options;
                                 options.database_file = ":memory:";
                                 options.overrides = store::all_overrides();
                                 return std::make_unique<WatchedConnection>(
                                     make_test_connection(options, clock), watch);
                             },
        settings, deployment, journal};
    store::Counters counters{database, journal};
    store::Directory directory{database, counters, journal};
    store::Accounts accounts{database, directory, parser, secrets.cipher, journal};
};

} // namespace qz::test
