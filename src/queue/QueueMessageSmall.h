// The host's view of one queued message.
#pragma once

#include "base/DateTime.h"

#include <string>

namespace qz::queue {

struct QueueMessageSmall {
    std::string UserName_From;
    std::string UserName_To;
    DateTime ReceivedTime;
    DateTime ExpirationTime;

    bool operator==(const QueueMessageSmall&) const = default;
};

} // namespace qz::queue
