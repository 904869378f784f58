#include "protocol/Announcements.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"
#include "protocol/Values.h"

namespace qz::protocol {

Announcements::Announcements(const net::ConnectionTable& connections, net::Sender& sender, Journal& journal)
    : connections_(connections), sender_(sender), journal_(journal)
{
}

void Announcements::Send_MessageToAllActive(const std::string& text)
{
    guarded(journal_, "Send_MessageToAllActive", no_address,
        [&] { send_to_all(helpers::protocol_keywords().Notice, text); });
}

void Announcements::Send_RemoteCommand2All(const std::string& message, const std::string& remote_command)
{
    guarded(journal_, "Send_RemoteCommand2All", no_address, [&] {
        send_to_all(helpers::protocol_keywords().RemoteCommand,
            "remotecommand=" + without_blanks(remote_command) + " msg=" + message);
    });
}

void Announcements::send_to_all(std::string_view keyword, const std::string& body)
{
    std::int32_t sent = 0;
    // By number: sending may yield, and the table may grow meanwhile.
    for (std::size_t i = 0; i < connections_.records().size(); ++i) { // NOLINT(modernize-loop-convert)
        const auto& record = connections_.records()[i];
        if (record.OnLine) {
            sender_.SendData(record.Socket, keyword, body);
            ++sent;
        }
    }
    journal_.log_own(
        sent == 0 ? "No message was sent" : std::to_string(sent) + " messages have been sent correctly");
}

} // namespace qz::protocol
