#include "protocol/Welcome.h"

#include "helpers/ProtocolKeywords.h"

namespace qz::protocol {

Welcome::Welcome(Presence& presence, PresenceLists& lists, Policy& policy,
    notify::VersionNotices& version_notices, const store::Directory& directory, Journal& journal)
    : presence_(presence), lists_(lists), policy_(policy), version_notices_(version_notices),
      directory_(directory), journal_(journal)
{
}

/// Each of these reports its own failures, so none keeps the next from running.
void Welcome::greet(const PresenceLists::Asker& client)
{
    presence_.Update_Status(
        helpers::protocol_keywords().StatusOnLine, client.user, client.socket, client.remote_ip);
    journal_.Log(
        "LogOn successfully for " + client.user + " from " + client.remote_ip, client.user, client.remote_ip);
    lists_.get_OnLine_Buddies(client);
    lists_.get_Rooms(client);
    policy_.SendPolicy(client.user);
    version_notices_.send_to(client.user);
    policy_.SendMessageExpirationTime(client.user);
    directory_.ListAllUsers();
}

} // namespace qz::protocol
