// The settings of a deployment beyond the engine's own: storage, transport, mail port, safeguards. A missing
// entry leaves the engine as it is without the setting; instead of a malformed one (a value that is none, an
// empty one, a line without "=", a misspelt key, two values) the last valid value of that entry holds, and
// where there was none what the file says at its first place, or nothing.
#pragma once

#include "config/IniFile.h"
#include "config/SettingTable.h"
#include "config/SettingsFaults.h"
#include "platform/Machine.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qz::config {

/// Each is read from the file when it is asked for.
class Deployment {
public:
    /// @param ini  must outlive the object.
    explicit Deployment(const IniFile& ini) : ini_(ini) { }

    /// One setting as it is now.
    struct Review {
        const SettingRow* row;
        std::string value;                    // as it stands in the file
        bool is_on;                           // a switch that is on, or a limit that is in force
        std::optional<std::string> complaint; // about a malformed entry
    };
    /// All settings of the deployment. From here on their values are those that hold in place of malformed
    /// ones.
    std::vector<Review> review() const;

    platform::Provider provider() const;
    platform::Durability durability() const;

    std::string listen_address() const; // empty for all
    std::string local_address() const;  // empty for the one that the machine finds
    std::optional<std::uint16_t> tls_port() const;
    std::string tls_certificate() const;
    std::string tls_key() const;
    std::optional<std::uint16_t> web_port() const;
    std::string web_address() const; // empty for all
    std::optional<std::int16_t> max_connections() const;
    std::optional<std::int16_t> max_connections_per_address() const;
    /// New connections of one address in a second.
    std::optional<std::int32_t> connections_per_second() const;
    /// Time within which a new connection must log on.
    std::optional<std::chrono::seconds> logon_time() const;

    std::uint16_t mail_port() const;

    bool verify_sender() const;
    bool keep_until_confirmed() const;
    bool durable_queue() const;
    bool logon_throttle() const;
    bool daily_jobs_once_per_day() const;
    bool hide_passwords() const;
    bool verify_receipt() const;
    bool end_revoked_sessions() const;
    bool inactivity_by_last_logon() const;
    bool reuse_resting_sockets() const;
    bool room_names() const;
    bool inactivity_guard() const;
    bool clock_guard() const;
    /// Units that a connection may send in a second before it is read more slowly.
    std::optional<std::int32_t> messages_per_second() const;
    /// Most messages of one sender, and for one recipient, that may wait in the queue.
    std::optional<std::int32_t> queued_per_sender() const;
    std::optional<std::int32_t> queued_per_recipient() const;
    /// Most chunks of partial messages that are kept of one connection.
    std::optional<std::int32_t> chunks_per_connection() const;
    /// Number of faulty units at which a connection is closed.
    std::optional<std::int32_t> close_malformed() const;
    /// Lines a minute that connections of one address may add to the log while nobody is logged on on them.
    std::optional<std::int32_t> log_lines_per_address() const;
    /// Most rooms that one user may own.
    std::optional<std::int32_t> rooms_per_user() const;
    /// The same of one sender for one recipient, rooms not counted.
    std::optional<std::int32_t> queued_per_pair() const;
    /// Most bytes of their texts.
    std::optional<std::int32_t> queued_bytes_per_sender() const;
    std::optional<std::int32_t> queued_bytes_per_recipient() const;
    /// Longest time for which a sender may let a message wait.
    std::optional<std::chrono::days> longest_expiration() const;
    /// Time after which the log is told again that a message waits for somebody who is off line; none: with
    /// each attempt to send it.
    std::optional<std::chrono::minutes> offline_log_pause() const;
    /// Most characters of a status.
    std::optional<std::int32_t> status_length() const;
    /// Least number of membership slots made at the start; 0 when the engine's own number holds.
    std::int32_t room_slots() const;

private:
    enum class Safeguard : std::uint8_t {
        VerifySender,
        KeepUntilConfirmed,
        DurableQueue,
        LogonThrottle,
        DailyJobsOncePerDay,
        HidePasswords,
        VerifyReceipt,
        EndRevokedSessions,
        InactivityByLastLogon,
        ReuseRestingSockets,
        RoomNames,
        InactivityGuard,
        ClockGuard,
    };
    static constexpr std::size_t kSafeguards = 13;

    std::string text(std::string_view section, std::string_view key) const;
    /// What keeps the file from saying what the setting is to be, apart from its value.
    std::optional<std::string> fault_of(const SettingRow& row) const;
    /// The value, or the last valid one instead of a malformed one.
    std::string valid_text(const SettingRow& row) const;
    std::string valid_text(std::string_view section, std::string_view key) const;
    std::string address(std::string_view key) const;
    template <typename Integer>
    std::optional<Integer> number(std::string_view section, std::string_view key) const;
    bool safeguard(Safeguard which) const;

    const IniFile& ini_;
    mutable std::map<const SettingRow*, std::string> last_valid_;
    mutable KeptValue<std::vector<SettingsFault>> faults_;
    // What every message asks for.
    mutable std::array<KeptValue<bool>, kSafeguards> safeguards_;
    mutable KeptValue<std::optional<std::int32_t>> messages_per_second_;
    mutable KeptValue<std::optional<std::int32_t>> queued_per_sender_;
    mutable KeptValue<std::optional<std::int32_t>> queued_per_recipient_;
    mutable KeptValue<std::optional<std::int32_t>> chunks_per_connection_;
    mutable KeptValue<std::optional<std::int32_t>> close_malformed_;
    mutable KeptValue<std::optional<std::int32_t>> log_lines_per_address_;
    mutable KeptValue<std::optional<std::int32_t>> queued_per_pair_;
    mutable KeptValue<std::optional<std::int32_t>> queued_bytes_per_sender_;
    mutable KeptValue<std::optional<std::int32_t>> queued_bytes_per_recipient_;
    mutable KeptValue<std::optional<std::int32_t>> longest_expiration_;
    mutable KeptValue<std::optional<std::int32_t>> offline_log_pause_;
    mutable KeptValue<std::optional<std::int32_t>> status_length_;
};

} // namespace qz::config
