// A database connection that remembers whether the database itself has failed: most failures are trapped and
// reported where they happen, yet a turn that has to be stored as a whole must know of each.
#pragma once

#include "base/EngineError.h"
#include "platform/database/Connection.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace qz::store {

class CarefulConnection final : public platform::Connection {
public:
    /// @param troubled  set by each failure of the database; outlives the connection.
    CarefulConnection(std::unique_ptr<platform::Connection> inner, bool& troubled)
        : inner_(std::move(inner)), troubled_(troubled)
    {
    }

    void Open(const std::string& connection_string) override
    {
        noting([&] { inner_->Open(connection_string); });
    }
    void Close() override { inner_->Close(); }
    platform::ConnectionState State() const override { return inner_->State(); }
    void Execute(const std::string& sql) override
    {
        noting([&] { inner_->Execute(sql); });
    }
    void perform(
        const platform::Statement& statement, std::initializer_list<std::string_view> values) override
    {
        noting([&] { inner_->perform(statement, values); });
    }
    bool finds(const platform::Statement& statement, std::initializer_list<std::string_view> values) override
    {
        return noting([&] { return inner_->finds(statement, values); });
    }
    platform::ResultSet query(const std::string& sql) override
    {
        return noting([&] { return inner_->query(sql); });
    }
    void visit(const std::string& sql, const platform::RowVisitor& visitor) override
    {
        noting([&] { inner_->visit(sql, visitor); });
    }
    platform::ResultSet describe(const std::string& sql) override
    {
        return noting([&] { return inner_->describe(sql); });
    }
    std::int64_t insert_row(const platform::Table& table, const platform::RowChange& row) override
    {
        return noting([&] { return inner_->insert_row(table, row); });
    }
    std::int64_t add_row(const platform::Table& table, const platform::RowChange& row) override
    {
        return noting([&] { return inner_->add_row(table, row); });
    }
    void update_row(const platform::Table& table, std::int64_t key, const platform::RowChange& row) override
    {
        noting([&] { inner_->update_row(table, key, row); });
    }
    void delete_row(const platform::Table& table, std::int64_t key) override
    {
        noting([&] { inner_->delete_row(table, key); });
    }
    void end_turn() override { inner_->end_turn(); }
    void abandon_turn() override { inner_->abandon_turn(); }
    std::uint64_t change_mark(const platform::Table& table) override
    {
        return noting([&] { return inner_->change_mark(table); });
    }
    std::uint64_t own_changes(const platform::Table& table) const override
    {
        return inner_->own_changes(table);
    }
    std::string description() const override { return inner_->description(); }
    std::vector<std::string> take_notices() override { return inner_->take_notices(); }
    platform::Maintenance& maintenance() override { return inner_->maintenance(); }

private:
    template <typename Work> std::invoke_result_t<Work> noting(Work work)
    {
        try {
            return work();
        } catch (const EngineError& failure) { // seen in passing; whoever asked reports it
            troubled_ = troubled_ || is_of_database(failure);
            throw;
        }
    }
    /// A failure of the database, which may be over the next time, as opposed to one of what was asked.
    static bool is_of_database(const EngineError& failure)
    {
        constexpr std::array kTroubles{DatabaseError::Unspecified, DatabaseError::Timeout,
            DatabaseError::LogonFailed, DatabaseError::ConnectionClosed, DatabaseError::NoConnection};
        return std::any_of(kTroubles.begin(), kTroubles.end(),
            [&](DatabaseError each) { return failure.number() == number_of(each); });
    }

    std::unique_ptr<platform::Connection> inner_;
    bool& troubled_;
};

} // namespace qz::store
