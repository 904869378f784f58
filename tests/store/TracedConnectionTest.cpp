// What a connection tells its trace, on the database that VELTO_TEST_PROVIDER names.
#include "base/EngineError.h"
#include "platform/database/StatementTrace.h"
#include "store/Overrides.h"
#include "store/Statements.h"
#include "support/DatabaseServer.h"
#include "support/ManualClock.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

using namespace qz;
using namespace qz::platform;
using namespace qz::store::statements;
using namespace qz::store::tables;
using testing::AllOf;
using testing::Contains;
using testing::ContainsRegex;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using Values = std::vector<Value>;

namespace {

class Lines final : public StatementTrace {
public:
    void ran(const RanStatement& statement) noexcept override
    {
        const std::lock_guard lock(mutex_); // of a database server, on another thread
        lines_.push_back(trace_line(statement));
    }
    std::vector<std::string> take()
    {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

class TracedConnectionTest : public testing::Test {
protected:
    TracedConnectionTest()
    {
        ConnectionOptions options;
        options.database_file = folder / "VELTO.db";
        options.overrides = store::all_overrides();
        options.trace = trace;
        connection = test::make_test_connection(options, clock);
        connection->Open("");
        trace->take();
    }

    test::TemporaryFolder folder;
    test::ManualClock clock;
    std::shared_ptr<Lines> trace = std::make_shared<Lines>();
    std::unique_ptr<Connection> connection;
};

} // namespace

TEST_F(TracedConnectionTest, TellsWhatRuns)
{
    connection->run(kInsertUser, Values{"ann", "sesame", "", "", ""});
    connection->query(kSelectUser, Values{"ann"});
    const auto* const quick = "^sql [0-9]+\\.[0-9]{3} ms  ";
    auto lines = trace->take();
    EXPECT_THAT(
        lines, Contains(ContainsRegex(quick + std::string("INSERT INTO users .*  .'ann', <hidden>, "))));
    EXPECT_THAT(lines, Contains(ContainsRegex(quick + std::string("SELECT .*'ann'.$"))));
    for (int i = 0; i < 64; ++i) { // what waits is told when it is written
        connection->add_row(
            kQueue, {{"UserName_From", "UserName_To", "MsgID", "Message"}, {"ann", "ben", i, "Psst"}});
    }
    connection->commit();
    lines = trace->take();
    EXPECT_THAT(lines,
        Contains(AllOf(HasSubstr("INSERT INTO"), HasSubstr("'ann', 'ben'"), HasSubstr("<4 characters>"),
            HasSubstr("  64 rows"))));
    EXPECT_THAT(lines, Contains(HasSubstr("COMMIT")));
    EXPECT_THAT(lines, Each(Not(HasSubstr("Psst"))));
}

TEST_F(TracedConnectionTest, TellsOfFailures)
{
    constexpr Statement kMissing{
        .stated = "SELECT * FROM nothing WHERE Name = '{}'", .sql = "SELECT * FROM nothing WHERE name = ?"};
    EXPECT_THROW(connection->query(kMissing, Values{"ann"}), EngineError);
    connection->run(kInsertUser, Values{"ann", "sesame", "", "", ""});
    EXPECT_THROW(connection->run(kInsertUser, Values{"ann", "open sesame", "", "", ""}), EngineError);
    connection->rollback();
    const auto lines = trace->take();
    EXPECT_THAT(lines, Contains(ContainsRegex("nothing WHERE name = .*  failed: ")));
    EXPECT_THAT(lines, Contains(ContainsRegex("'ann', <hidden>.*  failed: ")));
    EXPECT_THAT(lines, Contains(HasSubstr("ROLLBACK")));
    EXPECT_THAT(lines, Each(Not(HasSubstr("sesame"))));
}
