#include "store/Buddies.h"

#include "base/Guarded.h"
#include "base/Numbers.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"
#include "store/Statements.h"

namespace qz::store {

Buddies::Buddies(Database& database, Directory& directory, Accounts& accounts,
    const helpers::MessageParser& parser, Journal& journal)
    : database_(database), directory_(directory), accounts_(accounts), parser_(parser), journal_(journal)
{
}

void Buddies::insert(const std::string& user_name, const std::string& buddy, const std::string& group)
{
    directory_.add_buddy(user_name, buddy,
        [&] { database_.run(statements::kInsertBuddy, Quoted{user_name}, Quoted{buddy}, Quoted{group}); });
}

std::int16_t Buddies::BuddyDuplicated(const std::string& user_name, const std::string& buddy)
{
    return guarded(journal_, "BuddyDuplicated", no_address, std::int16_t{0}, [&] {
        if (user_name.empty() || buddy.empty()) {
            return std::int16_t{0};
        }
        const auto rows = database_.query(statements::kCountBuddyEntries,
            Quoted{parser_.CleanText(user_name)}, Quoted{lower(parser_.CleanText(buddy))});
        return rows.empty() ? std::int16_t{0}
                            : to_integer<std::int16_t>(rows.front()["CountOfBuddy"].number());
    });
}

void Buddies::RemoveDuplicatedBuddies()
{
    guarded(journal_, "RemoveDuplicatedBuddies", no_address, [&] {
        // Taken before the rows are read: a change that comes in between makes the next pass look again.
        std::optional<Marks> marks;
        attempt([&] {
            marks.emplace(database_.change_mark(tables::kBuddies), database_.change_mark(tables::kUsers));
        });
        if (marks && marks == clean_) {
            return;
        }
        clean_.reset();
        if (!remove_duplicates(database_.query(statements::kSelectDuplicatedBuddies))) {
            clean_ = marks;
        }
    });
}

void Buddies::remove_duplicates_of(const std::string& user_name, const std::string& buddy)
{
    guarded(journal_, "RemoveDuplicatedBuddies", no_address, [&] {
        if (buddy.empty() && accounts_.ScreenNameExist(user_name)) {
            return; // entries without a name are never counted, and there may be many of them
        }
        const auto rows = database_.query(statements::kSelectBuddyEntries, Quoted{user_name}, Quoted{buddy});
        if (rows.size() > 1) {
            remove_duplicates(rows);
        }
    });
}

/// @return whether anything was deleted.
bool Buddies::remove_duplicates(const Rows& rows)
{
    bool deleted = false;
    for (const auto& row : rows) {
        const auto owner = row["UserName"].text();
        const auto buddy = row["Buddy"].text();
        // The oldest row survives: rows are visited newest first, and counted anew each time.
        if (!accounts_.ScreenNameExist(owner, helpers::protocol_keywords().HostAddress)
            || BuddyDuplicated(owner, buddy) >= 2) {
            const BuddyRecord gone{row["IDBuddies"].integer(), buddy, {}, {}, {}, {}, owner};
            directory_.remove_row(gone, [&] { database_.remove(tables::kBuddies, row.key()); });
            deleted = true;
        }
        database_.require_open();
    }
    return deleted;
}

void Buddies::Delete_Buddy(
    const std::string& user_name, const std::string& buddy, const std::string& remote_ip, Quiet quiet)
{
    guarded(journal_, "Delete_Buddy", remote_ip, [&] {
        const auto clean_buddy = parser_.CleanText(buddy);
        directory_.change_buddy(user_name, clean_buddy,
            [&] { database_.run(statements::kDeleteBuddy, Quoted{user_name}, Quoted{clean_buddy}); });
        if (quiet == Quiet::Yes) {
            return;
        }
        directory_.SetMyBuddies(); // no entry of the pair is left that could stand twice
        journal_.Log("Buddy delete (" + buddy + ") for " + user_name, user_name, remote_ip);
    });
}

std::string Buddies::Retrieve_BuddyGroup(const std::string& user_name, const std::string& buddy) const
{
    const auto* found = directory_.buddy_named(user_name, buddy);
    return found == nullptr ? std::string{} : found->Group;
}

std::string Buddies::Retrieve_BuddyPassword(const std::string& user_name, const std::string& buddy) const
{
    const auto* found = directory_.buddy_named(user_name, buddy);
    return found == nullptr ? std::string{} : found->key;
}

bool Buddies::Update_BuddyDetail(const std::string& user_name, const std::string& buddy,
    const std::string& group, const std::string& comment, const std::string& key,
    const std::string& remote_ip)
{
    return guarded(journal_, "Update_BuddyDetail", remote_ip, false, [&] {
        const auto clean_buddy = parser_.CleanText(buddy);
        directory_.change_buddy(user_name, clean_buddy, [&] {
            database_.run(statements::kUpdateBuddy, Quoted{key}, Quoted{comment}, Quoted{group},
                Quoted{clean_buddy}, Quoted{user_name});
        });
        return true;
    });
}

bool Buddies::Update_BuddyPassword(const std::string& buddy, const std::string& owner, const std::string& key)
{
    return guarded(journal_, "Update_BuddyPassword", no_address, false, [&] {
        const auto rows = database_.query(statements::kSelectBuddyKey, Quoted{buddy}, Quoted{owner});
        if (!rows.empty()) {
            directory_.change_buddy(owner, buddy, [&] {
                database_.update(tables::kBuddies, rows.front().key(), {{"key"}, {key}});
            });
        }
        return true;
    });
}

} // namespace qz::store
