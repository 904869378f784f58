// The connection records: who is on line, on which socket, from where, under which session id.
#pragma once

#include "base/DateTime.h"

#include <cstdint>
#include <functional>
#include <queue>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qz::net {

struct ConnectionRecord {
    std::string UserName;
    std::int16_t Socket = 0;
    std::int32_t Status = 0; // 1 = released
    std::string RemoteIP;
    DateTime ChangeTime;
    std::string SessionID;
    bool OnLine = false;
    std::string StatusText; // as the user last announced it; goes with the connection
};

/// Answers every question as a scan over all records in index order would, from indexes. Several records may
/// carry one name, and even one socket; "first" and "last" mean the lowest and the highest record number.
class ConnectionTable {
public:
    ConnectionTable() { reset(0); }

    /// Empties the table and sizes it to 0 … upper_bound.
    void reset(std::int32_t upper_bound);

    const std::vector<ConnectionRecord>& records() const { return records_; }
    std::int32_t count_on_line() const { return count_on_line_; }

    /// Fills the first record that is not on line; when there is none the table grows by one. The status is
    /// StatusOnLine until the user announces another.
    /// @return the record's number.
    std::int32_t fill(const std::string& user_name, const std::string& session_id, std::int16_t socket,
        const std::string& remote_ip, DateTime now);
    /// Releases the records on a socket.
    /// @return the user name of the last of them; empty when there was none.
    std::string release(std::int16_t socket, DateTime now);
    /// Records a status text with every on-line record of the name.
    void set_status_text(std::string_view user_name, const std::string& status);

    /// Numbers of the on-line records that carry the name, ascending.
    const std::vector<std::int32_t>& named(std::string_view user_name) const;
    /// Socket of the first on-line record of the name; 0, which means nobody, when there is none.
    std::int16_t Retrieve_UserSocket(std::string_view user_name) const;
    /// The first on-line record of the name, or on the socket; none when there is no such record.
    const ConnectionRecord* first_named(std::string_view user_name) const;
    const ConnectionRecord* first_on(std::int16_t socket) const;
    const ConnectionRecord* last_on(std::int16_t socket) const;
    /// User name of the first on-line record on the socket; empty when there is none.
    std::string Retrieve_ScreenNameBySocket(std::int16_t socket) const;
    /// True when an on-line record on the socket carries the name, in any letter case: requests name users in
    /// lower case. False for an empty name.
    bool is_logged_on(std::string_view user_name, std::int16_t socket) const;
    /// True when the first on-line record of the name, after the parser's transform, is not marked released.
    bool UserIsOnline(const std::string& user_name) const;
    /// Names that several on-line records carry, in the order of their first records.
    std::vector<std::string> names_on_line_more_than_once() const;
    bool is_session_id_used(const std::string& session_id) const
    {
        return by_session_id_.contains(session_id);
    }
    /// User name of the first on-line record from the address; "NOSCREENNAMEFOUND" when there is none.
    std::string get_UserName_byIPAddress(const std::string& remote_ip) const;

private:
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
    };
    // Record numbers under a key, ascending.
    template <typename Key, typename Hash = std::hash<Key>>
    using Index = std::unordered_map<Key, std::vector<std::int32_t>, Hash, std::equal_to<>>;

    void enter(std::int32_t number);
    void leave(std::int32_t number);

    std::vector<ConnectionRecord> records_;
    std::int32_t count_on_line_ = 0;
    std::priority_queue<std::int32_t, std::vector<std::int32_t>, std::greater<>> free_;
    Index<std::string, TextHash> by_name_;
    Index<std::string, TextHash> by_session_id_;
    Index<std::string, TextHash> by_address_;
    Index<std::int16_t> by_socket_;
    std::set<std::string, std::less<>> repeated_names_; // so that policing need not compare all with all
};

} // namespace qz::net
