// Reads the records of the directory from rows of their tables.
#pragma once

#include "platform/database/ColumnFinder.h"
#include "platform/database/Value.h"
#include "store/Records.h"

#include <string>
#include <string_view>
#include <vector>

namespace qz::store {

/// The row at hand while a query is read.
struct Row {
    const platform::Value& operator[](std::string_view name) const
    {
        return values[finder.find(columns, name)];
    }

    platform::ColumnFinder& finder;
    const std::vector<std::string>& columns;
    const std::vector<platform::Value>& values;
};

// A null leaves the record's field empty; only the key column is read without that test.
void read(const Row& row, UserRecord& user);
void read(const Row& row, BuddyRecord& buddy);
void read(const Row& row, RoomRecord& room);

} // namespace qz::store
