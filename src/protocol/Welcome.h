// What a client gets once its user is on line.
#pragma once

#include "base/Journal.h"
#include "notify/VersionNotices.h"
#include "protocol/Policy.h"
#include "protocol/Presence.h"
#include "protocol/PresenceLists.h"
#include "store/Directory.h"

namespace qz::protocol {

class Welcome {
public:
    Welcome(Presence& presence, PresenceLists& lists, Policy& policy, notify::VersionNotices& version_notices,
        const store::Directory& directory, Journal& journal);

    /// Tells the user's buddies, then sends the client everything that it needs to start. A step that fails
    /// is skipped.
    void greet(const PresenceLists::Asker& client);

private:
    Presence& presence_;
    PresenceLists& lists_;
    Policy& policy_;
    notify::VersionNotices& version_notices_;
    const store::Directory& directory_;
    Journal& journal_;
};

} // namespace qz::protocol
