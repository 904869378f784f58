#include "server/ServerJournal.h"

#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"
#include "store/ActivityLog.h"

namespace qz::server {

namespace {

bool is_reported_twice(const EngineError& error)
{
    return (error.number() == number_of(DatabaseError::Unspecified) && error.source() == kProviderSource)
        || (error.number() == number_of(DatabaseError::NoConnection) && error.source() == kRecordsetSource);
}

/// Calls `report` with the address as given and, where the rule asks for it, a second time.
template <typename Report>
void report_by_rule(const EngineError& error, const std::string& address, Report&& report)
{
    report(address);
    if (is_reported_twice(error)) {
        report(address.empty() ? helpers::protocol_keywords().HostAddress : address);
    }
}

} // namespace

void ServerJournal::Log(
    const std::string& message, const std::string& user_name, const std::string& remote_ip)
{
    if (!may_write()) {
        return;
    }
    write(message, remote_ip, user_name);
    events_.LogMessage(
        SingleLine(message).text(), SingleLine(user_name).text(), SingleLine(remote_ip).text());
}

void ServerJournal::log_own(const std::string& message)
{
    const auto& keywords = helpers::protocol_keywords();
    Log(message, keywords.HostName, keywords.HostAddress);
}

void ServerJournal::warn_own(const std::string& message)
{
    if (!may_write()) {
        return;
    }
    const auto& keywords = helpers::protocol_keywords();
    write(message, keywords.HostAddress, keywords.HostName);
    events_.LogWarning(SingleLine(message).text(), keywords.HostName, keywords.HostAddress);
}

void ServerJournal::ReportError(
    std::string_view routine, const EngineError& error, const std::string& address)
{
    if (!may_write()) {
        return;
    }
    report_by_rule(error, address, [&](const std::string& pc_ip) {
        write(error.description(), helpers::protocol_keywords().HostName, pc_ip);
        events_.Error(std::string(routine), error.number(), error.source(), error.description(), pc_ip);
    });
}

void ServerJournal::raise_error(
    std::string_view routine, const EngineError& error, const std::string& address)
{
    if (!may_write()) {
        return;
    }
    report_by_rule(error, address, [&](const std::string& pc_ip) {
        events_.Error(std::string(routine), error.number(), error.source(), error.description(), pc_ip);
    });
}

void ServerJournal::ReportOnLineUsers(std::int32_t count)
{
    if (quota_ != nullptr && quota_->is_on() && !stranger().empty()) {
        return; // a stranger does not change the count
    }
    const auto& keywords = helpers::protocol_keywords();
    write("Now on line: " + std::to_string(count), keywords.HostName, keywords.HostAddress);
    events_.OnLineUsers(count);
}

void ServerJournal::tell_unwritten(const std::vector<LineQuota::Unwritten>& unwritten)
{
    for (const auto& each : unwritten) {
        log_own(std::to_string(each.lines) + " more like this from " + each.address);
    }
}

bool ServerJournal::may_write()
{
    return quota_ == nullptr || stranger().empty() || quota_->takes(stranger());
}

void ServerJournal::write(
    const std::string& action, const std::string& user_name, const std::string& remote_ip)
{
    if (log_ != nullptr) {
        log_->Write2dbLog(action, user_name, remote_ip);
    }
}

} // namespace qz::server
