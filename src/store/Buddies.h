// Entries of buddy lists: adding, deleting, changing them, and clearing away what stands twice.
#pragma once

#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "store/Accounts.h"
#include "store/Database.h"
#include "store/Directory.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace qz::store {

/// A quiet deletion leaves clearing up, reloading and logging to its caller.
enum class Quiet { No, Yes };

class Buddies {
public:
    Buddies(Database& database, Directory& directory, Accounts& accounts,
        const helpers::MessageParser& parser, Journal& journal);

    /// Inserts an entry; the texts go into the statement as they stand. The directory is not reloaded.
    /// @throws EngineError when the insert fails: the request that adds a buddy reports it as its own.
    void insert(const std::string& user_name, const std::string& buddy, const std::string& group);

    /// Number of the owner's entries for the buddy; 0 without a query when either name is empty.
    std::int16_t BuddyDuplicated(const std::string& user_name, const std::string& buddy);
    /// Of entries that stand more than once the oldest stays; when their owner has no account none does.
    /// Costs no query when the tables are unchanged since a pass that found nothing to delete.
    void RemoveDuplicatedBuddies();
    /// The same for one owner's entries of one buddy alone, after one was added: what it costs does not grow
    /// with the table. Both texts go into the statement as they stand; errors are reported under
    /// "RemoveDuplicatedBuddies".
    void remove_duplicates_of(const std::string& user_name, const std::string& buddy);
    /// @param user_name  goes into the statement as it stands.
    void Delete_Buddy(
        const std::string& user_name, const std::string& buddy, const std::string& remote_ip, Quiet quiet);

    // From the directory as it is; the empty text when there is no such entry.
    std::string Retrieve_BuddyGroup(const std::string& user_name, const std::string& buddy) const;
    std::string Retrieve_BuddyPassword(const std::string& user_name, const std::string& buddy) const;

    // Both leave the directory as it is: the old texts are seen until its next load. All texts but the
    // buddy's name in the first go into the statements as they stand.
    bool Update_BuddyDetail(const std::string& user_name, const std::string& buddy, const std::string& group,
        const std::string& comment, const std::string& key, const std::string& remote_ip);
    bool Update_BuddyPassword(const std::string& buddy, const std::string& owner, const std::string& key);

private:
    using Marks = std::pair<std::uint64_t, std::uint64_t>; // of `buddies` and `users`

    bool remove_duplicates(const Rows& rows);

    Database& database_;
    Directory& directory_;
    Accounts& accounts_;
    const helpers::MessageParser& parser_;
    Journal& journal_;
    std::optional<Marks> clean_; // the tables when a pass last found nothing to delete
};

} // namespace qz::store
