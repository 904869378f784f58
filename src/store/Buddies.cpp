#include "store/Buddies.h"

#include "base/Guarded.h"
#include "base/Numbers.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"
#include "store/Statements.h"

#include <algorithm>

namespace qz::store {

Buddies::Buddies(Database& database, Directory& directory, Accounts& accounts,
    const helpers::MessageParser& parser, Journal& journal)
    : database_(database), directory_(directory), accounts_(accounts), parser_(parser), journal_(journal)
{
}

void Buddies::insert(const std::string& user_name, const std::string& buddy, const std::string& group)
{
    database_.execute(statements::kInsertBuddy, {user_name, buddy, group});
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
        if (!remove_duplicates()) {
            clean_ = marks;
        }
    });
}

/// @return whether anything was deleted.
bool Buddies::remove_duplicates()
{
    bool deleted = false;
    auto rows = database_.open(statements::kSelectDuplicatedBuddies);
    for (; !rows.AtEnd(); rows.MoveNext()) {
        const auto owner = rows.Fields("UserName").text();
        const auto buddy = rows.Fields("Buddy").text();
        // The oldest row survives: rows are visited newest first, and counted anew each time.
        if (!accounts_.ScreenNameExist(owner, helpers::protocol_keywords().HostAddress)
            || BuddyDuplicated(owner, buddy) >= 2) {
            rows.Delete();
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
        database_.execute(statements::kDeleteBuddy, {user_name, parser_.CleanText(buddy)});
        if (quiet == Quiet::Yes) {
            return;
        }
        RemoveDuplicatedBuddies();
        directory_.SetMyBuddies();
        journal_.Log("Buddy delete (" + buddy + ") for " + user_name, user_name, remote_ip);
    });
}

std::string Buddies::Retrieve_BuddyGroup(const std::string& user_name, const std::string& buddy) const
{
    const auto* found = entry(user_name, buddy);
    return found == nullptr ? std::string{} : found->Group;
}

std::string Buddies::Retrieve_BuddyPassword(const std::string& user_name, const std::string& buddy) const
{
    const auto* found = entry(user_name, buddy);
    return found == nullptr ? std::string{} : found->key;
}

bool Buddies::Update_BuddyDetail(const std::string& user_name, const std::string& buddy,
    const std::string& group, const std::string& comment, const std::string& key,
    const std::string& remote_ip)
{
    return guarded(journal_, "Update_BuddyDetail", remote_ip, false, [&] {
        database_.execute(
            statements::kUpdateBuddy, {key, comment, group, parser_.CleanText(buddy), user_name});
        return true;
    });
}

bool Buddies::Update_BuddyPassword(const std::string& buddy, const std::string& owner, const std::string& key)
{
    return guarded(journal_, "Update_BuddyPassword", no_address, false, [&] {
        auto row = database_.open(statements::kSelectBuddyKey, {buddy, owner});
        if (!row.AtEnd()) {
            row.SetField("key", key);
            row.Update();
        }
        return true;
    });
}

const BuddyRecord* Buddies::entry(const std::string& user_name, const std::string& buddy) const
{
    const auto& list = directory_.list_of(user_name);
    const auto found = std::find_if(list.begin(), list.end(),
        [&](std::size_t number) { return directory_.buddies()[number].Buddy == buddy; });
    return found == list.end() ? nullptr : &directory_.buddies()[*found];
}

} // namespace qz::store
