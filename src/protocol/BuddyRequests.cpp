#include "protocol/BuddyRequests.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"
#include "protocol/Values.h"

namespace qz::protocol {

using helpers::protocol_keywords;

namespace {

/// The user's entry for the buddy; an empty one when there is none.
store::BuddyRecord record_of(
    const store::Directory& directory, const std::string& user, const std::string& buddy)
{
    const auto* found = directory.buddy_named(user, buddy);
    return found == nullptr ? store::BuddyRecord{} : *found;
}

} // namespace

BuddyRequests::BuddyRequests(Records records, const net::ConnectionTable& connections,
    const helpers::MessageParser& parser, net::Sender& sender, Journal& journal)
    : records_(records), connections_(connections), parser_(parser), sender_(sender), journal_(journal)
{
}

void BuddyRequests::Request_NewBuddy(const Request& request)
{
    const auto entry = entry_in(request, "newbuddy");
    New_Buddy(entry, blank_value(parser_, request.parameters, "group"), request.remote_ip);
    InformBuddyAdded(entry);
}

void BuddyRequests::New_Buddy(const Entry& entry, const std::string& group, const std::string& remote_ip)
{
    guarded(journal_, "New_Buddy", remote_ip, [&] {
        const auto user = parser_.CleanText(entry.user);
        const auto buddy = parser_.CleanText(entry.buddy);
        records_.buddies.insert(user, buddy, parser_.CleanText(group));
        records_.buddies.remove_duplicates_of(user, buddy);
        records_.directory.SetMyBuddies();
    });
}

void BuddyRequests::InformBuddyAdded(const Entry& entry)
{
    guarded(journal_, "InformBuddyAdded", no_address, [&] {
        sender_.SendData(connections_.Retrieve_UserSocket(entry.buddy), protocol_keywords().Notice,
            "The user " + entry.user + " has added your name (" + entry.buddy + ") into his buddies list!");
    });
}

void BuddyRequests::Request_DeleteBuddy(const Request& request)
{
    const auto entry = entry_in(request, "screenname2delete");
    records_.buddies.Delete_Buddy(entry.user, entry.buddy, request.remote_ip, store::Quiet::No);
}

void BuddyRequests::Request_BuddyDetails(const Request& request)
{
    const auto action = parser_.value(request.parameters, "action");
    if (action == "get") {
        send_details(request, entry_in(request, "buddy"));
    } else if (action == "update") {
        update_details(request, entry_in(request, "buddy"));
    }
}

void BuddyRequests::send_details(const Request& request, const Entry& entry)
{
    const auto card = records_.accounts.Retrieve_BuddyDetail(parser_.CleanText(entry.buddy));
    const auto record = record_of(records_.directory, entry.user, entry.buddy);
    sender_.SendData(request.socket, protocol_keywords().BuddyDetails,
        "action=get buddy=" + without_blanks(entry.buddy) + " firstname=" + without_blanks(card.first_name)
            + " lastname=" + without_blanks(card.last_name) + " email=" + without_blanks(card.email)
            + " imclientinuse=" + without_blanks(card.client_version)
            + " group=" + without_blanks(record.Group) + " comment=" + without_blanks(record.Comment)
            + " key=" + record.key);
    journal_.Log("Buddy details of " + entry.buddy + " from " + entry.user, entry.user, request.remote_ip);
}

void BuddyRequests::update_details(const Request& request, const Entry& entry)
{
    const auto clean = [&](const char* key) {
        return parser_.CleanText(blank_value(parser_, request.parameters, key));
    };
    const bool updated = records_.buddies.Update_BuddyDetail(parser_.CleanText(entry.user), entry.buddy,
        clean("group"), clean("comment"), clean("key"), request.remote_ip);
    answer_update(request, protocol_keywords().BuddyDetails, entry, updated);
    journal_.Log("Buddy " + entry.buddy + (updated ? " updated from " : " not updated from ") + entry.user,
        entry.user, request.remote_ip);
}

void BuddyRequests::Request_BuddyKey(const Request& request)
{
    const auto action = parser_.value(request.parameters, "action");
    if (action == "get") {
        send_key(request, entry_in(request, "buddy"));
    } else if (action == "update") {
        update_key(request, entry_in(request, "buddy"));
    }
}

void BuddyRequests::send_key(const Request& request, const Entry& entry)
{
    sender_.SendData(request.socket, protocol_keywords().BuddyKey,
        "action=get buddy=" + without_blanks(entry.buddy)
            + " key=" + records_.buddies.Retrieve_BuddyPassword(entry.user, entry.buddy));
    journal_.Log("Buddy's key of " + entry.buddy + " from " + entry.user, entry.user, request.remote_ip);
}

void BuddyRequests::update_key(const Request& request, const Entry& entry)
{
    const bool updated = records_.buddies.Update_BuddyPassword(parser_.CleanText(entry.buddy),
        parser_.CleanText(entry.user), blank_value(parser_, request.parameters, "key"));
    answer_update(request, protocol_keywords().BuddyKey, entry, updated);
    // The second blank of the refusal is as readers of the log know it.
    journal_.Log(updated ? "Buddy's key " + entry.buddy + " updated from " + entry.user
                         : "Buddy's key  " + entry.buddy + " not updated from " + entry.user,
        entry.user, request.remote_ip);
}

/// The directory is reloaded first, so that whoever asks next gets the new texts.
void BuddyRequests::answer_update(
    const Request& request, const std::string& keyword, const Entry& entry, bool updated)
{
    if (updated) {
        records_.directory.SetMyBuddies();
    }
    sender_.SendData(request.socket, keyword,
        "buddy=" + without_blanks(entry.buddy) + " action=" + (updated ? "updated" : "notupdated"));
}

BuddyRequests::Entry BuddyRequests::entry_in(const Request& request, const char* buddy_key) const
{
    return {request.user, screen_name(parser_, request.parameters, buddy_key)};
}

} // namespace qz::protocol
