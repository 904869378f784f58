// The safeguard EndRevokedSessions: whose account is disabled, deleted or given another password does not
// stay on line.
#pragma once

#include "base/Journal.h"
#include "config/Deployment.h"
#include "helpers/SettingsCipher.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"
#include "net/SocketCloser.h"
#include "store/Accounts.h"
#include "store/Directory.h"

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

namespace qz::net {

class RevokedSessions {
public:
    /// What a session stands on.
    struct Records {
        store::Directory& directory;
        const store::Accounts& accounts;
        helpers::SettingsCipher& cipher;
    };
    /// How one ends.
    struct Ways {
        Sender& sender;
        SocketCloser& closer;
    };
    RevokedSessions(const ConnectionTable& connections, Records records, Ways ways,
        const config::Deployment& deployment, Journal& journal);

    /// A user has just logged on, on this socket, with the password that the directory holds.
    void logged_on(const std::string& user, std::int16_t socket);
    /// Ends the sessions that have lost their ground, after a notice. Whoever changes the table `users`, in
    /// this process or another, is noticed; while it is unchanged, and while it cannot be read whole, a call
    /// does nothing. Run on every tick.
    void end_revoked();

private:
    struct Ground {
        std::string user;
        std::string password; // as stored at the logon
    };

    const char* reason_to_end(const ConnectionRecord& record);
    void end(std::string user, std::int16_t socket, const std::string& reason);
    bool password_changed(const ConnectionRecord& record);

    const ConnectionTable& connections_;
    Records records_;
    Ways ways_;
    const config::Deployment& deployment_;
    Journal& journal_;
    std::unordered_map<std::int16_t, Ground> grounds_; // by socket; no more than there are sockets
    std::optional<std::uint64_t> judged_;              // mark of the users by whom all sessions were judged
};

} // namespace qz::net
