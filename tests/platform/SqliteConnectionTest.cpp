#include "platform/sqlite/SqliteProvider.h"

#include "base/EngineError.h"
#include "base/Guarded.h"
#include "platform/sqlite/SqliteBackup.h"
#include "platform/sqlite/SqliteDatabase.h"
#include "platform/sqlite/SqliteFunctions.h"
#include "platform/sqlite/SqliteSchema.h"
#include "support/ManualClock.h"
#include "support/MemoryDatabase.h"
#include "support/OtherProgram.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace qz::platform;
using namespace qz::store::statements;
using namespace qz::store::tables;
using qz::DatabaseError;
using qz::EngineError;
using qz::test::add_row;
using qz::test::OtherProgram;
using qz::test::rows_of;
using Values = std::vector<Value>;

namespace {

/// As long as it lives, no file of this process grows.
class SmallDisk {
public:
    SmallDisk()
    {
        getrlimit(RLIMIT_FSIZE, &old_limit_);
        rlimit limit = old_limit_;
        limit.rlim_cur = 200'000;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk()
    {
        setrlimit(RLIMIT_FSIZE, &old_limit_);
        static_cast<void>(std::signal(SIGXFSZ, old_action_));
    }

private:
    rlimit old_limit_{};
    void (*old_action_)(int) = std::signal(SIGXFSZ, SIG_IGN);
};

std::string content(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

void write(const std::filesystem::path& file, const std::string& bytes)
{
    std::ofstream(file, std::ios::binary) << bytes;
}

class SqliteConnectionTest : public testing::Test {
protected:
    std::unique_ptr<Connection> connect(Durability durability = Durability::Process)
    {
        ConnectionOptions options;
        options.database_file = file;
        options.durability = durability;
        options.overrides = qz::store::all_overrides();
        return make_sqlite_connection(options, clock);
    }
    std::unique_ptr<Connection> open(Durability durability = Durability::Process)
    {
        auto connection = connect(durability);
        connection->Open("ignored");
        return connection;
    }
    static void log(Connection& connection, const std::string& action)
    {
        connection.add_row(kLog, {{"UserName", "RemoteIP", "Action"}, {"anna", "::1", action}});
    }
    static std::string actions(Connection& connection)
    {
        std::string result;
        for (const auto& row : rows_of(connection, kLog).rows) {
            result += row.back().text() + " ";
        }
        return result;
    }
    template <typename Action> static EngineError error_of(Action action)
    {
        try {
            action();
        } catch (const EngineError& error) {
            return error;
        }
        ADD_FAILURE() << "nothing failed";
        return {0, "", ""};
    }
    /// Writes rows until the log has begun so many times.
    /// @return the number of rows.
    int write_until_the_log_began(Connection& connection, std::size_t times) const
    {
        // Behind each beginning stands a salt that is one greater, in the eight bytes from here on.
        constexpr std::streamoff kSalt = 16;
        std::set<std::string> salts;
        int rows = 0;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (salts.size() < times && std::chrono::steady_clock::now() < end) {
            for (int i = 0; i < 500; ++i, ++rows) {
                log(connection, std::string(200, 'x'));
            }
            connection.commit();
            std::ifstream stream(file.string() + "-wal", std::ios::binary);
            stream.seekg(kSalt);
            std::string salt(8, '\0');
            stream.read(salt.data(), 8);
            salts.insert(salt);
        }
        EXPECT_EQ(salts.size(), times) << "the log only grows";
        return rows;
    }
    /// The failure of an Open, which must name the file.
    std::string refusal()
    {
        const auto error = error_of([&] { open(); });
        EXPECT_EQ(error.number(), number_of(DatabaseError::Unspecified));
        EXPECT_EQ(error.source(), qz::kProviderSource);
        EXPECT_NE(error.description().find(file.string()), std::string::npos) << error.description();
        return error.description();
    }

    qz::test::TemporaryFolder folder;
    std::filesystem::path file = folder.path() / "VELTO.db";
    qz::test::ManualClock clock;
};

std::string long_text(std::size_t size)
{
    return std::string().append(size, 'x');
}

/// Whether another process finds a shared lock of this one on these bytes.
bool is_locked(const std::string& file, off_t begin, off_t length)
{
    const auto self = getpid();
    const auto child = fork();
    if (child == 0) { // no more than system calls: the process has threads
        struct flock lock { };
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_start = begin;
        lock.l_len = length;
        const int descriptor = ::open(file.c_str(), O_RDWR);
        const bool asked = descriptor >= 0 && fcntl(descriptor, F_GETLK, &lock) == 0;
        _exit(asked && lock.l_type == F_RDLCK && lock.l_pid == self ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// What the database's own shell, another process, prints for a statement.
std::string shell(const std::filesystem::path& file, const std::string& sql)
{
    std::string output;
    auto* const pipe = popen(("sqlite3 '" + file.string() + "' '" + sql + "' 2>&1").c_str(), "r");
    std::array<char, 256> buffer{};
    while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), pipe) != nullptr) {
        output += buffer.data();
    }
    pclose(pipe);
    return output;
}

bool mentions(const std::string& text, const std::string& words)
{
    return text.find(words) != std::string::npos;
}

} // namespace

TEST_F(SqliteConnectionTest, MakesItsFileForTheOwnerOnly)
{
    const auto mode = [](const std::filesystem::path& path) {
        return static_cast<unsigned>(std::filesystem::status(path).permissions());
    };
    for (const mode_t mask : {0U, 0077U}) {
        file = folder.path() / std::to_string(mask);
        const auto before = umask(mask);
        const auto connection = open();
        EXPECT_EQ(umask(before), mask);
        log(*connection, "a");
        connection->commit();
        EXPECT_EQ(mode(file), 0640U);
        EXPECT_EQ(mode(file.string() + "-wal"), 0640U);
        EXPECT_TRUE(mentions(connection->description(), file.string()));
    }
}

TEST_F(SqliteConnectionTest, KeepsRowsOverCloseAndOpen)
{
    const auto connection = connect(Durability::Power);
    EXPECT_EQ(connection->State(), ConnectionState::Closed);
    EXPECT_EQ(error_of([&] { connection->Close(); }).number(), 3704);
    EXPECT_EQ(error_of([&] { log(*connection, "x"); }).source(), qz::kConnectionSource);
    EXPECT_EQ(error_of([&] { connection->change_mark(kLog); }).number(), 3704);
    connection->Open("");
    EXPECT_EQ(error_of([&] { connection->Open(""); }).number(), number_of(DatabaseError::Unspecified));
    log(*connection, "kept"); // closing commits the turn
    connection->Close();
    connection->Open("");
    EXPECT_EQ(actions(*connection), "kept ");
}

TEST_F(SqliteConnectionTest, CommitsAtTheEndOfTheTurn)
{
    const auto writer = open();
    const auto reader = open();
    log(*writer, "a");
    log(*writer, "b");
    EXPECT_EQ(actions(*writer), "a b ");
    EXPECT_EQ(actions(*reader), "");
    writer->commit();
    EXPECT_EQ(actions(*reader), "a b ");
    log(*reader, "c");
    reader->commit();
    EXPECT_EQ(actions(*writer), "a b c ");
}

TEST_F(SqliteConnectionTest, RowsThatWaitAreThoseThatAreWritten)
{
    const auto connection = open();
    OtherProgram other(file);
    constexpr int kRows = 90;                 // several statements together, and some rows alone
    std::vector<std::vector<Value>> expected; // key, sender, number, sent
    for (const bool stored : {true, false, true}) {
        std::vector<std::vector<Value>> rows;
        for (int i = 0; i < kRows; ++i) {
            const auto key = add_row(*connection, kQueue, {{"UserName_From", "anna"}, {"MsgID", i}});
            rows.push_back({key, "anna", i, false});
            log(*connection, "a");
        }
        const auto key = [&](std::size_t row) {
            return std::get<std::int64_t>(rows[row][0].held());
        };
        connection->update_row(kQueue, key(1), {{"SENT", "MsgID"}, {true, 1001}});
        connection->delete_row(kQueue, key(2));
        EXPECT_EQ(error_of([&] { connection->delete_row(kQueue, key(2)); }).number(),
            number_of(DatabaseError::RowGone));
        if (!stored) {
            connection->rollback();
            continue;
        }
        connection->commit();
        connection->delete_row(kQueue, key(kRows - 1)); // its key is not given again
        connection->commit();
        other.run("INSERT INTO queue (UserName_From, MsgID) VALUES ('bert', 7)");
        rows.back() = {key(kRows - 1) + 1, "bert", 7, false};
        rows[1] = {key(1), "anna", 1001, true};
        rows.erase(rows.begin() + 2);
        expected.insert(expected.end(), rows.begin(), rows.end());
    }
    const auto found = connection->query(kSelectQueue, {});
    ASSERT_EQ(found.rows.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const auto& row = found.rows[i];
        EXPECT_EQ((std::vector<Value>{row[0], row[1], row[3], row[9]}), expected[i]) << i;
    }
    const auto lines = rows_of(*connection, kLog);
    ASSERT_EQ(lines.rows.size(), 3U * kRows) << "also those of the turn that was given up";
    EXPECT_EQ(lines.rows.back()[1].text(), clock.now().text());
}

/// Against a model that edits row by row: what waits must come to the same, whoever reads or writes between.
TEST_F(SqliteConnectionTest, EditsThatWaitComeToTheSameAsOneAfterTheOther)
{
    using Fields = std::map<std::string, Value>;
    using Rows = std::map<std::int64_t, Fields>;
    const auto connection = open();
    OtherProgram other(file);
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same cases each time
    const auto any = [&](int count) {
        return std::uniform_int_distribution<int>(0, count - 1)(random);
    };
    const auto look = [&](const Rows& expected) {
        const auto found = connection->query(kSelectQueue, {});
        ASSERT_EQ(found.rows.size(), expected.size());
        auto row = found.rows.begin();
        for (const auto& [key, fields] : expected) {
            ASSERT_EQ((*row)[0], Value(key));
            EXPECT_EQ((*row)[3], fields.at("MsgID")) << key;
            EXPECT_EQ((*row)[9], fields.at("Sent")) << key;
            EXPECT_EQ((*row)[10], fields.at("SentTime")) << key;
            ++row;
        }
    };
    const std::vector<std::vector<std::string>> sets{{"Sent", "SentTime"}, {"SentTime", "Sent"}, {"MsgID"}};
    Rows stored;
    std::int64_t last_key = 0;
    for (int turn = 0; turn < 200; ++turn) {
        auto rows = stored;
        for (int edit = any(120); edit > 0; --edit) {
            const auto key = last_key - any(40);
            const bool known = rows.contains(key);
            if (const int kind = any(100); kind < 30) {
                last_key = connection->insert_row(kQueue, {{"MsgID"}, {1}});
                ASSERT_TRUE(
                    rows.emplace(last_key, Fields{{"MsgID", 1}, {"Sent", 0}, {"SentTime", {}}}).second);
            } else if (kind < 80) {
                RowChange change{sets[static_cast<std::size_t>(any(10)) / 4], {}};
                for (const auto& column : change.columns) {
                    change.values.emplace_back(
                        column == "SentTime" ? Value("at " + std::to_string(any(2))) : Value(any(2)));
                }
                // Whoever is told nothing about a row that is gone must not bring it back.
                qz::attempt([&] { connection->update_row(kQueue, key, change); });
                for (std::size_t i = 0; known && i < change.columns.size(); ++i) {
                    rows[key][change.columns[i]] = change.values[i];
                }
            } else if (kind < 98) {
                qz::attempt([&] { connection->delete_row(kQueue, key); });
                rows.erase(key);
            } else {
                look(rows);
            }
        }
        if (any(10) == 0) {
            connection->rollback();
        } else {
            connection->commit();
            stored = rows;
        }
        if (any(4) == 0 && !stored.empty()) {
            const auto taken = std::to_string(stored.rbegin()->first);
            other.run("DELETE FROM queue WHERE IDQueue = " + taken);
            stored.erase(std::prev(stored.end()));
            EXPECT_EQ(error_of([&] {
                connection->update_row(kQueue, std::stoll(taken), {{"MsgID"}, {2}});
            }).number(),
                number_of(DatabaseError::RowGone));
            connection->commit();
        }
        look(stored);
        last_key = (std::max)(last_key, stored.empty() ? 0 : stored.rbegin()->first);
    }
}

TEST_F(SqliteConnectionTest, AFailingStatementFailsAlone)
{
    const auto connection = open();
    connection->run(kInsertUser, Values{"anna", "", "", "", ""});
    const auto twice = error_of([&] { connection->run(kInsertUser, Values{"ANNA", "", "", "", ""}); });
    EXPECT_EQ(twice.number(), number_of(DatabaseError::Constraint));
    static constexpr Statement kNoSuchColumn{.stated = "", .sql = "SELECT nothing FROM users"};
    EXPECT_EQ(
        error_of([&] { connection->query(kNoSuchColumn, {}); }).number(), number_of(DatabaseError::Syntax));
    log(*connection, "after");
    connection->commit();
    connection->Close();
    const auto again = open();
    EXPECT_EQ(rows_of(*again, kUsers).rows.size(), 1U);
    EXPECT_EQ(actions(*again), "after ");
}

TEST_F(SqliteConnectionTest, AReplacementThatFailsMidwayLeavesTheOldRows)
{
    const auto connection = open();
    auto& tables = connection->maintenance();
    const ResultSet twice{{"IDUserName", "UserName"}, {{2, "bert"}, {3, "bert"}}};
    tables.write_rows(kUsers, {{"IDUserName", "UserName"}, {{1, "anna"}}});
    const auto before = tables.read_rows(kUsers, 0, 9).rows;
    ASSERT_TRUE(tables.begin());
    tables.delete_rows(kUsers);
    tables.write_rows(kRooms, {{"IDRoom"}, {{1}}});
    EXPECT_EQ(tables.count_rows(kUsers), 0U);
    EXPECT_EQ(
        error_of([&] { tables.write_rows(kUsers, twice); }).number(), number_of(DatabaseError::Constraint));
    tables.roll_back();
    EXPECT_EQ(tables.read_rows(kUsers, 0, 9).rows, before);
    EXPECT_EQ(tables.count_rows(kRooms), 0U);
    connection->insert_row(kRooms, {{"RoomName"}, {"works on"}});
    connection->commit();
    EXPECT_EQ(open()->maintenance().count_rows(kRooms), 1U);
}

TEST_F(SqliteConnectionTest, EditsRowsByTheirKey)
{
    const auto connection = open();
    const auto key = add_row(*connection, kRooms, {{"RoomName", "lobby"}, {"CREATIONTIME", clock.now()}});
    EXPECT_EQ(add_row(*connection, kRooms, {}), key + 1) << "a row of nothing but defaults";
    connection->update_row(kRooms, key, {{"key", "username_owner"}, {"k", Value{}}});
    connection->delete_row(kRooms, key + 1);
    const auto rows = rows_of(*connection, kRooms);
    ASSERT_EQ(rows.rows.size(), 1U);
    EXPECT_EQ(rows.rows[0], (std::vector<Value>{Value(key), "lobby", "2026-03-02 09:00:00", "k", Value{}}));

    const auto gone = number_of(DatabaseError::RowGone);
    EXPECT_EQ(error_of([&] { connection->update_row(kRooms, key + 1, {{"key"}, {"x"}}); }).number(), gone);
    EXPECT_EQ(error_of([&] { connection->delete_row(kRooms, key + 1); }).number(), gone);
}

TEST_F(SqliteConnectionTest, EditsOnlyKnownTablesAndColumns)
{
    const auto connection = open();
    const std::pair<Table, const char*> cases[] = {{kRooms, "Colour"}, {kRooms, "key] = 'x', [RoomName"},
        {kRooms, ""}, {{"nothing", "ID"}, "key"}, {{"rooms", "ID"}, "key"},
        {{"sqlite_master", "name"}, "sql"}, {{"rooms] SET [key] = 1 --", "IDRoom"}, "key"}};
    for (const auto& refused : cases) {
        const auto& table = refused.first;
        const auto* column = refused.second;
        const RowChange row{{column}, {"x"}};
        EXPECT_NE(error_of([&] { connection->insert_row(table, row); }).number(), 0) << table.name << column;
        EXPECT_NE(error_of([&] { connection->update_row(table, 1, row); }).number(), 0)
            << table.name << column;
    }
    EXPECT_EQ(error_of([&] {
        connection->delete_row({"nothing", "ID"}, 1);
    }).number(),
        number_of(DatabaseError::MissingTable));
}

TEST_F(SqliteConnectionTest, MarksEveryChangeAndNoRead)
{
    const auto connection = open();
    const auto mark = [&] {
        return connection->change_mark(kUsers);
    };
    auto last = mark();
    const auto changed = [&] {
        return std::exchange(last, mark()) != last;
    };

    connection->query(kSelectUsers, {});
    log(*connection, "another table");
    connection->run(kDeleteBuddy, Values{"no", "body"});
    EXPECT_FALSE(changed());
    connection->run(kInsertUser, Values{"anna", "", "", "", ""});
    EXPECT_TRUE(changed());
    connection->commit();
    EXPECT_FALSE(changed());
    connection->update_row(kUsers, 1, {{"Phone"}, {"1"}});
    EXPECT_TRUE(changed());
    connection->commit();

    OtherProgram other(file);
    EXPECT_FALSE(changed());
    other.run("SELECT * FROM users");
    EXPECT_FALSE(changed());
    other.run("UPDATE users SET Phone = '2'");
    EXPECT_TRUE(changed());
    EXPECT_FALSE(changed());

    connection->Close();
    connection->Open("");
    EXPECT_TRUE(changed()) << "nobody watched while it was closed";
    EXPECT_NE(open()->change_mark(kUsers), last) << "marks of two connections never meet";
}

TEST_F(SqliteConnectionTest, PlainToolsUseTheFile)
{
    {
        const auto connection = open();
        connection->run(kInsertUser, Values{"anna", "", "", "", ""});
        connection->commit();
        OtherProgram other(file);
        other.run("INSERT INTO users (UserName) VALUES ('carl')");
        other.run("INSERT INTO log (Action) VALUES (NULL)");
        other.run("INSERT INTO command (action) VALUES ('x')");
        other.run("ALTER TABLE users ADD COLUMN Nickname TEXT");
        other.run("REINDEX; VACUUM");
        const auto rows = rows_of(*connection, kUsers);
        ASSERT_EQ(rows.rows.size(), 2U);
        EXPECT_EQ(rows.columns.size(), 14U);
        EXPECT_TRUE(rows.rows[1][7].boolean());
        EXPECT_NO_THROW(rows.rows[1][8].date());
        EXPECT_TRUE(connection->query(kSelectLogLines, Values{1}).rows[0][0].is_null());
        add_row(*connection, kUsers, {{"UserName", "dora"}, {"Email", "d"}});
    }
    OtherProgram(file).run("DROP TABLE autoreply");
    const auto connection = open();
    EXPECT_EQ(error_of([&] { connection->query(kSelectAutoReply, Values{"anna"}); }).number(),
        number_of(DatabaseError::MissingTable));
}

TEST_F(SqliteConnectionTest, FindsTextInTextAsPlainToolsDo)
{
    SqliteDatabase ours(":memory:");
    register_functions(ours.handle(), clock);
    SqliteDatabase plain(":memory:");
    const std::array values{"'LogOn successfully for ann'", "'LogOn'", "'logon'", "'ann'", "'n'", "''",
        "NULL", "1701", "0", "'x\xC3\xA9\xC3\xA9y'", "'\xC3\xA9y'", "'\xA9'", "'y'", "CAST(x'A9' AS TEXT)",
        "x'78C3A9C3A979'", "x'A979'", "x''", "'\xA9\xA9y'"};
    for (const auto* text : values) {
        for (const auto* part : values) {
            const auto sql = std::string("SELECT instr(") + text + ", " + part + ")";
            EXPECT_EQ(ours.read(sql), plain.read(sql)) << sql;
        }
    }
}

TEST_F(SqliteConnectionTest, RefusesWhatIsNoDatabase)
{
    const std::pair<std::string, const char*> cases[] = {{"hello", "not a database"},
        {std::string(10'000, '\0'), "not a database"}, {"SQLite format 3", "not a database"},
        {std::string("SQLite format 3\0", 16) + std::string(5000, 'x'), "damaged"}};
    for (const auto& [bytes, words] : cases) {
        write(file, bytes);
        EXPECT_TRUE(mentions(refusal(), words)) << refusal();
        EXPECT_EQ(content(file), bytes);
    }
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    EXPECT_TRUE(mentions(refusal(), "folder"));
    file = folder.path() / "missing" / "VELTO.db";
    EXPECT_TRUE(mentions(refusal(), "cannot be created"));
    EXPECT_FALSE(std::filesystem::exists(file.parent_path()));
    EXPECT_EQ(connect()->State(), ConnectionState::Closed);
    file.clear();
    EXPECT_EQ(error_of([&] { open(); }).number(), number_of(DatabaseError::Unspecified));
}

TEST_F(SqliteConnectionTest, ReportsADamagedTable)
{
    {
        const auto connection = open();
        for (int i = 0; i < 2000; ++i) {
            log(*connection, std::string(200, 'x'));
        }
    }
    { // nothing is in the write-ahead log any more
        const auto connection = open();
        connection->Close();
    }
    auto bytes = content(file);
    std::fill(bytes.begin() + 49'152 /* twelve pages */, bytes.end(), 'x');
    write(file, bytes);
    const auto error = error_of([&] { rows_of(*open(), kLog); });
    EXPECT_EQ(error.number(), number_of(DatabaseError::Unspecified));
    EXPECT_TRUE(mentions(error.description(), "damaged")) << error.description();
    EXPECT_TRUE(mentions(error.description(), file.string()));
}

TEST_F(SqliteConnectionTest, UpgradesAnEmptyFileAndARestoredDump)
{
    write(file, "");
    {
        const auto connection = open();
        connection->run(kInsertUser, Values{"anna", "", "", "", ""});
        connection->Close();
    }
    OtherProgram(file).run("PRAGMA user_version = 0; DROP INDEX users_UserName");
    const auto connection = open();
    EXPECT_EQ(rows_of(*connection, kUsers).rows.size(), 1U);
    EXPECT_EQ(error_of([&] {
        connection->run(kInsertUser, Values{"Anna", "", "", "", ""});
    }).number(),
        number_of(DatabaseError::Constraint));
}

TEST_F(SqliteConnectionTest, AFailingUpgradeChangesNothing)
{
    OtherProgram(file).run("CREATE TABLE log (x); INSERT INTO log VALUES (1)"); // of some other program
    const auto before = content(file).size();
    const auto error = error_of([&] { open(); });
    EXPECT_TRUE(mentions(error.description(), "UserName")) << error.description();
    EXPECT_EQ(content(file).size(), before) << "no table was added";
    OtherProgram(file).run("SELECT x FROM log");
}

TEST_F(SqliteConnectionTest, RefusesANewerFile)
{
    open()->Close();
    OtherProgram(file).run("PRAGMA user_version = 4711");
    const auto before = content(file);
    const auto description = refusal();
    EXPECT_TRUE(mentions(description, "4711")
        && mentions(description, "up to " + std::to_string(current_schema_version())))
        << description;
    EXPECT_EQ(content(file), before);
}

TEST_F(SqliteConnectionTest, ALockedFileFailsOnceSlowlyThenFast)
{
    const auto connection = open();
    OtherProgram other(file);
    other.run("BEGIN IMMEDIATE");
    const auto add = [&] {
        connection->insert_row(kRooms, {{"RoomName"}, {"hall"}});
    };
    const auto locked = error_of(add);
    EXPECT_EQ(locked.number(), number_of(DatabaseError::Unspecified));
    EXPECT_TRUE(mentions(locked.description(), "locked by another program"));
    EXPECT_EQ(actions(*connection), "") << "reading goes on";
    const auto start = std::chrono::steady_clock::now();
    error_of(add);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    connection->commit();
    other.run("COMMIT");
    add();
    connection->commit();
    EXPECT_EQ(rows_of(*connection, kRooms).rows.size(), 1U);
}

TEST_F(SqliteConnectionTest, LogRowsWaitWithTheirTimesUntilTheFileTakesThem)
{
    const auto connection = open();
    OtherProgram other(file);
    const auto begin = clock.now();
    const auto log_later = [&](const std::string& action) {
        log(*connection, action);
        clock.advance(std::chrono::minutes(1));
    };
    connection->insert_row(kRooms, {{"RoomName"}, {"given up"}});
    log_later("a");
    connection->query(kSelectUsers, {});
    rows_of(*connection, kLog); // is written for that
    log_later("b");
    connection->rollback();
    other.run("BEGIN IMMEDIATE");
    log_later("c");
    connection->commit();
    log_later("d");
    connection->commit();
    EXPECT_EQ(actions(*connection), "");
    other.run("COMMIT");
    EXPECT_THAT(connection->take_notices(),
        testing::ElementsAre(testing::HasSubstr("Log rows could not be written: ")));
    connection->commit();
    log_later("e");
    connection->commit();
    EXPECT_THAT(connection->take_notices(), testing::ElementsAre("Log rows are written again"));
    EXPECT_EQ(actions(*connection), "a b c d e ");
    const auto lines = rows_of(*connection, kLog);
    for (std::size_t i = 0; i < lines.rows.size(); ++i) {
        EXPECT_EQ(lines.rows[i][1].text(), begin.plus_seconds(60 * static_cast<std::int64_t>(i)).text());
    }
    EXPECT_TRUE(rows_of(*connection, kRooms).rows.empty());

    other.run("BEGIN IMMEDIATE");
    for (int i = 0; i < 20'002; ++i) {
        log(*connection, std::to_string(i));
    }
    connection->commit();
    other.run("COMMIT");
    clock.advance(std::chrono::minutes(1));
    connection->take_notices();
    connection->Close();
    EXPECT_THAT(connection->take_notices(),
        testing::ElementsAre("Log rows are written again; 2 log lines could not be kept"));
    const auto again = open();
    EXPECT_EQ(rows_of(*again, kLog).rows.size(), 20'005U);
    EXPECT_EQ(rows_of(*again, kLog).rows[5][4].text(), "2") << "the oldest go first";
}

TEST_F(SqliteConnectionTest, RefusesAFileThatItMayNotWrite)
{
    open()->Close();
    using std::filesystem::perms;
    std::filesystem::permissions(folder.path(), perms(0755));
    std::filesystem::permissions(file, perms(0444));
    constexpr uid_t kNobody = 65534;
    const bool root = geteuid() == 0;
    if (root && seteuid(kNobody) != 0) {
        std::cout << "cannot become an ordinary user\n";
        GTEST_SKIP();
    }
    const auto read_only = refusal();
    file = folder.path() / "new.db";
    const auto no_folder = refusal();
    EXPECT_EQ(root ? seteuid(0) : 0, 0);
    std::filesystem::permissions(folder.path(), perms::owner_all);
    EXPECT_TRUE(mentions(read_only, "read-only")) << read_only;
    EXPECT_TRUE(mentions(no_folder, "cannot be created")) << no_folder;

    file = folder.path() / "VELTO.db";
    std::filesystem::permissions(file, perms::none);
    if (root && seteuid(kNobody) == 0) {
        EXPECT_EQ(error_of([&] { open(); }).number(), number_of(DatabaseError::Unspecified));
        EXPECT_EQ(seteuid(0), 0);
    }
}

TEST_F(SqliteConnectionTest, ItsLogBeginsAnewAgainAndAgainWhileTurnsGoOn)
{
    auto connection = open();
    constexpr std::size_t kTimes = 4;
    const auto rows = write_until_the_log_began(*connection, kTimes);
    connection.reset(); // maybe in the middle of a copy
    SqliteDatabase plain(file);
    EXPECT_EQ(plain.read("SELECT count(*) FROM log").integer(), rows);
    EXPECT_EQ(plain.read("PRAGMA quick_check").text(), "ok");
}

// A process loses all of its locks on a file with the first descriptor of the file that it closes. Whoever
// closes the database then next takes itself for the last one, and deletes the log under the others.
TEST_F(SqliteConnectionTest, NothingThatAProcessDoesTakesItsLocksFromIt)
{
    // Where the library on every system puts them: the byte ranges are part of the file format.
    constexpr off_t kShared = 1'073'741'826; // in the file: tells who closes last
    constexpr off_t kSharedLength = 510;
    constexpr off_t kAlive = 128; // in the index of the log: tells who may begin it again
    const std::pair<const char*, std::function<void(Connection&)>> cases[] = {
        {"nothing",
            [](Connection& /*connection*/) {
            }},
        {"a second connection",
            [&](Connection& /*connection*/) {
                open();
            }},
        {"a backup",
            [&](Connection& /*connection*/) {
                copy_sqlite_database(file, folder.path() / "copy.db", [](int, int) {});
            }},
        {"a copy of the log into the file",
            [&](Connection& connection) {
                write_until_the_log_began(connection, 2);
            }},
    };
    const auto connection = open();
    int rows = 0;
    for (const auto& [name, act] : cases) {
        SCOPED_TRACE(name);
        act(*connection);
        EXPECT_TRUE(is_locked(file, kShared, kSharedLength));
        EXPECT_TRUE(is_locked(file.string() + "-shm", kAlive, 1));
        log(*connection, "of the server");
        connection->commit();
        shell(file, "INSERT INTO log (Action) VALUES (\"of another program\")");
        rows += 2;
        EXPECT_TRUE(std::filesystem::exists(file.string() + "-wal"));
        EXPECT_EQ(
            shell(file, "SELECT count(*) FROM log WHERE Action LIKE \"of%\""), std::to_string(rows) + "\n");
    }
    EXPECT_EQ(shell(file, "PRAGMA integrity_check"), "ok\n");
}

TEST_F(SqliteConnectionTest, AFullDiskLosesTheTurnAndSaysSo)
{
    const auto connection = open();
    const auto add = [&](const std::string& message) {
        connection->insert_row(kQueue, {{"Message"}, {message}});
    };
    const auto stored = [&] {
        std::string messages;
        for (const auto& row : connection->query(kSelectQueue, {}).rows) {
            messages += row[4].text() + " ";
        }
        return messages;
    };
    add("before");
    connection->commit();
    const auto mark = connection->change_mark(kQueue);

    {
        const SmallDisk disk;
        add(long_text(1'000'000));
        log(*connection, "first");
        const auto error = error_of([&] { connection->commit(); });
        EXPECT_EQ(error.number(), number_of(DatabaseError::Unspecified));
        EXPECT_TRUE(mentions(error.description(), "free space")) << error.description();
        EXPECT_NE(connection->change_mark(kQueue), mark);

        // A change that does not fit the cache fails at once, and takes the earlier ones with it.
        log(*connection, "second");
        add("lost");
        const auto early = error_of([&] { add(long_text(40'000'000)); });
        EXPECT_TRUE(mentions(early.description(), "in the same turn is lost")) << early.description();
        EXPECT_EQ(stored(), "before ");
    }
    add("after");
    EXPECT_TRUE(mentions(error_of([&] { connection->commit(); }).description(), "were lost"))
        << "what was told about the lost changes must not go out";
    EXPECT_EQ(stored(), "before ") << "a turn is not stored by half";
    add("given up");
    connection->rollback();
    connection->rollback();
    add("later");
    connection->commit();
    EXPECT_EQ(stored(), "before later ");
    EXPECT_EQ(actions(*connection), "first second ") << "the log tells of turns that are lost";
}

TEST_F(SqliteConnectionTest, ATurnWhosePendingRowsCannotBeWrittenIsNotCommitted)
{
    const auto connection = open();
    OtherProgram other(file);
    const auto turn = [&] {
        connection->insert_row(kRooms, {{"RoomName"}, {"hall"}});
        connection->add_row(kMessages, {{"UserName_From"}, {"anna"}});
        connection->insert_row(kQueue, {{"UserName_From"}, {"anna"}});
    };
    const auto counts = [&] {
        return other.run("SELECT count(*) FROM rooms UNION ALL SELECT count(*) FROM messages UNION ALL "
                         "SELECT count(*) FROM queue");
    };
    using testing::ElementsAre;
    // The insert cannot be prepared, or fails when it runs.
    for (const auto* trigger : {"INSERT INTO missing VALUES (1)", "SELECT RAISE(ABORT, 'refused')"}) {
        SCOPED_TRACE(trigger);
        other.run(std::string("CREATE TRIGGER refusal AFTER INSERT ON messages BEGIN ") + trigger + "; END");
        turn();
        error_of([&] { connection->query(kSelectLastMessage, {}); }); // its caller goes on
        log(*connection, trigger);
        EXPECT_TRUE(mentions(error_of([&] { connection->commit(); }).description(), "were lost"));
        EXPECT_THAT(counts(), ElementsAre("0", "0", "0"));
        turn();
        error_of([&] { connection->commit(); });
        EXPECT_THAT(counts(), ElementsAre("0", "0", "0"));
        other.run("DROP TRIGGER refusal");
    }
    turn();
    connection->commit();
    EXPECT_THAT(counts(), ElementsAre("1", "1", "1"));
    EXPECT_EQ(actions(*connection), "INSERT INTO missing VALUES (1) SELECT RAISE(ABORT, 'refused') ");
}

TEST_F(SqliteConnectionTest, AKilledProcessLosesNoFinishedTurn)
{
    for (const auto durability : {Durability::Process, Durability::Power}) {
        std::array<int, 2> ready{};
        ASSERT_EQ(pipe(ready.data()), 0);
        const auto child = fork();
        if (child == 0) {
            const auto connection = open(durability);
            log(*connection, "finished");
            connection->commit();
            log(*connection, "unfinished");
            static_cast<void>(::write(ready[1], "x", 1) == 1);
            while (true) {
                pause();
            }
        }
        char byte = 0;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(ready[0]);
        close(ready[1]);
        EXPECT_EQ(actions(*open()), "finished ");
        std::filesystem::remove(file);
        std::filesystem::remove(file.string() + "-wal");
        std::filesystem::remove(file.string() + "-shm");
    }
}
