#include "net/RevokedSessions.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::net {

RevokedSessions::RevokedSessions(const ConnectionTable& connections, Records records, Ways ways,
    const config::Deployment& deployment, Journal& journal)
    : connections_(connections), records_(records), ways_(ways), deployment_(deployment), journal_(journal)
{
}

void RevokedSessions::logged_on(const std::string& user, std::int16_t socket)
{
    grounds_[socket] = {user, records_.accounts.stored_password(user)};
    judged_.reset(); // the users may have changed since they were verified
}

void RevokedSessions::end_revoked()
{
    guarded(journal_, "EndRevokedSessions", no_address, [&] {
        if (!deployment_.end_revoked_sessions()) {
            judged_.reset();
            return;
        }
        const auto users = records_.directory.refresh_users();
        if (!users || users == judged_) {
            return;
        }
        judged_ = users;
        // By number: telling and closing may yield, and the table may change meanwhile.
        for (std::size_t i = 0; i < connections_.records().size(); ++i) { // NOLINT(modernize-loop-convert)
            const auto& record = connections_.records()[i];
            const char* reason = record.OnLine ? reason_to_end(record) : nullptr;
            if (reason != nullptr) {
                end(record.UserName, record.Socket, reason);
            }
        }
    });
}

/// With its own copies, for the record may be another one after the notice.
void RevokedSessions::end(std::string user, std::int16_t socket, const std::string& reason)
{
    ways_.sender.SendData(
        socket, helpers::protocol_keywords().Notice, "You have been logged off because your " + reason);
    journal_.log_own(user + " logged off because the " + reason);
    if (connections_.is_logged_on(user, socket)) { // not gone, and not somebody else's by now
        ways_.closer.SocketClosing(socket);
    }
}

/// Nothing while the session may go on.
const char* RevokedSessions::reason_to_end(const ConnectionRecord& record)
{
    if (!records_.accounts.is_enabled(record.UserName)) {
        return "account is disabled or deleted";
    }
    return password_changed(record) ? "password has been changed" : nullptr;
}

/// A password that was only encoded meanwhile is the same. One that cannot be decoded lets nobody log on.
bool RevokedSessions::password_changed(const ConnectionRecord& record)
{
    const auto ground = grounds_.find(record.Socket);
    if (ground == grounds_.end() || ground->second.user != record.UserName) {
        return false;
    }
    const auto stored = records_.accounts.stored_password(record.UserName);
    if (stored == ground->second.password) {
        return false;
    }
    bool same = false;
    attempt(
        [&] { same = records_.cipher.Decode(stored) == records_.cipher.Decode(ground->second.password); });
    ground->second.password = stored;
    return !same;
}

} // namespace qz::net
