// The automatic reply of each user: its text, and whether it is on.
#pragma once

#include "base/Journal.h"
#include "store/Database.h"

#include <string>

namespace qz::store {

/// User names go into the statements as they stand.
class AutoReplies {
public:
    AutoReplies(Database& database, Journal& journal) : database_(database), journal_(journal) { }

    /// False and the empty text when the user has never set one.
    bool Retrieve_AutoReply(const std::string& user_name);
    std::string Retrieve_AutoReplyMessage(const std::string& user_name);
    /// @return false when it could not be stored.
    bool Update_AutoReply(const std::string& user_name, const std::string& message, bool enabled);

private:
    Database& database_;
    Journal& journal_;
};

} // namespace qz::store
