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
    directory_.add_buddy(user_name, buddy, [&] {
        database_.execute(statements::kInsertBuddy, {user_name, buddy, group});
    });
}

std::int16_t Buddies::BuddyDuplicated(const std::string& user_name, const std::string& buddy)
{
    return guarded(journal_, "BuddyDuplicated", no_address, std::int16_t{0}, [&] {
        if (user_name.empty() || buddy.empty()) {
            return std::int16_t{0};
        }
        auto rows = database_.open(
            statements::kCountBuddyEntries, {parser_.CleanText(user_name), lower(parser_.CleanText(buddy))});
        return rows.RecordCount() < 1 ? std::int16_t{0}
                                      : to_integer<std::int16_t>(rows.Fields("CountOfBuddy").number());
    });
}

void Buddies::RemoveDuplicatedBuddies()
{
    guarded(journal_, "RemoveDuplicatedBuddies", no_address, [&] {
        auto& connection = database_.connection();
        // Taken before the rows are read: a change that comes in between makes the next pass look again.
        std::optional<Marks> marks;
        attempt([&] {
            marks.emplace(connection.change_mark(tables::kBuddies), connection.change_mark(tables::kUsers));
        });
        if (marks && marks == clean_) {
            return;
        }
        clean_.reset();
        auto rows = database_.open(statements::kSelectDuplicatedBuddies);
        if (!remove_duplicates(rows)) {
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
        auto rows = database_.open(statements::kSelectBuddyEntries, {user_name, buddy});
        if (rows.RecordCount() > 1) {
            remove_duplicates(rows);
        }
    });
}

/// @return whether anything was deleted.
bool Buddies::remove_duplicates(platform::Recordset& rows)
{
    bool deleted = false;
    for (; !rows.AtEnd(); rows.MoveNext()) {
        const auto owner = rows.Fields("UserName").text();
        const auto buddy = rows.Fields("Buddy").text();
        // The oldest row survives: rows are visited newest first, and counted anew each time.
        if (!accounts_.ScreenNameExist(owner, helpers::protocol_keywords().HostAddress)
            || BuddyDuplicated(owner, buddy) >= 2) {
            const BuddyRecord gone{rows.Fields("IDBuddies").integer(), buddy, {}, {}, {}, {}, owner};
            directory_.remove_row(gone, [&] { rows.Delete(); });
            rows.Update();
            deleted = true;
        }
    }
    return deleted;
}

void Buddies::Delete_Buddy(
    const std::string& user_name, const std::string& buddy, const std::string& remote_ip, Quiet quiet)
{
    guarded(journal_, "Delete_Buddy", remote_ip, [&] {
        const auto clean_buddy = parser_.CleanText(buddy);
        directory_.change_buddy(user_name, clean_buddy, [&] {
            database_.execute(statements::kDeleteBuddy, {user_name, clean_buddy});
        });
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
            database_.execute(statements::kUpdateBuddy, {key, comment, group, clean_buddy, user_name});
        });
        return true;
    });
}

bool Buddies::Update_BuddyPassword(const std::string& buddy, const std::string& owner, const std::string& key)
{
    return guarded(journal_, "Update_BuddyPassword", no_address, false, [&] {
        auto row = database_.open(statements::kSelectBuddyKey, {buddy, owner});
        if (!row.AtEnd()) {
            row.SetField("key", key);
            directory_.change_buddy(owner, buddy, [&] { row.Update(); });
        }
        return true;
    });
}

} // namespace qz::store
