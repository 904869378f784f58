#include "notify/VersionNotices.h"

#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::notify {

VersionNotices::VersionNotices(const config::Settings& settings, const net::ConnectionTable& connections,
    net::Sender& sender, Journal& journal)
    : settings_(settings), connections_(connections), sender_(sender), journal_(journal)
{
}

void VersionNotices::send_to(const std::string& user_name)
{
    const auto& keywords = helpers::protocol_keywords();
    const auto version = settings_.get_Client_Last_Version();
    sender_.SendData(connections_.Retrieve_UserSocket(user_name), keywords.LastVersionRequest,
        "version=" + replace_all(version, " ", keywords.BlankSubstitute)
            + " urlLastClientVersionAvailable=" + settings_.get_URL_Client_Last_Version());
    journal_.log_own("Last version " + version + " sent to " + user_name);
}

void VersionNotices::send_to_all()
{
    // By number: sending may yield, and the table may grow meanwhile.
    for (std::size_t i = 0; i < connections_.records().size(); ++i) { // NOLINT(modernize-loop-convert)
        const auto& record = connections_.records()[i];
        if (record.OnLine) {
            send_to(std::string(record.UserName)); // a copy: the record may move meanwhile
        }
    }
}

} // namespace qz::notify
