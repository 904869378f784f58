#include "net/Policing.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "helpers/MessageParser.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::net {

namespace {

/// "Monday 02 March 2026".
std::string long_date(DateTime moment)
{
    const auto civil = moment.civil();
    const auto year_month_day = moment.date_text();
    return std::string(day_name(civil.weekday())) + " " + year_month_day.substr(year_month_day.size() - 2)
        + " " + std::string(month_name(civil.month)) + " " + std::to_string(civil.year);
}

/// "09.05.00".
std::string time_of_day(DateTime moment)
{
    const auto text = moment.text();
    return replace_all(text.substr(text.find(' ') + 1), ":", ".");
}

std::string explanation(const std::string& name, const std::string& remote_ip, const ConnectionRecord& record)
{
    return "Somebody from " + remote_ip + " is using this screen name " + name
        + " and forced you logout immediatly because it looks you are connected using this screen name "
        + record.UserName + " since " + long_date(record.ChangeTime) + " at " + time_of_day(record.ChangeTime)
        + " on socket " + std::to_string(record.Socket)
        + "\r\nIf you think this is an error message, please contact the administrator of this service!";
}

} // namespace

Policing::Policing(const ConnectionTable& connections, Sender& sender, SocketCloser& closer,
    store::Accounts& accounts, ActiveUsersMenu& menu, Journal& journal)
    : connections_(connections), sender_(sender), closer_(closer), accounts_(accounts), menu_(menu),
      journal_(journal)
{
}

void Policing::CloseAllPreviousConnections(const std::string& screen_name, const std::string& remote_ip)
{
    guarded(journal_, "CloseAllPreviousConnections", remote_ip, [&] {
        const auto name = helpers::MessageParser::transform(screen_name);
        for_each_named(name, [&](const ConnectionRecord& record) {
            sender_.SendData(
                record.Socket, helpers::protocol_keywords().Notice, explanation(name, remote_ip, record));
            journal_.log_own(remote_ip + " forced log off of " + name);
            closer_.SocketClosing(record.Socket);
        });
    });
}

void Policing::CloseAllMultiplyConnections(const std::string& screen_name)
{
    guarded(journal_, "CloseAllMultiplyConnections", no_address, [&] {
        const auto name = helpers::MessageParser::transform(screen_name);
        for_each_named(name, [&](const ConnectionRecord& record) {
            journal_.log_own(name + " logged off from " + helpers::protocol_keywords().HostAddress
                + " since connected too much times");
            closer_.SocketClosing(record.Socket);
        });
    });
}

void Policing::UserIsOnlineHowManyTimes()
{
    guarded(journal_, "UserIsOnlineHowManyTimes", no_address, [&] {
        for (const auto& name : connections_.names_on_line_more_than_once()) {
            CloseAllMultiplyConnections(name);
        }
    });
}

void Policing::log_off(const std::string& screen_name)
{
    guarded(journal_, "LogOffUser", no_address, [&] {
        if (screen_name.empty()) {
            return;
        }
        if (!accounts_.ScreenNameExist(screen_name)) {
            journal_.log_own("User " + screen_name + " doesn't exist");
        } else if (!connections_.UserIsOnline(screen_name)) {
            journal_.log_own("User " + screen_name + " is not on line now!");
        } else {
            sender_.SendData(connections_.Retrieve_UserSocket(screen_name),
                helpers::protocol_keywords().Notice, "You have been logged off from the VELTO server");
            journal_.log_own(screen_name + " logged off from VELTO server");
            closer_.SocketClosing(connections_.Retrieve_UserSocket(screen_name));
        }
    });
}

void Policing::CloseAllConnections()
{
    guarded(journal_, "CloseAllConnections", no_address, [&] {
        closer_.close_all();
        journal_.log_own("All active connections closed");
        menu_.RefreshActiveUsersMenu();
    });
}

/// With copies: telling and closing may yield, and the table may change in the middle of the walk.
template <typename Action> void Policing::for_each_named(const std::string& user_name, Action&& action)
{
    const auto numbers = connections_.named(user_name);
    for (const auto number : numbers) {
        const auto record = connections_.records().at(static_cast<std::size_t>(number));
        if (record.OnLine && record.UserName == user_name) {
            action(record);
        }
    }
}

} // namespace qz::net
