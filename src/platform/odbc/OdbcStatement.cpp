#include "platform/odbc/OdbcStatement.h"

#include "platform/odbc/WideText.h"

#include <algorithm>
#include <array>
#include <optional>

namespace qz::platform {

namespace {

static_assert(sizeof(SQLWCHAR) == sizeof(char16_t), "the driver manager's texts are UTF-16");

/// Longer texts are bound as a type of their own: some servers limit the plain one.
constexpr std::size_t kLongText = 4000;
/// Longer ones are no value of the engine; servers would close the link over them.
constexpr std::size_t kLongestText = 1'000'000;

OdbcFailure refused(DatabaseError kind, std::string description)
{
    OdbcFailure failure;
    failure.kind = kind;
    failure.description = std::move(description);
    return failure;
}

/// The driver for SQL Server has one state for most of its errors; the numbers tell them apart.
std::optional<DatabaseError> kind_of_number(std::int32_t native)
{
    switch (native) {
    case 18456:
        return DatabaseError::LogonFailed;
    case 208:
        return DatabaseError::MissingTable;
    case 229:  // no right to
    case 1205: // deadlock
    case 1222: // a lock of another session
        return DatabaseError::Unspecified;
    default:
        return std::nullopt;
    }
}

DatabaseError kind_of(const std::string& state, std::int32_t native)
{
    if (const auto kind = kind_of_number(native)) {
        return *kind;
    }
    const auto group = state.substr(0, 2);
    if (group == "28") {
        return DatabaseError::LogonFailed;
    }
    if (group == "23") {
        return DatabaseError::Constraint;
    }
    if (state == "42S02" || state == "42P01") {
        return DatabaseError::MissingTable;
    }
    if (group == "42" && state != "42501") { // the latter: no right to
        return DatabaseError::Syntax;
    }
    return state == "HYT00" || state == "57014" ? DatabaseError::Timeout : DatabaseError::Unspecified;
}

bool is_lost_link(const std::string& state)
{
    return state.starts_with("08") || state == "HYT01" || state.starts_with("57P");
}

/// Locks, deadlocks, full disks, limits.
bool is_passing(const std::string& state, std::int32_t native)
{
    constexpr std::array kGroups{"40", "53", "55", "57", "58", "HYT"};
    constexpr std::array kNumbers{1205, 1213, 1222, 1021, 1114, 3, 28};
    return std::any_of(kGroups.begin(), kGroups.end(), [&](const char* each) {
        return state.starts_with(each);
    }) || std::find(kNumbers.begin(), kNumbers.end(), native) != kNumbers.end();
}

SQL_TIMESTAMP_STRUCT timestamp(DateTime date)
{
    const auto civil = date.civil();
    return {static_cast<SQLSMALLINT>(civil.year), static_cast<SQLUSMALLINT>(civil.month),
        static_cast<SQLUSMALLINT>(civil.day), static_cast<SQLUSMALLINT>(civil.hour),
        static_cast<SQLUSMALLINT>(civil.minute), static_cast<SQLUSMALLINT>(civil.second), 0};
}

} // namespace

OdbcFailure odbc_failure(SQLSMALLINT handle_type, SQLHANDLE handle)
{
    std::array<SQLWCHAR, 6> state{};
    std::u16string text(1000, u'\0');
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    OdbcFailure failure;
    if (!SQL_SUCCEEDED(SQLGetDiagRecW(handle_type, handle, 1, state.data(), &native, odbc_text(text),
            static_cast<SQLSMALLINT>(text.size()), &length))) {
        failure.description = "The database driver gives no reason for a failure";
        return failure;
    }
    text.resize((std::min)(text.size(), static_cast<std::size_t>(length)));
    failure.state.assign(state.begin(), state.end() - 1);
    failure.native = native;
    failure.description = narrow(text);
    failure.kind = kind_of(failure.state, native);
    // Some drivers have no state of its own for it.
    if (failure.description.find("authentication failed") != std::string::npos) {
        failure.kind = DatabaseError::LogonFailed;
    }
    failure.link_lost = is_lost_link(failure.state);
    failure.passing = failure.link_lost || is_passing(failure.state, native);
    return failure;
}

SQLPOINTER odbc_number(SQLULEN number)
{
    return reinterpret_cast<SQLPOINTER>(number); // NOLINT(performance-no-int-to-ptr): the library's own way
}

SQLWCHAR* odbc_text(std::u16string& text)
{
    return reinterpret_cast<SQLWCHAR*>(text.data());
}

OdbcParameters::OdbcParameters(const std::vector<std::vector<Value>>& rows) : rows_(rows.size())
{
    columns_.reserve(rows.front().size());
    for (std::size_t i = 0; i < rows.front().size(); ++i) {
        columns_.push_back(column(rows, i));
    }
}

/// Whole and real numbers in one column are all real; anything else that is mixed is text.
OdbcParameters::Type OdbcParameters::type_of(
    const std::vector<std::vector<Value>>& rows, std::size_t position)
{
    std::array<bool, std::variant_size_v<Value::Held>> held{};
    std::size_t longest = 0;
    for (const auto& row : rows) {
        held[row[position].held().index()] = true;
        if (const auto* text = std::get_if<std::string>(&row[position].held())) {
            longest = (std::max)(longest, text->size());
        }
    }
    const auto [null, whole, real, text, date] = held;
    if (text || (date && (whole || real))) {
        return longest > kLongText ? Type::LongText : Type::Text;
    }
    return real ? Type::Real : whole ? Type::Whole : date ? Type::Date : Type::Text;
}

OdbcParameters::Column OdbcParameters::column(
    const std::vector<std::vector<Value>>& rows, std::size_t position)
{
    Column column;
    column.type = type_of(rows, position);
    if (column.type == Type::Text || column.type == Type::LongText) {
        fill_texts(column, rows, position);
        return column;
    }
    for (const auto& row : rows) {
        const auto& value = row[position];
        column.lengths.push_back(value.is_null() ? SQL_NULL_DATA : 0);
        if (column.type == Type::Whole) {
            const auto* number = std::get_if<std::int64_t>(&value.held());
            column.whole.push_back(number == nullptr ? 0 : *number);
        } else if (column.type == Type::Real) {
            column.real.push_back(value.is_null() ? 0 : value.number());
        } else {
            column.date.push_back(timestamp(value.is_null() ? DateTime{} : value.date()));
        }
    }
    return column;
}

void OdbcParameters::fill_texts(
    Column& column, const std::vector<std::vector<Value>>& rows, std::size_t position)
{
    std::vector<std::u16string> texts;
    texts.reserve(rows.size());
    for (const auto& row : rows) {
        auto& text = texts.emplace_back(wide(row[position].text()));
        if (text.size() > kLongestText) {
            throw refused(DatabaseError::Syntax, "A text of more than 1,000,000 characters is too long");
        }
        if (text.find(u'\0') != std::u16string::npos) {
            throw refused(DatabaseError::Constraint, "A text with a NUL character cannot be stored");
        }
        column.width = (std::max)(column.width, text.size());
        column.lengths.push_back(
            row[position].is_null() ? SQL_NULL_DATA : static_cast<SQLLEN>(text.size() * sizeof(char16_t)));
    }
    column.text.resize(column.width * rows.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        std::copy(texts[i].begin(), texts[i].end(),
            column.text.begin() + static_cast<std::ptrdiff_t>(i * column.width));
    }
}

std::string OdbcParameters::types() const
{
    std::string types;
    for (const auto& column : columns_) {
        types += static_cast<char>(column.type);
    }
    return types;
}

void OdbcParameters::bind(SQLHSTMT statement) const
{
    SQLSetStmtAttrW(statement, SQL_ATTR_PARAMSET_SIZE, odbc_number(rows_), 0);
    SQLUSMALLINT number = 0;
    for (auto& column : columns_) {
        const auto bind = [&](SQLSMALLINT c_type, SQLSMALLINT type, SQLULEN size, void* data,
                              std::size_t width) {
            SQLBindParameter(statement, ++number, SQL_PARAM_INPUT, c_type, type, size, 0, data,
                static_cast<SQLLEN>(width), column.lengths.data());
        };
        switch (column.type) {
        case Type::Whole:
            bind(SQL_C_SBIGINT, SQL_BIGINT, 0, column.whole.data(), sizeof(std::int64_t));
            break;
        case Type::Real:
            bind(SQL_C_DOUBLE, SQL_DOUBLE, 0, column.real.data(), sizeof(double));
            break;
        case Type::Date:
            bind(SQL_C_TYPE_TIMESTAMP, SQL_TYPE_TIMESTAMP, 19, column.date.data(),
                sizeof(SQL_TIMESTAMP_STRUCT));
            break;
        case Type::Text:
        case Type::LongText:
            bind(SQL_C_WCHAR, column.type == Type::Text ? SQL_WVARCHAR : SQL_WLONGVARCHAR, column.width,
                column.text.data(), column.width * sizeof(char16_t));
            break;
        }
    }
}

OdbcStatement::OdbcStatement(SQLHANDLE link)
{
    SQLHANDLE handle = SQL_NULL_HANDLE;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, link, &handle))) {
        throw odbc_failure(SQL_HANDLE_DBC, link);
    }
    handle_.reset(handle);
}

