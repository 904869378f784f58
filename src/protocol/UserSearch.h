// Finds users by a part of their names.
#pragma once

#include "protocol/Values.h"
#include "store/Directory.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qz::protocol {

/// A search goes once through the names of all users, which stand in one text for it: some tens of
/// nanoseconds for each account. The text is made again when the names have changed.
class UserSearch {
public:
    explicit UserSearch(const store::Directory& directory) : directory_(directory) { }

    /// Enabled accounts whose screen, first or last name holds the text, in any letter case: the three names.
    /// An empty text finds nothing.
    ListText find(std::string_view text);

private:
    struct User {
        const store::UserRecord* record;
        std::size_t end;   // of the user's names in names_
        std::string entry; // of the list
    };
    void read_names();

    const store::Directory& directory_;
    std::optional<std::uint64_t> version_; // of the names that were read
    std::string names_;                    // in lower case, each with a NUL behind it
    std::vector<User> users_;
};

} // namespace qz::protocol
