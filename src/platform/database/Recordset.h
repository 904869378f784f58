// Rows of one query with a cursor, and the edits of those rows, in the manner of ADO.
#pragma once

#include "platform/database/ColumnFinder.h"
#include "platform/database/Connection.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qz::platform {

/// A static snapshot with optimistic updates: rows are fetched at the first use, RecordCount is exact, edits
/// go to the database row by row with Update. Errors are EngineError (3709 closed connection, 3021 no current
/// row, 3265 no such field, 3251 rows that cannot be edited, and those of the connection).
class Recordset {
public:
    explicit Recordset(Connection& connection) : connection_(connection) { }

    /// Opens a query. Nothing is fetched until a row or the count is asked for.
    void Open(const std::string& sql);
    void Close();

    std::int32_t RecordCount();
    /// True when there is no current row (the interface's EOF).
    bool AtEnd();
    void MoveFirst();
    void MoveNext();

    /// Field of the current row; names ignore case.
    const Value& Fields(std::string_view name);
    /// Sets a field of the current or the new row; it reaches the database with Update, or with the next
    /// move.
    void SetField(std::string_view name, Value value);
    /// Starts a new row, which Update inserts.
    void AddNew();
    /// Does nothing when nothing was set. What the database refuses is given up.
    void Update();
    /// Deletes the current row at once; the cursor stays on it until the next move.
    void Delete();

private:
    enum class Editing { None, Current, New };
    void require_open() const;
    void require_connection() const;
    void fetch();
    std::size_t column(std::string_view name);
    const std::vector<Value>& current_row();
    const Table& editable_table() const;
    void leave_row();
    void drop_deleted_row();
    void show_added(std::vector<Value> row, std::int64_t key);
    void abandon_edit();

    Connection& connection_;
    std::string sql_;
    bool open_ = false;
    bool fetched_ = false;
    bool described_ = false;
    ResultSet result_;
    ColumnFinder finder_;
    std::size_t row_ = 0;
    bool row_deleted_ = false;
    Editing editing_ = Editing::None;
    std::vector<Value> edited_row_; // the new row, or the current one as it will be
    RowChange change_;
};

} // namespace qz::platform