OdbcStatement::OdbcStatement(SQLHANDLE link, const std::string& sql) : OdbcStatement(link)
{
    auto text = wide(sql);
    check(SQLPrepareW(handle_.get(), odbc_text(text), static_cast<SQLINTEGER>(text.size())));
}

void OdbcStatement::run(const std::string& sql)
{
    auto text = wide(sql);
    const auto code = SQLExecDirectW(handle_.get(), odbc_text(text), static_cast<SQLINTEGER>(text.size()));
    if (code != SQL_NO_DATA) { // nothing was changed
        check(code);
    }
}

std::int64_t OdbcStatement::execute(const OdbcParameters& parameters)
{
    row_states_.assign(parameters.rows(), SQL_PARAM_SUCCESS);
    SQLSetStmtAttrW(handle_.get(), SQL_ATTR_PARAM_STATUS_PTR, row_states_.data(), 0);
    parameters.bind(handle_.get());
    const auto code = SQLExecute(handle_.get());
    if (code == SQL_NO_DATA) { // no row met the condition
        return 0;
    }
    check(code);
    // An array may fail in parts and be called a success with information.
    if (std::find(row_states_.begin(), row_states_.end(), SQL_PARAM_ERROR) != row_states_.end()) {
        throw odbc_failure(SQL_HANDLE_STMT, handle_.get());
    }
    SQLLEN changed = 0;
    SQLRowCount(handle_.get(), &changed);
    return changed;
}

