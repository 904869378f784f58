#include "platform/odbc/OdbcSession.h"

#include "base/Text.h"
#include "platform/odbc/ArrayText.h"
#include "platform/odbc/WideText.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
#include <utility>

namespace qz::platform {

namespace {

constexpr SQLULEN kConnectSeconds = 8;

/// Rows in one text: few sizes, so that each is prepared once. No server takes more than 2,100 parameters.
constexpr std::array<std::size_t, 7> kPieces{128, 64, 32, 16, 8, 4, 2};

/// Sets up the session, a transaction or tables. Prepared, it would be a procedure to SQL Server, which takes
/// settings back at the end of one and refuses to begin a transaction in it.
bool runs_directly(const std::string& sql)
{
    constexpr std::array<std::string_view, 4> kPrepared{"select", "insert", "update", "delete"};
    const auto begin = lower(sql.substr(0, 6));
    return std::find(kPrepared.begin(), kPrepared.end(), begin) == kPrepared.end();
}

std::string text_for(const ManyRows& many, std::size_t rows)
{
    auto text = many.head + many.row;
    for (std::size_t i = 1; i < rows; ++i) {
        text += ", " + many.row;
    }
    return text + many.tail;
}

} // namespace

OdbcSession::OdbcSession(const std::string& connection_string, std::shared_ptr<OdbcStop> stop,
    std::shared_ptr<StatementTrace> trace)
    : stop_(std::move(stop)), trace_(std::move(trace))
{
    SQLHANDLE handle = SQL_NULL_HANDLE;
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &handle);
    environment_.reset(handle);
    // The driver manager takes numbers in the place of pointers here, and ODBC's own macros cast them.
    SQLSetEnvAttr(environment_.get(), SQL_ATTR_ODBC_VERSION, odbc_number(SQL_OV_ODBC3), 0);
    handle = SQL_NULL_HANDLE;
    SQLAllocHandle(SQL_HANDLE_DBC, environment_.get(), &handle);
    link_.reset(handle);
    SQLSetConnectAttrW(link_.get(), SQL_ATTR_LOGIN_TIMEOUT, odbc_number(kConnectSeconds), 0);
    auto text = wide(connection_string);
    const auto code = SQLDriverConnectW(link_.get(), nullptr, odbc_text(text),
        static_cast<SQLSMALLINT>(text.size()), nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT);
    if (!SQL_SUCCEEDED(code)) {
        throw odbc_failure(SQL_HANDLE_DBC, link_.get());
    }
}

Outcome OdbcSession::run(const std::vector<Step>& steps)
{
    Outcome outcome;
    try {
        for (const auto& step : steps) {
            if (trace_) {
                run_traced(step, outcome);
            } else {
                run(step, outcome);
            }
            ++outcome.done;
        }
    } catch (const OdbcFailure& failure) {
        outcome.failure = failure;
        SQLUINTEGER dead = SQL_CD_FALSE;
        // A link may die with a state that is only a warning.
        if (SQL_SUCCEEDED(SQLGetConnectAttrW(link_.get(), SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr))
            && dead == SQL_CD_TRUE) {
            outcome.failure->link_lost = true;
        }
    }
    return outcome;
}

void OdbcSession::run_traced(const Step& step, Outcome& outcome)
{
    const auto start = std::chrono::steady_clock::now();
    const auto tell = [&](std::string_view error) {
        trace_->ran(
            {step.sql, step.rows.front(), step.rows.size(), std::chrono::steady_clock::now() - start, error});
    };
    try {
        run(step, outcome);
    } catch (const OdbcFailure& failure) {
        tell(failure.description);
        throw;
    }
    tell({});
}

void OdbcSession::run(const Step& step, Outcome& outcome)
{
    if (step.rows.size() == 1 || !step.many) {
        run(step.sql, step.rows, outcome);
    } else if (step.many->arrays.empty()) {
        run_in_pieces(step, *step.many, outcome);
    } else {
        for (const auto& columns : as_arrays(step.rows)) {
            run(step.many->arrays, {columns}, outcome);
        }
    }
}

void OdbcSession::run_in_pieces(const Step& step, const ManyRows& many, Outcome& outcome)
{
    auto row = step.rows.begin();
    while (row != step.rows.end()) {
        const auto left = static_cast<std::size_t>(step.rows.end() - row);
        const auto fitting =
            std::find_if(kPieces.begin(), kPieces.end(), [&](std::size_t each) { return each <= left; });
        const auto size = fitting == kPieces.end() ? 1 : *fitting;
        std::vector<Value> values;
        for (const auto end = row + static_cast<std::ptrdiff_t>(size); row != end; ++row) {
            values.insert(values.end(), row->begin(), row->end());
        }
        run(size == 1 ? step.sql : text_for(many, size), {std::move(values)}, outcome);
    }
}

void OdbcSession::run(const std::string& sql, const std::vector<std::vector<Value>>& rows, Outcome& outcome)
{
    stop_->check();
    if (rows.front().empty() && runs_directly(sql)) {
        OdbcStatement statement(link_.get());
        const OdbcStop::Running running(*stop_, statement.handle());
        statement.run(sql);
        outcome.changed_rows = 0;
        outcome.result = {};
        return;
    }
    const OdbcParameters parameters(rows);
    auto& prepared = prepared_[sql + '\n' + parameters.types()];
    if (!prepared) {
        prepared = std::make_unique<OdbcStatement>(link_.get(), sql);
    }
    try {
        const OdbcStop::Running running(*stop_, prepared->handle());
        outcome.changed_rows = prepared->execute(parameters);
        outcome.result = prepared->fetch();
        prepared->finish();
    } catch (const OdbcFailure&) {
        prepared.reset(); // drivers differ in what a failure leaves of it
        throw;
    }
}

std::string OdbcSession::information(SQLUSMALLINT what) const
{
    std::u16string text(256, u'\0');
    SQLSMALLINT bytes = 0;
    if (!SQL_SUCCEEDED(SQLGetInfoW(link_.get(), what, odbc_text(text),
            static_cast<SQLSMALLINT>(text.size() * sizeof(char16_t)), &bytes))) {
        return {};
    }
    text.resize(static_cast<std::size_t>(bytes) / sizeof(char16_t));
    return narrow(text);
}

} // namespace qz::platform
