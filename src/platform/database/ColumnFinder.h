// Where in a row a field stands.
#pragma once

#include "base/EngineError.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qz::platform {

/// Names of columns are plain letters, so no alphabets come into it.
inline bool same_column_name(std::string_view left, std::string_view right)
{
    const auto fold = [](char c) {
        return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c;
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
        [&](char l, char r) { return fold(l) == fold(r); });
}

/// Finds columns by their names, which ignore case. Fields are mostly asked for in the order of the columns,
/// so a search begins behind the column that was found last.
class ColumnFinder {
public:
    /// @throws EngineError 3265 when there is no such column.
    std::size_t find(const std::vector<std::string>& columns, std::string_view name)
    {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const auto position = (next_ + i) % columns.size();
            if (same_column_name(columns[position], name)) {
                next_ = position + 1;
                return position;
            }
        }
        throw database_error(DatabaseError::NoSuchField,
            "Item cannot be found in the collection corresponding to the requested name or ordinal.");
    }

private:
    std::size_t next_ = 0;
};

} // namespace qz::platform
