#include "online/OnLineInfoWriter.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "online/OnLineInfo.h"

namespace qz::online {

namespace {

constexpr std::chrono::seconds kPause(1);

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
    wanted_ = false;
    last_refresh_ = clock_.steady();
    guarded(journal_, "WriteOnLineInfo", no_address, [&] { write(); });
}

/// A file that cannot be written is not reported: the next refresh tries again.
void OnLineInfoWriter::write()
{
    ini_.edit([&](config::IniDocument& document) {
        rewrite(document, kInfoSection, kRefreshKey, clock_.now().text());
        rewrite(document, kInfoSection, kCountKey, std::to_string(connections_.count_on_line()));
        for (const auto& user : directory_.users()) {
            const auto name = lower(user.UserName);
            if (!name.empty()) { // the one record of an empty table
                rewrite(document, kStatusSection, name, presence_.get_UserStatus(name));
            }
        }
    });
}

} // namespace qz::online
