// One link to a database server through the driver manager. Every call may wait for the server, so a session
// lives on a thread of its own (OdbcWorker).
#pragma once

#include "platform/database/Connection.h"
#include "platform/database/StatementTrace.h"
#include "platform/odbc/OdbcStatement.h"
#include "platform/odbc/OdbcStop.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace qz::platform {

/// How a statement is written for many rows of parameters: between head and tail stands `row` for each; or as
/// one text for any number of rows, which takes each column as an array in the words of PostgreSQL.
struct ManyRows {
    std::string head;
    std::string row;
    std::string tail;
    std::string arrays = {};
};

/// A statement to run, once for each row of parameters. All rows go to the server together: as `many` says,
/// else as an array of parameters.
struct Step {
    std::string sql;
    std::vector<std::vector<Value>> rows{1};
    std::shared_ptr<const ManyRows> many = {};
    bool may_take_long = false; // may have a whole table to go through
};

/// What became of steps that were run one after another up to the first failure.
struct Outcome {
    ResultSet result; // of the last step that was run; columns and rows only
    std::int64_t changed_rows = 0;
    std::optional<OdbcFailure> failure;
    std::size_t done = 0; // steps that succeeded
};

class OdbcSession {
public:
    /// Connects.
    /// @param stop  by which another thread stops it.
    /// @param trace  hears of each step; null: nobody.
    /// @throws OdbcFailure
    explicit OdbcSession(const std::string& connection_string,
        std::shared_ptr<OdbcStop> stop = std::make_shared<OdbcStop>(),
        std::shared_ptr<StatementTrace> trace = {});

    Outcome run(const std::vector<Step>& steps);
    /// "PostgreSQL" and the like, and the server's version.
    std::string server_name() const { return information(SQL_DBMS_NAME); }
    std::string server_version() const { return information(SQL_DBMS_VER); }

private:
    struct EnvironmentCloser {
        void operator()(SQLHANDLE handle) const { SQLFreeHandle(SQL_HANDLE_ENV, handle); }
    };
    struct LinkCloser {
        void operator()(SQLHANDLE handle) const
        {
            SQLDisconnect(handle); // fails for a link that never was; freeing it is right all the same
            SQLFreeHandle(SQL_HANDLE_DBC, handle);
        }
    };
    std::string information(SQLUSMALLINT what) const;
    void run_traced(const Step& step, Outcome& outcome);
    void run(const Step& step, Outcome& outcome);
    void run_in_pieces(const Step& step, const ManyRows& many, Outcome& outcome);
    void run(const std::string& sql, const std::vector<std::vector<Value>>& rows, Outcome& outcome);

    std::shared_ptr<OdbcStop> stop_;
    std::shared_ptr<StatementTrace> trace_;
    std::unique_ptr<void, EnvironmentCloser> environment_;
    std::unique_ptr<void, LinkCloser> link_;
    /// By text and types of the parameters: drivers settle the types when they prepare.
    std::unordered_map<std::string, std::unique_ptr<OdbcStatement>> prepared_;
};

} // namespace qz::platform
