// A turn that took its server longer than the engine waits.
#include "base/EngineError.h"
#include "platform/odbc/OdbcSession.h"
#include "store/Overrides.h"
#include "support/DatabaseServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using namespace qz;
using namespace qz::platform;
using namespace qz::store::tables;

namespace {

struct Delay {
    const char* what;
    std::vector<std::string> begin;
};

const std::string kPostgreSqlTrigger =
    "CREATE CONSTRAINT TRIGGER slow AFTER INSERT ON messages DEFERRABLE INITIALLY ";

std::string slow_function(const std::string& body)
{
    return "CREATE FUNCTION slow() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN " + body
        + " RETURN NULL; END $$";
}

std::vector<Delay> delays()
{
    const std::string provider = std::getenv("VELTO_TEST_PROVIDER");
    if (provider == "mariadb") {
        return {{"INSERT", {"CREATE TRIGGER slow AFTER INSERT ON messages FOR EACH ROW DO SLEEP(3)"}}};
    }
    const auto sleeps = slow_function("PERFORM pg_sleep(3);");
    const auto deaf = slow_function("BEGIN PERFORM pg_sleep(3); EXCEPTION WHEN query_canceled THEN "
                                    "PERFORM pg_sleep(3); END;");
    return {{"INSERT", {sleeps, kPostgreSqlTrigger + "IMMEDIATE FOR EACH ROW EXECUTE FUNCTION slow()"}},
        {"COMMIT", {sleeps, kPostgreSqlTrigger + "DEFERRED FOR EACH ROW EXECUTE FUNCTION slow()"}},
        {"COMMIT that cannot be cancelled",
            {deaf, kPostgreSqlTrigger + "DEFERRED FOR EACH ROW EXECUTE FUNCTION slow()"}}};
}

class LostTurnTest : public testing::Test {
protected:
    LostTurnTest()
    {
        times.answer = 500ms;
        times.first_retry = 10ms;
        ConnectionOptions options;
        options.overrides = store::all_overrides();
        connection = test::make_server_connection(*test::server_under_test(), options, times, true);
        connection->Open("");
        control = std::make_unique<OdbcSession>(test::server_under_test()->connection_string());
        if (server() == "MariaDB") {
            control->run({{"SET SESSION lock_wait_timeout = 20"}}); // by itself a day
        }
    }
    ~LostTurnTest() override
    {
        if (server() != "Microsoft SQL Server") {
            remove_delay();
        }
    }
    std::string server() const { return control->server_name(); }
    bool is_postgresql() const { return server() == "PostgreSQL"; }
    void lose_turn()
    {
        EXPECT_THROW(connection->commit(), EngineError);
        EXPECT_EQ(connection->State(), ConnectionState::Closed);
    }
    bool comes_back()
    {
        return in_time([&] {
            connection->commit();
            return connection->State() == ConnectionState::Open;
        });
    }
    /// Reserves keys, which some servers do with rows.
    void write_once()
    {
        connection->add_row(kMessages, {{"MsgID"}, {7.0}});
        connection->commit();
        connection->maintenance().delete_rows(kMessages);
    }
    void remove_delay()
    {
        control->run({{"DROP TRIGGER IF EXISTS slow" + std::string(is_postgresql() ? " ON messages" : "")}});
        control->run({{"DROP FUNCTION IF EXISTS slow"}});
    }
    double number(const std::string& sql)
    {
        const auto outcome = control->run({{sql}});
        return outcome.failure ? -1 : outcome.result.rows.at(0).at(0).number();
    }
    /// Waits until the server has nothing to do for anybody else.
    bool others_are_idle()
    {
        const auto* const busy = is_postgresql()
            ? "SELECT COUNT(*) FROM pg_stat_activity WHERE xact_start IS NOT NULL AND usename = current_user "
              "AND pid <> pg_backend_pid()"
            : "SELECT COUNT(*) FROM information_schema.processlist WHERE command NOT IN ('Sleep', 'Daemon') "
              "AND user = 'velto' AND id <> CONNECTION_ID()";
        return in_time([&] { return number(busy) == 0; });
    }
    template <typename Condition> static bool in_time(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (!condition() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(10ms); // for another process
        }
        return condition();
    }

    OdbcTimes times;
    std::unique_ptr<Connection> connection;
    std::unique_ptr<OdbcSession> control;
};

} // namespace

TEST_F(LostTurnTest, IsNeverStored)
{
    if (server() == "Microsoft SQL Server") {
        GTEST_SKIP(); // its stand-in has no triggers
    }
    for (const auto& delay : delays()) {
        SCOPED_TRACE(delay.what);
        remove_delay();
        write_once();
        for (const auto& sql : delay.begin) {
            const auto outcome = control->run({{sql}});
            ASSERT_FALSE(outcome.failure) << outcome.failure->description;
        }
        connection->add_row(kMessages, {{"MsgID"}, {8.0}});
        lose_turn();
        ASSERT_TRUE(comes_back());
        EXPECT_EQ(number("SELECT COUNT(*) FROM messages"), 0) << "whoever repeats it is not mistaken";
        ASSERT_TRUE(others_are_idle());
        EXPECT_EQ(number("SELECT COUNT(*) FROM messages"), 0);
    }
}

TEST_F(LostTurnTest, IsNotGoneOnWithWhenAFrozenServerWorksAgain)
{
    write_once();
    connection->add_row(kMessages, {{"MsgID"}, {8.0}});
    auto& program = test::server_under_test()->program();
    program.freeze();
    lose_turn();
    program.send_signal_to_all(SIGCONT);
    ASSERT_TRUE(comes_back());
    EXPECT_EQ(number("SELECT COUNT(*) FROM messages"), 0);
}
