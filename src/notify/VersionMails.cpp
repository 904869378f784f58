#include "notify/VersionMails.h"

#include "base/Guarded.h"
#include "base/Numbers.h"
#include "base/Text.h"
#include "notify/NoticeText.h"
#include "store/Statements.h"

#include <array>
#include <cstdio>

namespace qz::notify {

namespace {

constexpr std::string_view kSection = "LastDateSentEmail_NewVersion";
constexpr std::int64_t kDaysBetweenMails = 15;

/// Major, minor and build number.
std::optional<std::array<std::int16_t, 3>> version_of(std::string_view text)
{
    std::array<std::int16_t, 3> version{};
    for (auto& number : version) {
        const auto dot = text.find('.');
        if (&number != &version.back() && dot == std::string_view::npos) {
            return std::nullopt;
        }
        if (!attempt([&] { number = to_integer<std::int16_t>(leading_number(text.substr(0, dot))); })) {
            return std::nullopt;
        }
        text.remove_prefix(dot == std::string_view::npos ? text.size() : dot + 1);
    }
    return version;
}

/// "dd/mm/yyyy".
std::string date_text(DateTime date)
{
    const auto civil = date.civil();
    std::array<char, 40> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "%02d/%02d/%04d", civil.day, civil.month, civil.year);
    return {text.data(), static_cast<std::size_t>(length)};
}

/// Nothing for what is no date: somebody has edited the file.
std::optional<DateTime> date_from(std::string_view text)
{
    if (text.size() != 10 || text[2] != '/' || text[5] != '/') {
        return std::nullopt;
    }
    std::string turned(text.substr(6));
    turned.append("-").append(text.substr(3, 2)).append("-").append(text.substr(0, 2));
    return DateTime::parse(turned);
}

} // namespace

bool is_newer(std::string_view latest, std::string_view in_use)
{
    const auto offered = version_of(latest);
    const auto used = version_of(in_use);
    if (!offered || !used) {
        return false;
    }
    return (*offered)[0] > (*used)[0] || ((*offered)[0] == (*used)[0] && (*offered)[1] > (*used)[1]);
}

VersionMails::VersionMails(Sources sources, config::IniFile& ini, config::Settings& settings,
    NoticeMails& mails, const Clock& clock, Journal& journal)
    : sources_(sources), ini_(ini), settings_(settings), mails_(mails), clock_(clock), journal_(journal)
{
}

void VersionMails::CheckOldVersions()
{
    guarded(journal_, "CheckOldVersions", no_address, [&] {
        const auto latest = settings_.get_Client_Last_Version();
        if (latest.empty()) {
            return;
        }
        const auto before = state();
        if (before && before == done_) {
            return;
        }
        done_.reset();
        for (const auto& row : sources_.database.query(store::statements::kSelectClientVersions)) {
            const auto& client = row["IMClientInUse"];
            const auto name = row["UserName"].text();
            if (!client.is_null() && is_newer(latest, client.text())
                && sources_.accounts.ScreenName_Enabled(name)) {
                SendLastVersionViaEmail(name);
            }
            sources_.database.require_open();
        }
        done_ = before;
    });
}

void VersionMails::SendLastVersionViaEmail(const std::string& user_name)
{
    guarded(journal_, "SendLastVersionViaEmail", no_address, [&] {
        if (!sources_.accounts.ScreenNameExist(user_name) || !sources_.accounts.ScreenName_Enabled(user_name)
            || was_told_lately(user_name) || !was_active_lately(user_name)) {
            return;
        }
        // Without the date the next run would tell the user again.
        if (!ini_.WriteIniValue(kSection, user_name, date_text(clock_.now()))) {
            return;
        }
        const auto lines = text_of({"It looks you are running a very old version of VELTO!",
            "Now is available for the download the version " + settings_.get_Client_Last_Version(),
            "Here where to download latest version: " + settings_.get_URL_Client_Last_Version(),
            "Please consider to upgrade your copy of VELTO!"});
        mails_.send_to(user_name, "VELTO new version available!", mails_.notice_for(user_name, lines));
        journal_.log_own("New version available email sent to " + user_name);
    });
}

std::optional<VersionMails::State> VersionMails::state()
{
    const auto marks = TableMarks::of(sources_.database);
    if (!marks) {
        return std::nullopt;
    }
    return State{clock_.now().date(), platform::AtomicFile(ini_.path()).stamp(), *marks};
}

/// With a limit of 0 nobody was: the setting that switches the disabling off stops these mails too.
bool VersionMails::was_active_lately(const std::string& user_name)
{
    const auto last = sources_.activity.last_active(user_name);
    return last && days_between(*last, clock_.now()) < settings_.get_ClientInactivityDaysBeforeDisabling();
}

bool VersionMails::was_told_lately(const std::string& user_name) const
{
    const auto told = date_from(ini_.ReadIniValue(kSection, user_name));
    return told && days_between(*told, clock_.now()) <= kDaysBetweenMails;
}

} // namespace qz::notify
