// What a statement is given, and what a query gives.
#pragma once

#include "platform/database/ColumnFinder.h"
#include "platform/database/Connection.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qz::store {

/// A text as the interface joins it into a statement, between two quotes: '' in it is one quote, and a lone
/// quote, or a NUL, makes the statement fail as a syntax error.
struct Quoted {
    std::string_view text;
};

/// A whole literal as the interface joins it into a statement: a number, or a text with its quotes around it.
/// Anything else makes the statement fail as a syntax error.
struct Literal {
    std::string_view text;
};

/// The value of one parameter, and how it stands in the stated text.
class Parameter {
public:
    Parameter(Quoted quoted);
    Parameter(Literal literal);
    template <typename Plain> Parameter(Plain plain) : value_(std::in_place, std::move(plain)) { }

    /// @throws EngineError what syntax_error gives when the statement is refused for this value.
    platform::Value take_value(const platform::Statement& statement);

private:
    std::optional<platform::Value> value_;
};

/// The stated text of a statement with values joined into it exactly as they were given, for reports.
/// There must be as many values as places.
std::string stated_text(const platform::Statement& statement, std::initializer_list<std::string_view> values);

/// What a statement gives that is refused for its values: error 0x80040E14, which quotes only the first
/// words of the stated text.
EngineError syntax_error(const platform::Statement& statement);

/// All rows of a query.
class Rows {
public:
    /// Belongs to its rows.
    class Row {
    public:
        /// A field; names ignore case.
        /// @throws EngineError 3265 when there is no such column.
        const platform::Value& operator[](std::string_view name) const
        {
            return rows_->result_.rows[index_][rows_->finder_.find(rows_->result_.columns, name)];
        }
        /// The row's key in the statement's table.
        std::int64_t key() const
        {
            return static_cast<std::int64_t>((*this)[rows_->statement_->table->key].number());
        }

    private:
        friend class Rows;
        Row(const Rows& rows, std::size_t index) : rows_(&rows), index_(index) { }
        const Rows* rows_;
        std::size_t index_;
    };

    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = Row;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = Row;
        Iterator(const Rows& rows, std::size_t index) : rows_(&rows), index_(index) { }
        Row operator*() const { return {*rows_, index_}; }
        Iterator& operator++()
        {
            ++index_;
            return *this;
        }
        bool operator==(const Iterator&) const = default;

    private:
        const Rows* rows_;
        std::size_t index_;
    };

    Rows(const platform::Statement& statement, platform::ResultSet result)
        : statement_(&statement), result_(std::move(result))
    {
    }

    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, result_.rows.size()}; }
    bool empty() const { return result_.rows.empty(); }
    std::size_t size() const { return result_.rows.size(); }
    /// @throws EngineError 3021 when there is no row.
    Row front() const;

private:
    const platform::Statement* statement_;
    platform::ResultSet result_;
    mutable platform::ColumnFinder finder_;
};

} // namespace qz::store
