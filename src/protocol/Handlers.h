// The request handlers that the dispatcher's table names: one for each command, each in the source of its
// family.
#pragma once

#include "net/Sender.h"
#include "protocol/AutoReplyRequests.h"
#include "protocol/BuddyRequests.h"
#include "protocol/LogOn.h"
#include "protocol/MessageRequests.h"
#include "protocol/PresenceRequests.h"
#include "protocol/Request.h"
#include "protocol/RoomRequests.h"
#include "protocol/TransferRequests.h"

namespace qz::protocol {

class Handlers {
public:
    struct Families {
        LogOn& log_on;
        PresenceRequests& presence;
        BuddyRequests& buddies;
        TransferRequests& transfers;
        MessageRequests& messages;
        AutoReplyRequests& auto_replies;
        RoomRequests& rooms;
    };
    Handlers(Families families, net::Sender& sender) : families_(families), sender_(sender) { }

    void typing(const Request& request) { families_.messages.Request_Typing(request); }
    void instant_message(const Request& request) { families_.messages.Request_Msg(request); }
    void message_receipt(const Request& request) { families_.messages.Request_MsgReceipt(request); }
    void log_on(const Request& request) { families_.log_on.Request_LogOn(request); }
    void last_version(const Request& request) { families_.presence.Request_LastVersion(request); }
    void where_is_buddy(const Request& request) { families_.presence.Request_WhereIsBuddy(request); }
    void active_users(const Request& request) { families_.presence.GetActiveRightNow(request); }
    void on_line_buddies(const Request& request) { families_.presence.Request_OnLineBuddies(request); }
    void room_list(const Request& request) { families_.presence.Request_RoomList(request); }
    void all_buddies(const Request& request) { families_.presence.GetAllBuddies(request); }
    void find_buddy(const Request& request) { families_.presence.Request_FindBuddy(request); }
    void status_change(const Request& request) { families_.presence.Request_Status(request); }
    void add_buddy(const Request& request) { families_.buddies.Request_NewBuddy(request); }
    void delete_buddy(const Request& request) { families_.buddies.Request_DeleteBuddy(request); }
    void client_version(const Request& request) { families_.presence.Request_ClientVersion(request); }
    void auto_reply(const Request& request) { families_.auto_replies.Request_AutoReply(request); }
    void room(const Request& request) { families_.rooms.Request_Room(request); }
    void buddy_details(const Request& request) { families_.buddies.Request_BuddyDetails(request); }
    void buddy_key(const Request& request) { families_.buddies.Request_BuddyKey(request); }
    void file_transfer(const Request& request) { families_.transfers.Request_FileTransfer(request); }
    void screen_transfer(const Request& request) { families_.transfers.Request_ScreenTransfer(request); }
    void admin_screen_name(const Request& request) { families_.presence.Request_AdminScreenName(request); }
    /// Request_Echo: answers with the same keyword and an empty body.
    void echo(const Request& request);

private:
    Families families_;
    net::Sender& sender_;
};

} // namespace qz::protocol
