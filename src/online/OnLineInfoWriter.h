// WriteOnLineInfo: publishes who is on line, and each user's status, in the settings file.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/IniFile.h"
#include "net/ConnectionTable.h"
#include "platform/EventLoop.h"
#include "protocol/Presence.h"
#include "store/Directory.h"

#include <chrono>
#include <optional>

namespace qz::online {

/// A refresh is one atomic rewrite of the file, at the end of the turn that asked for it. Turns that follow
/// each other within a second share one: the file holds every user, and a wave of logons would rewrite it a
/// thousand times. It waits neither for the file's lock nor for the disk: what could not be published now is
/// published with the next refresh, a second later.
class OnLineInfoWriter final : public platform::TurnListener {
public:
    OnLineInfoWriter(config::IniFile& ini, const net::ConnectionTable& connections,
        const store::Directory& directory, const protocol::Presence& presence, const Clock& clock,
        Journal& journal);

    /// Asks for a refresh.
    void WriteOnLineInfo() { wanted_ = true; }
    /// Refreshes when it was asked for and the last refresh is long enough ago. Called at the end of every
    /// turn.
    void turn_ended() override;

private:
    /// @return false when the file cannot be written now.
    bool write();

    config::IniFile& ini_;
    const net::ConnectionTable& connections_;
    const store::Directory& directory_;
    const protocol::Presence& presence_;
    const Clock& clock_;
    Journal& journal_;
    bool wanted_ = false;
    std::optional<std::chrono::steady_clock::time_point> last_refresh_;
};

} // namespace qz::online