ResultSet OdbcStatement::fetch()
{
    auto columns = column_count();
    while (columns == 0 && SQL_SUCCEEDED(SQLMoreResults(handle_.get()))) {
        columns = column_count();
    }
    ResultSet result;
    if (columns == 0) {
        return result;
    }
    std::vector<Kind> kinds;
    for (SQLUSMALLINT i = 1; i <= columns; ++i) {
        kinds.push_back(describe(i, result.columns.emplace_back()));
    }
    for (auto code = SQLFetch(handle_.get()); code != SQL_NO_DATA; code = SQLFetch(handle_.get())) {
        check(code);
        auto& row = result.rows.emplace_back();
        row.reserve(kinds.size());
        for (std::size_t i = 0; i < kinds.size(); ++i) {
            row.push_back(read(static_cast<SQLUSMALLINT>(i + 1), kinds[i]));
        }
    }
    return result;
}

void OdbcStatement::finish()
{
    SQLFreeStmt(handle_.get(), SQL_CLOSE);
    SQLFreeStmt(handle_.get(), SQL_RESET_PARAMS);
}

std::int16_t OdbcStatement::column_count()
{
    SQLSMALLINT count = 0;
    check(SQLNumResultCols(handle_.get(), &count));
    return count;
}

OdbcStatement::Kind OdbcStatement::describe(SQLUSMALLINT column, std::string& name)
{
    std::u16string text(256, u'\0');
    SQLSMALLINT length = 0;
    SQLSMALLINT type = 0;
    SQLULEN size = 0;
    SQLSMALLINT digits = 0;
    SQLSMALLINT nullable = 0;
    check(SQLDescribeColW(handle_.get(), column, odbc_text(text), static_cast<SQLSMALLINT>(text.size()),
        &length, &type, &size, &digits, &nullable));
    text.resize(static_cast<std::size_t>(length));
    name = narrow(text);
    switch (type) {
    case SQL_BIT:
    case SQL_TINYINT:
    case SQL_SMALLINT:
    case SQL_INTEGER:
    case SQL_BIGINT:
        return Kind::Whole;
    case SQL_REAL:
    case SQL_FLOAT:
    case SQL_DOUBLE:
    case SQL_NUMERIC:
    case SQL_DECIMAL:
        return Kind::Real;
    case SQL_TYPE_DATE:
    case SQL_TYPE_TIMESTAMP:
        return Kind::Date;
    default:
        return Kind::Text;
    }
}

