#include "protocol/PresenceRequests.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"
#include "protocol/Values.h"

#include <cstddef>

namespace qz::protocol {

PresenceRequests::PresenceRequests(Sources sources, const net::ConnectionTable& connections,
    const helpers::MessageParser& parser, net::Sender& sender, Journal& journal)
    : sources_(sources), connections_(connections), parser_(parser), sender_(sender), journal_(journal)
{
}

void PresenceRequests::Request_OnLineBuddies(const Request& request)
{
    const auto asker = named_in(request);
    sources_.lists.get_OnLine_Buddies(asker);
    journal_.Log("Get on line buddies for " + asker.user, asker.user, asker.remote_ip);
}

void PresenceRequests::Request_RoomList(const Request& request)
{
    sources_.lists.get_Rooms(named_in(request));
}

void PresenceRequests::Request_WhereIsBuddy(const Request& request)
{
    sources_.lists.GetWhereIAm(behind(request), screen_name(parser_, request.parameters, "screennametofind"));
}

void PresenceRequests::Request_FindBuddy(const Request& request)
{
    sources_.lists.SearchBuddy(behind(request), screen_name(parser_, request.parameters, "screennametofind"));
}

void PresenceRequests::Request_Status(const Request& request)
{
    sources_.presence.Update_Status(status_in(request), request.user, request.socket, request.remote_ip);
}

void PresenceRequests::Request_AdminScreenName(const Request& request)
{
    guarded(journal_, "Request_AdminScreenName", request.remote_ip, [&] {
        sender_.SendData(request.socket, helpers::protocol_keywords().AdminScreenName,
            "screenname=" + sources_.settings.get_AdminScreenName());
        journal_.Log(
            "Request AdminScreenName requested from " + request.user, request.user, request.remote_ip);
    });
}

void PresenceRequests::Request_ClientVersion(const Request& request)
{
    const auto version = parser_.value(request.parameters, "clientversion");
    if (sources_.accounts.save_client_version(request.user, version, request.remote_ip)) {
        journal_.Log(
            "Saved client version " + version + " for " + request.user, request.user, request.remote_ip);
    }
}

void PresenceRequests::Request_LastVersion(const Request& request)
{
    sources_.version_notices.send_to(connections_.Retrieve_ScreenNameBySocket(request.socket));
}

void PresenceRequests::GetAllBuddies(const Request& request)
{
    sources_.lists.GetAllBuddies(behind(request));
}

void PresenceRequests::GetActiveRightNow(const Request& request)
{
    sources_.lists.GetActiveRightNow(behind(request));
}

std::string PresenceRequests::status_in(const Request& request) const
{
    auto status = blank_value(parser_, request.parameters, "status");
    const auto limit = sources_.deployment.status_length();
    return limit ? std::string(first_characters(visible_line(status), static_cast<std::size_t>(*limit)))
                 : status;
}

PresenceLists::Asker PresenceRequests::named_in(const Request& request)
{
    return {request.user, request.socket, request.remote_ip};
}

PresenceLists::Asker PresenceRequests::behind(const Request& request) const
{
    return {connections_.Retrieve_ScreenNameBySocket(request.socket), request.socket, request.remote_ip};
}

} // namespace qz::protocol
