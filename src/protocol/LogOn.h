// The logon: who a client is, and whether it may come in.
#pragma once

#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "helpers/SettingsCipher.h"
#include "net/NetEvents.h"
#include "net/Registration.h"
#include "net/Sender.h"
#include "notify/LogOnAlarm.h"
#include "protocol/LogonThrottle.h"
#include "protocol/Request.h"
#include "protocol/Welcome.h"
#include "queue/MessageQueue.h"
#include "store/Accounts.h"
#include "store/LastLogOns.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace qz::protocol {

class LogOn {
public:
    /// Where a logon leads.
    struct Outcomes {
        net::Registration& registration;
        Welcome& welcome;
        notify::LogOnAlarm& alarm;
        net::ActiveUsersMenu& menu;
        LogonThrottle& throttle;
        store::LastLogOns& last_log_ons;
        queue::MessageQueue& queue;
    };
    LogOn(Outcomes outcomes, store::Accounts& accounts, helpers::SettingsCipher& cipher,
        const helpers::MessageParser& parser, net::Sender& sender, Journal& journal);

    /// An unknown name gets no answer, but the administrator a mail; a disabled account a notice and a
    /// refusal, a wrong password a refusal. A step that fails is skipped. Whoever has to wait after failed
    /// logons gets a notice that says how long, and a refusal.
    void Request_LogOn(const Request& request);

private:
    struct Credentials {
        std::string screen_name;
        std::string password;
        std::string session_id;
    };
    Credentials credentials_in(const Request& request);
    std::string decoded(std::string_view key, const Request& request);

    void log_on(const Credentials& credentials, const Request& request);
    void pass_over_unknown(const Credentials& credentials, const Request& request);
    void refuse_early(const std::string& user, const Request& request, std::chrono::seconds wait);
    void refuse_disabled(const std::string& user, const Request& request);
    void refuse_password(const std::string& user, const Request& request);
    void let_in(const Credentials& credentials, const Request& request);
    void answer(std::int16_t socket, const std::string& word);
    void log_failure(const std::string& user, const Request& request, const char* reason = "");

    Outcomes outcomes_;
    store::Accounts& accounts_;
    helpers::SettingsCipher& cipher_;
    const helpers::MessageParser& parser_;
    net::Sender& sender_;
    Journal& journal_;
};

} // namespace qz::protocol
