// The requests that change or read the entries of buddy lists.
#pragma once

#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"
#include "protocol/Request.h"
#include "store/Accounts.h"
#include "store/Buddies.h"
#include "store/Directory.h"

#include <string>

namespace qz::protocol {

class BuddyRequests {
public:
    /// The records that the requests work on.
    struct Records {
        store::Buddies& buddies;
        store::Directory& directory;
        store::Accounts& accounts;
    };
    BuddyRequests(Records records, const net::ConnectionTable& connections,
        const helpers::MessageParser& parser, net::Sender& sender, Journal& journal);

    void Request_NewBuddy(const Request& request);
    void Request_DeleteBuddy(const Request& request);
    void Request_BuddyDetails(const Request& request);
    void Request_BuddyKey(const Request& request);

private:
    /// Whose list, and the entry.
    struct Entry {
        std::string user;
        std::string buddy;
    };
    Entry entry_in(const Request& request, const char* buddy_key) const;

    void New_Buddy(const Entry& entry, const std::string& group, const std::string& remote_ip);
    void InformBuddyAdded(const Entry& entry);
    void send_details(const Request& request, const Entry& entry);
    void update_details(const Request& request, const Entry& entry);
    void send_key(const Request& request, const Entry& entry);
    void update_key(const Request& request, const Entry& entry);
    void answer_update(const Request& request, const std::string& keyword, const Entry& entry, bool updated);

    Records records_;
    const net::ConnectionTable& connections_;
    const helpers::MessageParser& parser_;
    net::Sender& sender_;
    Journal& journal_;
};

} // namespace qz::protocol
