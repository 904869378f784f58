#include "protocol/LogOn.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::protocol {

using helpers::protocol_keywords;

LogOn::LogOn(Outcomes outcomes, store::Accounts& accounts, helpers::SettingsCipher& cipher,
    const helpers::MessageParser& parser, net::Sender& sender, Journal& journal)
    : outcomes_(outcomes), accounts_(accounts), cipher_(cipher), parser_(parser), sender_(sender),
      journal_(journal)
{
}

void LogOn::Request_LogOn(const Request& request)
{
    attempt([&] { log_on(credentials_in(request), request); });
    outcomes_.menu.RefreshActiveUsersMenu();
}

LogOn::Credentials LogOn::credentials_in(const Request& request)
{
    return {decoded("screenname", request), decoded("password", request),
        parser_.value(request.parameters, "sessionidvalue")};
}

/// The marker's characters are dropped, whichever they are. A field that cannot be decoded is used as it
/// stands.
std::string LogOn::decoded(std::string_view key, const Request& request)
{
    constexpr auto marker_length = helpers::SettingsCipher::Marker.size(); // of one byte each
    const auto field = parser_.value(request.parameters, key);
    const auto marker = first_characters(field, marker_length);
    if (character_count(marker) < marker_length) {
        return field;
    }
    auto text = field;
    const auto decode = [&](const std::string& address) {
        attempt([&] { text = cipher_.DecodeCredential(field.substr(marker.size()), address); });
    };
    decode(request.remote_ip);
    if (text.empty() && outcomes_.registration.is_on_this_machine(request.socket)) {
        // A client on this machine sees the loopback address, in whose place remote_ip holds the server's
        // own.
        decode(helpers::protocol_keywords().HostAddress);
    }
    return text;
}

void LogOn::log_on(const Credentials& credentials, const Request& request)
{
    const auto& user = credentials.screen_name;
    if (const auto wait = outcomes_.throttle.wait(user, request.remote_ip)) {
        refuse_early(user, request, *wait);
    } else if (!accounts_.ScreenNameExist(user, request.remote_ip)) {
        pass_over_unknown(credentials, request);
    } else if (!accounts_.ScreenName_Enabled(user)) {
        refuse_disabled(user, request);
    } else if (!accounts_.CheckScreenName_Password(user, credentials.password, request.remote_ip)) {
        refuse_password(user, request);
    } else {
        let_in(credentials, request);
    }
}

void LogOn::pass_over_unknown(const Credentials& credentials, const Request& request)
{
    if (outcomes_.throttle.may_mail()) {
        attempt([&] {
            outcomes_.alarm.report(credentials.screen_name, credentials.password, request.remote_ip);
        });
    }
    log_failure(credentials.screen_name, request);
    outcomes_.throttle.failed(
        LogonThrottle::Failure::UnknownName, credentials.screen_name, request.remote_ip);
}

void LogOn::refuse_early(const std::string& user, const Request& request, std::chrono::seconds wait)
{
    sender_.SendData(request.socket, protocol_keywords().Notice,
        "Too many logons have failed; try again in " + std::to_string(wait.count())
            + (wait.count() == 1 ? " second" : " seconds"));
    answer(request.socket, protocol_keywords().AnswerNo);
    outcomes_.throttle.failed(LogonThrottle::Failure::Early, user, request.remote_ip);
}

void LogOn::refuse_disabled(const std::string& user, const Request& request)
{
    sender_.SendData(request.socket, protocol_keywords().Notice, "Your account is disabled!");
    log_failure(user, request, " because the account is disabled!");
    answer(request.socket, protocol_keywords().AnswerNo);
    outcomes_.throttle.failed(LogonThrottle::Failure::Disabled, user, request.remote_ip);
}

void LogOn::refuse_password(const std::string& user, const Request& request)
{
    answer(request.socket, protocol_keywords().AnswerNo);
    log_failure(user, request);
    outcomes_.throttle.failed(LogonThrottle::Failure::Password, user, request.remote_ip);
}

void LogOn::let_in(const Credentials& credentials, const Request& request)
{
    const auto& user = credentials.screen_name;
    journal_.proven();
    outcomes_.throttle.succeeded(user, request.remote_ip);
    if (!outcomes_.registration.bind(user, credentials.session_id, request.socket, request.remote_ip)) {
        return;
    }
    outcomes_.last_log_ons.logged_on(user);
    // Before anything is said on this connection: what the last one left unconfirmed goes ahead of what is
    // new.
    const bool deliver = outcomes_.queue.recipient_changed(user);
    answer(request.socket, protocol_keywords().AnswerAccepted);
    // Sending may yield: a client that went away meanwhile has been announced off line, and stays so.
    if (outcomes_.registration.is_bound(user, request.socket)) {
        outcomes_.welcome.greet({user, request.socket, request.remote_ip});
        if (deliver) {
            outcomes_.queue.QueueMessage_Send();
        }
    }
}

void LogOn::answer(std::int16_t socket, const std::string& word)
{
    sender_.SendData(socket, protocol_keywords().LogOn, "answer=" + word);
}

void LogOn::log_failure(const std::string& user, const Request& request, const char* reason)
{
    journal_.Log("LogOn failed for " + user + " from " + request.remote_ip + reason, user, request.remote_ip);
}

} // namespace qz::protocol
