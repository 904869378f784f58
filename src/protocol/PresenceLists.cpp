#include "protocol/PresenceLists.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::protocol {

using helpers::protocol_keywords;

PresenceLists::PresenceLists(const net::ConnectionTable& connections, store::Directory& directory,
    const store::RoomMembers& members, const Presence& presence, net::Sender& sender, Journal& journal)
    : connections_(connections), directory_(directory), members_(members), presence_(presence),
      sender_(sender), journal_(journal), search_(directory)
{
}

void PresenceLists::get_OnLine_Buddies(const Asker& asker)
{
    guarded(journal_, "Get_OnLine_Buddies", asker.remote_ip, [&] {
        ListText list;
        for (const auto* entry : directory_.list_of(asker.user)) {
            const auto& buddy = entry->Buddy;
            if (connections_.UserIsOnline(buddy)) {
                list.add({buddy, presence_.get_UserStatus(buddy)});
            }
        }
        send(asker, protocol_keywords().OnLineBuddies, list, "OnLine Buddies sent to " + asker.user);
    });
}

void PresenceLists::get_Rooms(const Asker& asker)
{
    guarded(journal_, "get_Rooms", asker.remote_ip, [&] {
        ListText list;
        for (const auto& room : directory_.rooms()) {
            if (!room.RoomName.empty()) { // the one record of an empty table
                list.add({room.RoomName, room.UserName_Owner,
                    std::to_string(members_.in_room(room.RoomName).size())});
            }
        }
        send(asker, protocol_keywords().RoomList, list, "Rooms sent to " + asker.user);
    });
}

void PresenceLists::GetAllBuddies(const Asker& asker)
{
    guarded(journal_, "GetAllBuddies", asker.remote_ip, [&] {
        ListText list;
        for (const auto* entry : directory_.list_of(asker.user)) {
            list.add({entry->Buddy, entry->Group, presence_.get_UserStatus(entry->Buddy)});
        }
        send(asker, protocol_keywords().AllBuddies, list, "Get all buddies from " + asker.user);
    });
}

void PresenceLists::GetActiveRightNow(const Asker& asker)
{
    guarded(journal_, "GetActiveRightNow", asker.remote_ip, [&] {
        ListText list;
        for (const auto& record : connections_.records()) {
            if (record.OnLine && connections_.first_named(record.UserName) == &record) {
                list.add({record.UserName, record.StatusText});
            }
        }
        send(asker, protocol_keywords().ActiveUsers, list, "Get active right now from " + asker.user);
    });
}

void PresenceLists::GetWhereIAm(const Asker& asker, const std::string& buddy)
{
    guarded(journal_, "GetWhereIAm", asker.remote_ip, [&] {
        ListText list;
        for (const auto slot : members_.of_user(buddy)) {
            list.add({members_.slots()[static_cast<std::size_t>(slot)].RoomName});
        }
        send(asker, protocol_keywords().WhereIsBuddy, list,
            "Get where I am list from " + asker.user + " for buddy: " + buddy);
    });
}

void PresenceLists::SearchBuddy(const Asker& asker, const std::string& text)
{
    guarded(journal_, "SearchBuddy", asker.remote_ip, [&] {
        directory_.refresh_users(); // accounts that another program has added are found, too
        send(asker, protocol_keywords().FindBuddy, search_.find(text),
            "SearchBuddy from " + asker.user + " for buddy string: " + text);
    });
}

void PresenceLists::send(
    const Asker& asker, std::string_view keyword, const ListText& list, const std::string& log_line)
{
    if (!list.empty()) {
        sender_.SendData(asker.socket, keyword, list.text());
        journal_.Log(log_line, asker.user, asker.remote_ip);
    }
}

} // namespace qz::protocol
