#include "protocol/Policy.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::protocol {

using helpers::protocol_keywords;

Policy::Policy(const net::ConnectionTable& connections, net::Sender& sender, config::Settings& settings,
    Journal& journal)
    : connections_(connections), sender_(sender), settings_(settings), journal_(journal)
{
}

void Policy::SendPolicy(const std::string& screen_name)
{
    if (screen_name.empty()) {
        return;
    }
    guarded(journal_, "SendPolicy", no_address, [&] {
        const auto& keywords = protocol_keywords();
        const auto socket = connections_.Retrieve_UserSocket(screen_name);
        const auto answer = [&](const std::string& keyword, bool allowed) {
            sender_.SendData(
                socket, keyword, "answer=" + (allowed ? keywords.AnswerAccepted : keywords.AnswerNo));
        };
        answer(keywords.PolicyFileTransfer, settings_.get_AllowFileTransfer());
        answer(keywords.PolicyScreenShot, settings_.get_AllowSnapShot());
        answer(keywords.PolicyAOLIM, settings_.get_AllowAOLIM());
        journal_.Log("Policy sent to " + screen_name, keywords.ServerLogName, keywords.ServerLogAddress);
    });
}

void Policy::SendMessageExpirationTime(const std::string& screen_name)
{
    if (screen_name.empty()) {
        return;
    }
    guarded(journal_, "SendMessageExpirationTime", no_address, [&] {
        const auto& keywords = protocol_keywords();
        sender_.SendData(connections_.Retrieve_UserSocket(screen_name), keywords.ExpirationTime,
            "expiration=" + std::to_string(settings_.get_Message_Expiration_Time()));
        journal_.Log("Message expiration time sent to " + screen_name, keywords.ServerLogName,
            keywords.ServerLogAddress);
    });
}

void Policy::PropagatePolicy()
{
    guarded(journal_, "PropagatePolicy", no_address,
        [&] { for_each_on_line([&](const std::string& user) { SendPolicy(user); }); });
}

void Policy::SendMessageExpirationTimeToClients()
{
    guarded(journal_, "SendMessageExpirationTimeToClients", no_address,
        [&] { for_each_on_line([&](const std::string& user) { SendMessageExpirationTime(user); }); });
}

/// By number and with a copy of the name: sending may yield, and the table may change in the middle of the
/// walk.
void Policy::for_each_on_line(const std::function<void(const std::string& user)>& action) const
{
    for (std::size_t i = 0; i < connections_.records().size(); ++i) { // NOLINT(modernize-loop-convert)
        if (connections_.records()[i].OnLine) {
            const auto user = connections_.records()[i].UserName;
            action(user);
        }
    }
}

} // namespace qz::protocol
