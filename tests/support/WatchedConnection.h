// A database connection whose statements a test sees first, and may fail.
#pragma once

#include "base/Text.h"
#include "platform/database/Connection.h"
#include "store/Statements.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace qz::test {

/// Called with the stated text of each statement before it runs, of a row added to the log with that of its
/// statement, otherwise with "OPEN", "EDIT" (of a row) and "END OF TURN", and with "TURN STORED" after a
/// commit; what it throws is the statement's failure.
using StatementWatch = std::function<void(const std::string& sql)>;

class WatchedConnection final : public platform::Connection {
public:
    /// @param watch  outlives the connection; may be set and cleared at any time.
    WatchedConnection(std::unique_ptr<platform::Connection> inner, const StatementWatch& watch)
        : inner_(std::move(inner)), watch_(watch)
    {
    }

    void Open(const std::string& connection_string) override
    {
        tell("OPEN");
        inner_->Open(connection_string);
    }
    void Close() override { inner_->Close(); }
    platform::ConnectionState State() const override { return inner_->State(); }
    void run(const platform::Statement& statement, platform::Parameters values) override
    {
        tell(statement, values);
        inner_->run(statement, values);
    }
    platform::ResultSet query(const platform::Statement& statement, platform::Parameters values) override
    {
        tell(statement, values);
        return inner_->query(statement, values);
    }
    bool finds(const platform::Statement& statement, platform::Parameters values) override
    {
        tell(statement, values);
        return inner_->finds(statement, values);
    }
    void visit(const platform::Statement& statement, platform::Parameters values,
        const platform::RowVisitor& visitor) override
    {
        tell(statement, values);
        inner_->visit(statement, values, visitor);
    }
    std::int64_t insert_row(const platform::Table& table, const platform::RowChange& row) override
    {
        tell("EDIT");
        return inner_->insert_row(table, row);
    }
    std::int64_t add_row(const platform::Table& table, const platform::RowChange& row) override
    {
        if (table.name == store::tables::kLog.name) {
            tell(store::statements::kInsertLogRow, row.values);
        } else {
            tell("EDIT");
        }
        return inner_->add_row(table, row);
    }
    void update_row(const platform::Table& table, std::int64_t key, const platform::RowChange& row) override
    {
        tell("EDIT");
        inner_->update_row(table, key, row);
    }
    void delete_row(const platform::Table& table, std::int64_t key) override
    {
        tell("EDIT");
        inner_->delete_row(table, key);
    }
    void commit() override
    {
        tell("END OF TURN");
        inner_->commit();
        tell("TURN STORED");
    }
    void rollback() override { inner_->rollback(); }
    std::uint64_t change_mark(const platform::Table& table) override { return inner_->change_mark(table); }
    std::uint64_t own_changes(const platform::Table& table) const override
    {
        return inner_->own_changes(table);
    }
    std::string description() const override { return inner_->description(); }
    std::vector<std::string> take_notices() override { return inner_->take_notices(); }
    platform::Maintenance& maintenance() override { return inner_->maintenance(); }

private:
    void tell(const std::string& sql) const
    {
        if (watch_) {
            watch_(sql);
        }
    }
    void tell(const platform::Statement& statement, platform::Parameters values) const
    {
        if (watch_) {
            watch_(stated_text(statement, values));
        }
    }
    /// The stated text with the values joined into it as literals.
    static std::string stated_text(const platform::Statement& statement, platform::Parameters values)
    {
        constexpr std::string_view kPlace = "{}";
        std::string result;
        auto rest = statement.stated;
        for (const auto& value : values) {
            const auto place = (std::min)(rest.find(kPlace), rest.size());
            result += rest.substr(0, place);
            rest.remove_prefix((std::min)(place + kPlace.size(), rest.size()));
            const auto text = replace_all(value.text(), "'", "''");
            const bool quoted = result.ends_with('\'');
            const bool is_text = std::holds_alternative<std::string>(value.held());
            result += is_text && !quoted ? "'" + text + "'" : text;
        }
        return result.append(rest);
    }

    std::unique_ptr<platform::Connection> inner_;
    const StatementWatch& watch_;
};

} // namespace qz::test
