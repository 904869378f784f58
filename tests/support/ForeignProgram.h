// Another program that shares the engine's database file.
#pragma once

#include "base/Text.h"
#include "support/DatabaseServer.h"
#include "support/MemoryDatabase.h"

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qz::test {

/// Sees what the engine has committed; what it writes is committed at once.
class ForeignProgram {
public:
    ForeignProgram(const std::filesystem::path& file, const Clock& clock)
    {
        platform::ConnectionOptions options;
        options.database_file = file;
        options.overrides = store::all_overrides();
        connection_ = make_test_connection(options, clock);
        connection_->Open("");
    }

    /// On a database server, as it is.
    ForeignProgram(DatabaseServer& server, const Clock& /*clock*/)
    {
        platform::ConnectionOptions options;
        options.overrides = store::all_overrides();
        connection_ = make_server_connection(server, options, {}, false);
        connection_->Open("");
    }

    std::int64_t add(const platform::Table& table, Fields fields)
    {
        const auto key = add_row(*connection_, table, fields);
        connection_->commit();
        return key;
    }
    void change(const platform::Table& table, std::int64_t key, Fields fields)
    {
        connection_->update_row(table, key, row_with(fields));
        connection_->commit();
    }
    void remove(const platform::Table& table, std::int64_t key)
    {
        connection_->delete_row(table, key);
        connection_->commit();
    }
    std::size_t count(const platform::Table& table)
    {
        connection_->commit(); // a transaction may believe what it has read
        return rows_of(*connection_, table).rows.size();
    }
    /// The fields of every row, oldest row first, joined by "|"; a null is "NULL".
    std::vector<std::string> rows(
        const platform::Table& table, std::initializer_list<std::string_view> columns)
    {
        connection_->commit();
        const auto result = rows_of(*connection_, table);
        std::vector<std::string> lines;
        for (const auto& row : result.rows) {
            std::string line;
            for (const auto column : columns) {
                const auto place = std::find_if(result.columns.begin(), result.columns.end(),
                    [&](const std::string& each) { return equal_ignoring_case(each, column); });
                const auto& value = row.at(static_cast<std::size_t>(place - result.columns.begin()));
                line += (line.empty() ? "" : "|") + (value.is_null() ? "NULL" : value.text());
            }
            lines.push_back(line);
        }
        return lines;
    }

private:
    std::unique_ptr<platform::Connection> connection_;
};

} // namespace qz::test
