// The daily job that mails users of old clients where the latest version is.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/IniFile.h"
#include "config/Settings.h"
#include "notify/InactivityRule.h"
#include "notify/NoticeMails.h"
#include "notify/TableMarks.h"
#include "platform/AtomicFile.h"
#include "store/Accounts.h"
#include "store/Database.h"

#include <optional>
#include <string>
#include <string_view>

namespace qz::notify {

/// Compares major and minor numbers; the third number is required but never compared. A part that is no
/// number counts as 0. What is no version (fewer than three parts, or a number beyond 16 bits) is neither
/// newer nor older than anything: clients report their versions themselves.
bool is_newer(std::string_view latest, std::string_view in_use);

/// A user is told at most once in 15 days; the settings file holds the date of each user's last mail.
class VersionMails {
public:
    /// Where is found who uses which client, and when they were last active.
    struct Sources {
        store::Database& database;
        store::Accounts& accounts;
        InactivityRule& activity;
    };
    VersionMails(Sources sources, config::IniFile& ini, config::Settings& settings, NoticeMails& mails,
        const Clock& clock, Journal& journal);

    /// Mails every user whose client is old. A second run tells nobody twice; when day, settings file and
    /// tables are the same as in the last one it costs no query.
    void CheckOldVersions();
    /// Mails one user, if the account is enabled, was active lately and was not told lately. The date is
    /// written before the mail is sent, so a mail that fails is not sent again for 15 days.
    void SendLastVersionViaEmail(const std::string& user_name);

private:
    struct State {
        DateTime today;
        std::optional<platform::FileStamp> settings;
        TableMarks tables;
        bool operator==(const State&) const = default;
    };

    std::optional<State> state();
    bool was_active_lately(const std::string& user_name);
    bool was_told_lately(const std::string& user_name) const;

    Sources sources_;
    config::IniFile& ini_;
    config::Settings& settings_;
    NoticeMails& mails_;
    const Clock& clock_;
    Journal& journal_;
    std::optional<State> done_; // at the start of the last run that came to its end
};

} // namespace qz::notify
