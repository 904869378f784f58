// A database connection whose statements a test sees first, and may fail.
#pragma once

#include "platform/database/Connection.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qz::test {

/// Hears every text before it runs ("OPEN", "EDIT" and "END OF TURN" for what has none), and "TURN STORED"
/// after a turn was; what it throws is the statement's failure.
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
    void Execute(const std::string& sql) override
    {
        tell(sql);
        inner_->Execute(sql);
    }
    void perform(
        const platform::Statement& statement, std::initializer_list<std::string_view> values) override
    {
        tell(platform::fill(statement, values));
        inner_->perform(statement, values);
    }
    bool finds(const platform::Statement& statement, std::initializer_list<std::string_view> values) override
    {
        tell(platform::fill(statement, values));
        return inner_->finds(statement, values);
    }
    platform::ResultSet query(const std::string& sql) override
    {
        tell(sql);
        return inner_->query(sql);
    }
    void visit(const std::string& sql, const platform::RowVisitor& visitor) override
    {
        tell(sql);
        inner_->visit(sql, visitor);
    }
    platform::ResultSet describe(const std::string& sql) override { return inner_->describe(sql); }
    std::int64_t insert_row(const platform::Table& table, const platform::RowChange& row) override
    {
        tell("EDIT");
        return inner_->insert_row(table, row);
    }
    std::int64_t add_row(const platform::Table& table, const platform::RowChange& row) override
    {
        tell("EDIT");
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
    void end_turn() override
    {
        tell("END OF TURN");
        inner_->end_turn();
        tell("TURN STORED");
    }
    void abandon_turn() override { inner_->abandon_turn(); }
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

    std::unique_ptr<platform::Connection> inner_;
    const StatementWatch& watch_;
};

} // namespace qz::test
