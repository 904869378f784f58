// What differs between database servers: the statements that one needs in its own words, how a session and a
// transaction are set up, and the tables. Everything about one server is in its one source (PostgreSql,
// MariaDb, SqlServer).
#pragma once

#include "platform/database/Statement.h"

#include <span>
#include <string>
#include <string_view>

namespace qz::platform {

struct ServerDatabase {
    std::string_view name; // what the driver says is connected
    /// Those of this server.
    StatementOverrides DatabaseOverrides::*overrides = nullptr;
    /// Run on each new session.
    std::span<const std::string_view> session;
    /// Sets how many milliseconds, or whole seconds, a statement waits for a lock: {} is the number.
    std::string_view lock_patience;
    bool lock_patience_in_seconds = false;
    /// Sets the session's local time to {}, for instance +01:00. Empty where a session has none.
    std::string_view time_zone;
    std::string_view begin;
    /// Begins a transaction that reads everything as it was at one moment.
    std::span<const std::string_view> begin_reading;
    std::string_view commit;
    std::string_view rollback;
    /// A row with 0 when no transaction is open. Empty where a failing statement always takes it with it.
    std::string_view transaction_count;
    /// Gives the session a name ({} is one that no other session has) and tells it. Empty where a session
    /// cannot be found again.
    std::string_view name_session;
    /// Rows with the number of the session that has a name, as long as there is such a session.
    std::string_view find_session;
    /// Ends the session with the number {}.
    std::string_view end_session;
    /// At the end of an INSERT: gives the key, whose name is {}.
    std::string_view key_at_end;
    std::string_view default_values;
    /// Gives {count} keys of the table {}, whose key is {key}, that no other row will get, even when what the
    /// text changes is taken back. Empty where keys come with their rows only.
    std::string_view reserve_keys;
    /// Many rows go in one text as an array for each column, in the words of PostgreSQL.
    bool takes_arrays = false;
    /// Change counters count each row that a statement changes, not the statement.
    bool counts_rows = false;
    /// Rows (table, column, type) in the order of the columns.
    std::string_view columns;
    /// Around rows that bring their keys along: {} is the table. May be empty.
    std::string_view before_keys;
    std::string_view after_keys;
    /// Brings the counter of a table ({}) behind its highest key; {key} is the key's name. May be empty.
    std::string_view advance_counter;
    /// The statements at position n lead from schema version n to n + 1. What was released is never changed.
    std::span<const std::span<const std::string_view>> migrations;
};

/// A name as every server takes one that may be a word of its own language.
std::string quoted_name(std::string_view name);

/// The one that the driver names, null for any other.
const ServerDatabase* server_database(std::string_view name);

extern const ServerDatabase kPostgreSql;
extern const ServerDatabase kMariaDb;
extern const ServerDatabase kSqlServer;

} // namespace qz::platform