Value OdbcStatement::read(SQLUSMALLINT column, Kind kind)
{
    SQLLEN length = 0;
    const auto get = [&](SQLSMALLINT c_type, void* data, std::size_t size) {
        check(SQLGetData(handle_.get(), column, c_type, data, static_cast<SQLLEN>(size), &length));
        return length != SQL_NULL_DATA;
    };
    switch (kind) {
    case Kind::Whole: {
        SQLBIGINT number = 0;
        return get(SQL_C_SBIGINT, &number, sizeof number) ? Value(static_cast<std::int64_t>(number))
                                                          : Value();
    }
    case Kind::Real: {
        double number = 0;
        return get(SQL_C_DOUBLE, &number, sizeof number) ? Value(number) : Value();
    }
    case Kind::Date: {
        SQL_TIMESTAMP_STRUCT at{};
        return get(SQL_C_TYPE_TIMESTAMP, &at, sizeof at)
            ? Value(DateTime::from_civil({at.year, at.month, at.day, at.hour, at.minute, at.second}))
            : Value();
    }
    case Kind::Text:
        break;
    }
    return read_text(column);
}

Value OdbcStatement::read_text(SQLUSMALLINT column)
{
    std::u16string text;
    std::u16string piece(512, u'\0');
    for (;;) {
        SQLLEN length = 0;
        const auto code = SQLGetData(handle_.get(), column, SQL_C_WCHAR, piece.data(),
            static_cast<SQLLEN>(piece.size() * sizeof(char16_t)), &length);
        if (code == SQL_NO_DATA) {
            break;
        }
        check(code);
        if (length == SQL_NULL_DATA) {
            return {};
        }
        const auto room = piece.size() - 1; // the last one is a NUL
        const auto units =
            length == SQL_NO_TOTAL ? room : static_cast<std::size_t>(length) / sizeof(char16_t);
        text.append(piece, 0, (std::min)(units, room));
        if (code == SQL_SUCCESS) {
            break;
        }
    }
    return {narrow(text)};
}

void OdbcStatement::check(SQLRETURN code)
{
    if (!SQL_SUCCEEDED(code)) {
        throw odbc_failure(SQL_HANDLE_STMT, handle_.get());
    }
}

} // namespace qz::platform
