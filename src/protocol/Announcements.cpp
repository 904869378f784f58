#include "protocol/Announcements.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::protocol {

Announcements::Announcements(const net::ConnectionTable& connections, net::Sender& sender, Journal& journal)
    : connections_(connections), sender_(sender), journal_(journal)
{
}

void Announcements::Send_MessageToAllActive(const std::string& text)
{
    guarded(journal_, "Send_MessageToAllActive", no_address, [&] {
        std::int32_t sent = 0;
        // By number: sending may yield, and the table may grow meanwhile.
        for (std::size_t i = 0; i < connections_.records().size(); ++i) { // NOLINT(modernize-loop-convert)
            const auto& record = connections_.records()[i];
            if (record.OnLine) {
                sender_.SendData(record.Socket, helpers::protocol_keywords().Notice, text);
                ++sent;
            }
        }
        journal_.log_own(
            sent == 0 ? "No message was sent" : std::to_string(sent) + " messages have been sent correctly");
    });
}

} // namespace qz::protocol
