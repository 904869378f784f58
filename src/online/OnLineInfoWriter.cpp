#include "online/OnLineInfoWriter.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "online/OnLineInfo.h"

namespace qz::online {

namespace {

constexpr std::chrono::seconds kPause(1);

/// A status text as it is published: no control characters, and no more of it than is ever read.
std::string published(const std::string& status)
{
    std::string text;
    for (std::size_t at = 0; at < status.size(); ++at) {
        const auto byte = static_cast<unsigned char>(status[at]);
        const auto next = at + 1 < status.size() ? static_cast<unsigned char>(status[at + 1]) : 0U;
        if (byte == 0xC2 && next >= 0x80 && next < 0xA0) { // U+0080 to U+009F
            ++at;
        } else if (byte >= 0x20 && byte != 0x7F) {
            text += status[at];
        }
    }
    return std::string(first_characters(text, config::IniDocument::kValueLimit));
}

/// Every key is removed before it is written.
void rewrite(
    config::IniDocument& document, const char* section, const std::string& key, const std::string& value)
{
    document.remove(section, key);
    document.write(section, key, value);
}

} // namespace

OnLineInfoWriter::OnLineInfoWriter(config::IniFile& ini, const net::ConnectionTable& connections,
    const store::Directory& directory, const protocol::Presence& presence, const Clock& clock,
    Journal& journal)
    : ini_(ini), connections_(connections), directory_(directory), presence_(presence), clock_(clock),
      journal_(journal)
{
}

void OnLineInfoWriter::turn_ended()
{
    if (!wanted_ || (last_refresh_ && clock_.steady() - *last_refresh_ < kPause)) {
        return;
    }
    last_refresh_ = clock_.steady();
    // A file that cannot be written is not reported.
    wanted_ = guarded(journal_, "WriteOnLineInfo", no_address, false, [&] { return !write(); });
}

bool OnLineInfoWriter::write()
{
    const auto change = [&](config::IniDocument& document) {
        rewrite(document, kInfoSection, kRefreshKey, clock_.now().text());
        rewrite(document, kInfoSection, kCountKey, std::to_string(connections_.count_on_line()));
        for (const auto& user : directory_.users()) {
            const auto name = lower(user.UserName);
            if (!name.empty()) { // the one record of an empty table
                rewrite(document, kStatusSection, name, published(presence_.get_UserStatus(name)));
            }
        }
    };
    return ini_.edit(change, platform::Flush::Begin);
}

} // namespace qz::online
