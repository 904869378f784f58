// What the objects of the store room need: an open database file with its real tables, and settings.
#pragma once

#include "config/Deployment.h"
#include "helpers/MessageParser.h"
#include "store/Counters.h"
#include "store/Database.h"
#include "store/Directory.h"
#include "support/DatabaseServer.h"
#include "support/ForeignProgram.h"
#include "support/ManualClock.h"
#include "support/RecordingJournal.h"
#include "support/Secrets.h"
#include "support/TemporaryFolder.h"
#include "support/WatchedConnection.h"

#include <memory>
#include <string>
#include <vector>

namespace qz::test {

struct TestStore {
    TestStore() { database.BuildConnectionString(); }
    ~TestStore() { watch = nullptr; } // the variables of the test, which it looks at, are gone

    /// The engine's changes become visible to the foreign program, which shares its database file.
    ForeignProgram& foreign()
    {
        database.turn_ended();
        return foreign_program;
    }
    /// "Routine number" of every failure since the last call.
    std::vector<std::string> failures()
    {
        std::vector<std::string> texts;
        for (const auto& failure : std::exchange(journal.failures, {})) {
            texts.push_back(failure.routine + " " + std::to_string(failure.number));
        }
        return texts;
    }

    ManualClock clock;
    TemporaryFolder folder;
    RecordingJournal journal;
    Secrets secrets{folder.path()};
    helpers::MessageParser parser{secrets.crypto};
    config::IniFile ini{folder / "VELTO_Server.ini"};
    config::Settings settings{ini, secrets.cipher, journal};
    config::Deployment deployment{ini};
    ForeignProgram foreign_program{folder / "VELTO.db", clock};
    StatementWatch watch;
    int connections_made = 0;
    store::Database database{[this] { return make_connection(); }, settings, deployment, journal};
    store::Counters counters{database, journal};
    store::Directory directory{database, counters, journal};

private:
    std::unique_ptr<platform::Connection> make_connection()
    {
        ++connections_made;
        platform::ConnectionOptions options;
        options.database_file = folder / "VELTO.db";
        options.overrides = store::all_overrides();
        return std::make_unique<WatchedConnection>(make_test_connection(options, clock), watch);
    }
};

} // namespace qz::test
