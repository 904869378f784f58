// Values that wait for their statement, packed: thousands of them are held at once, of which most are short
// texts and times that are the same again and again.
#pragma once

#include "base/DateTime.h"
#include "platform/database/Value.h"
#include "platform/sqlite/SqliteDatabase.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>

namespace qz::platform {

/// A value in few bytes.
struct SqliteCell {
    enum class Type : std::uint8_t { Null, Whole, Real, Text, Time };
    Type type = Type::Null;
    std::uint32_t size = 0; // of a text
    /// The value; the bits of a real number; the seconds of a time; for a text, where it begins among those
    /// of the SqliteCells that made it.
    std::int64_t content = 0;
};

class SqliteCells {
public:
    SqliteCell cell(const Value& value);
    static SqliteCell cell(DateTime time);
    Value value(const SqliteCell& cell) const;
    /// Whether two cells hold the same.
    bool same(const SqliteCell& left, const SqliteCell& right) const;
    /// No cell may be made from here to the end of the statement's run.
    void bind(SqliteStatement& statement, int parameter, const SqliteCell& cell);

    /// Bytes of all texts.
    std::size_t size() const { return texts_.size(); }
    /// From here on, no cell that was made before may be used.
    void clear();

private:
    SqliteCell cell(std::string_view text);
    std::string_view text(const SqliteCell& cell) const
    {
        return std::string_view(texts_).substr(static_cast<std::size_t>(cell.content), cell.size);
    }
    std::string_view text_of(DateTime time);

    std::string texts_;
    std::deque<std::pair<DateTime, std::string>> times_; // texts of dates, as long as they are bound
};

} // namespace qz::platform
