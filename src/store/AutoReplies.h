// The automatic reply of each user: its text, and whether it is on.
#pragma once

#include "base/Journal.h"
#include "store/Database.h"

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

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
    bool is_enabled(const std::string& user_name);

    Database& database_;
    Journal& journal_;
    // What every message asks for, as long as nobody changes the table.
    std::optional<std::uint64_t> mark_;
    std::unordered_map<std::string, bool> enabled_;
};

} // namespace qz::store
