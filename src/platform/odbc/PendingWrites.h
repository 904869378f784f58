// Writes that wait for the end of the turn, so that many of one kind go to the server together.
#pragma once

#include "platform/odbc/OdbcSession.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace qz::platform {

/// Writes of one kind are joined where their order does not matter. Bounded: what comes when it is full is
/// the caller's loss.
class PendingWrites {
public:
    struct Write {
        std::string table; // in lower case
        Step step;
        std::vector<std::string> changed_columns; // of an update, in lower case
        std::vector<std::int64_t> keys;           // of the updated rows
    };

    bool empty() const { return writes_.empty(); }
    bool full() const;
    void add_insert(std::string table, const std::string& sql, std::vector<Value> values);
    /// @param step  of one row.
    void add_update(std::string table, const Step& step, std::vector<std::string> columns, std::int64_t key);
    /// Puts writes back in front of the others.
    void put_back(std::vector<Write> writes);
    std::vector<Write> take();
    bool updates(const std::string& table, std::int64_t key) const { return updated_.contains({table, key}); }
    const std::deque<Write>& all() const { return writes_; }

private:
    Write& place_for(std::string table, const std::string& sql);

    std::deque<Write> writes_;
    std::set<std::pair<std::string, std::int64_t>> updated_;
    std::set<std::pair<std::string, std::int64_t>> updated_joinable_; // by writes that others may join
    std::size_t joinable_from_ = 0;
    std::size_t rows_ = 0;
};

} // namespace qz::platform
