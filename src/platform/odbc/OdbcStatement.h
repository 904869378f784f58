// A prepared statement of the driver manager, its parameters, and its failures.
#pragma once

#include "base/EngineError.h"
#include "platform/database/Connection.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

namespace qz::platform {

/// A failure as the driver told it.
struct OdbcFailure {
    DatabaseError kind = DatabaseError::Unspecified;
    std::string description;
    std::string state;
    std::int32_t native = 0;
    bool link_lost = false;
    /// The same statement may succeed later: a lock, a full disk, a lost link.
    bool passing = false;
};

OdbcFailure odbc_failure(SQLSMALLINT handle_type, SQLHANDLE handle);

/// A number as the driver manager takes some of them, in the place of a pointer.
SQLPOINTER odbc_number(SQLULEN number);
SQLWCHAR* odbc_text(std::u16string& text);

/// Rows of values, column by column in the layout that drivers read.
class OdbcParameters {
public:
    /// @param rows  at least one, all of the same length.
    /// @throws OdbcFailure for a text of absurd length, or with a NUL, which databases cut or refuse.
    explicit OdbcParameters(const std::vector<std::vector<Value>>& rows);

    std::size_t rows() const { return rows_; }
    /// A letter for the type of each column.
    std::string types() const;
    /// The parameters must stay alive until the statement was executed.
    void bind(SQLHSTMT statement) const;

private:
    enum class Type : char { Whole = 'w', Real = 'r', Text = 't', LongText = 'l', Date = 'd' };
    struct Column {
        Type type = Type::Text;
        std::size_t width = 1; // of a text, in UTF-16 units
        std::vector<std::int64_t> whole;
        std::vector<double> real;
        std::u16string text;
        std::vector<SQL_TIMESTAMP_STRUCT> date;
        std::vector<SQLLEN> lengths;
    };
    static Type type_of(const std::vector<std::vector<Value>>& rows, std::size_t position);
    static Column column(const std::vector<std::vector<Value>>& rows, std::size_t position);
    static void fill_texts(Column& column, const std::vector<std::vector<Value>>& rows, std::size_t position);

    std::size_t rows_;
    // The driver writes to what it is given, although it only reads parameters.
    mutable std::vector<Column> columns_;
};

/// Every operation throws OdbcFailure.
class OdbcStatement {
public:
    explicit OdbcStatement(SQLHANDLE link);
    /// Prepares it.
    OdbcStatement(SQLHANDLE link, const std::string& sql);

    SQLHANDLE handle() const { return handle_.get(); }
    /// Runs a text that has no parameters and no rows, without preparing it.
    void run(const std::string& sql);

    /// @return number of rows that were changed.
    std::int64_t execute(const OdbcParameters& parameters);
    /// The rows, when the statement has some.
    ResultSet fetch();
    /// Lets go of rows and parameters.
    void finish();

private:
    struct Closer {
        void operator()(SQLHANDLE handle) const { SQLFreeHandle(SQL_HANDLE_STMT, handle); }
    };
    enum class Kind { Whole, Real, Date, Text };
    std::int16_t column_count();
    Kind describe(SQLUSMALLINT column, std::string& name);
    Value read(SQLUSMALLINT column, Kind kind);
    Value read_text(SQLUSMALLINT column);
    void check(SQLRETURN code);

    std::unique_ptr<void, Closer> handle_;
    std::vector<SQLUSMALLINT> row_states_; // the driver writes into it
};

} // namespace qz::platform
