#include "config/Deployment.h"

#include "base/Text.h"

namespace qz::config {

namespace {

constexpr std::string_view kTransport = "Transport";
constexpr std::uint16_t kMailPort = 25;
constexpr std::string_view kAllAddresses = "all";
constexpr std::string_view kOwnMachine = "127.0.0.1";

} // namespace

std::string Deployment::text(std::string_view section, std::string_view key) const
{
    return ini_.ReadIniValue(section, key);
}

std::optional<std::string> Deployment::fault_of(const SettingRow& row) const
{
    return error_about(row, faults_.get(ini_, [&] { return faults_in(ini_.document()); }));
}

std::string Deployment::valid_text(const SettingRow& row) const
{
    auto value = text(row.section, row.key);
    const auto last = last_valid_.find(&row);
    if (complaint_about(row, value)) {
        return last == last_valid_.end() ? std::string() : last->second;
    }
    if (last != last_valid_.end() && value != last->second && fault_of(row)) {
        return last->second;
    }
    last_valid_.insert_or_assign(&row, value);
    return value;
}

std::string Deployment::valid_text(std::string_view section, std::string_view key) const
{
    const SettingRow* const row = find_setting(section, key);
    return row == nullptr ? std::string() : valid_text(*row);
}

std::vector<Deployment::Review> Deployment::review() const
{
    std::vector<Review> all;
    for (const auto& row : setting_table()) {
        if (!is_of_deployment(row)) {
            continue;
        }
        const auto in_force = valid_text(row);
        const bool is_on = row.type == SettingType::Integer ? integer_value(row, in_force).value_or(0) != 0
                                                            : switch_value(in_force).value_or(false);
        auto value = text(row.section, row.key);
        auto complaint = complaint_about(row, value);
        if (!complaint) {
            complaint = fault_of(row);
        }
        all.push_back({&row, std::move(value), is_on, std::move(complaint)});
    }
    return all;
}

/// A malformed address is handed on: listening on it fails and says so, which is safer than to listen on all.
std::string Deployment::address(std::string_view key) const
{
    const auto* const row = find_setting(kTransport, key);
    std::string value = fault_of(*row) ? valid_text(*row) : text(kTransport, key);
    return equal_ignoring_case(value, kAllAddresses) ? std::string() : value;
}

/// Nothing for 0, which switches a number off.
template <typename Integer>
std::optional<Integer> Deployment::number(std::string_view section, std::string_view key) const
{
    const SettingRow* const row = find_setting(section, key);
    const auto value = row == nullptr ? std::nullopt : integer_value(*row, valid_text(*row));
    return value.value_or(0) == 0 ? std::nullopt : std::optional(static_cast<Integer>(*value));
}

bool Deployment::safeguard(Safeguard which) const
{
    static constexpr std::array<std::string_view, kSafeguards> kKeys{"VerifySender", "KeepUntilConfirmed",
        "DurableQueue", "LogonThrottle", "DailyJobsOncePerDay", "HidePasswords", "VerifyReceipt",
        "EndRevokedSessions", "InactivityByLastLogon", "ReuseRestingSockets", "RoomNames", "InactivityGuard",
        "ClockGuard"};
    const auto at = static_cast<std::size_t>(which);
    return safeguards_.at(at).get(
        ini_, [&] { return switch_value(valid_text("Safeguards", kKeys.at(at))).value_or(false); });
}

platform::Provider Deployment::provider() const
{
    return equal_ignoring_case(valid_text("Storage", "Provider"), "odbc") ? platform::Provider::Odbc
                                                                          : platform::Provider::Embedded;
}

platform::Durability Deployment::durability() const
{
    return equal_ignoring_case(valid_text("Storage", "Durability"), "power") ? platform::Durability::Power
                                                                             : platform::Durability::Process;
}

std::string Deployment::listen_address() const
{
    return address("ListenAddress");
}

std::string Deployment::local_address() const
{
    return address("LocalAddress");
}

std::optional<std::uint16_t> Deployment::tls_port() const
{
    return number<std::uint16_t>(kTransport, "TLSPort");
}

std::string Deployment::tls_certificate() const
{
    return text(kTransport, "TLSCertificate");
}

std::string Deployment::tls_key() const
{
    return text(kTransport, "TLSKey");
}

std::optional<std::uint16_t> Deployment::web_port() const
{
    return number<std::uint16_t>(kTransport, "WebPort");
}

std::string Deployment::web_address() const
{
    // Without a word about it the console is for this machine alone.
    return text(kTransport, "WebAddress").empty() ? std::string(kOwnMachine) : address("WebAddress");
}

std::optional<std::int16_t> Deployment::max_connections() const
{
    return number<std::int16_t>(kTransport, "MaxConnections");
}

std::optional<std::int16_t> Deployment::max_connections_per_address() const
{
    return number<std::int16_t>(kTransport, "MaxConnectionsPerAddress");
}

std::optional<std::int32_t> Deployment::connections_per_second() const
{
    return number<std::int32_t>(kTransport, "ConnectionsPerSecond");
}

std::optional<std::chrono::seconds> Deployment::logon_time() const
{
    const auto seconds = number<std::int32_t>(kTransport, "LogonSeconds");
    return seconds ? std::optional(std::chrono::seconds(*seconds)) : std::nullopt;
}

std::uint16_t Deployment::mail_port() const
{
    return number<std::uint16_t>("Mail", "Port").value_or(kMailPort);
}

bool Deployment::verify_sender() const
{
    return safeguard(Safeguard::VerifySender);
}

bool Deployment::keep_until_confirmed() const
{
    return safeguard(Safeguard::KeepUntilConfirmed);
}

bool Deployment::durable_queue() const
{
    return safeguard(Safeguard::DurableQueue);
}

bool Deployment::logon_throttle() const
{
    return safeguard(Safeguard::LogonThrottle);
}

bool Deployment::daily_jobs_once_per_day() const
{
    return safeguard(Safeguard::DailyJobsOncePerDay);
}

bool Deployment::hide_passwords() const
{
    return safeguard(Safeguard::HidePasswords);
}

bool Deployment::verify_receipt() const
{
    return safeguard(Safeguard::VerifyReceipt);
}

bool Deployment::end_revoked_sessions() const
{
    return safeguard(Safeguard::EndRevokedSessions);
}

bool Deployment::inactivity_by_last_logon() const
{
    return safeguard(Safeguard::InactivityByLastLogon);
}

bool Deployment::reuse_resting_sockets() const
{
    return safeguard(Safeguard::ReuseRestingSockets);
}

bool Deployment::room_names() const
{
    return safeguard(Safeguard::RoomNames);
}

bool Deployment::inactivity_guard() const
{
    return safeguard(Safeguard::InactivityGuard);
}

bool Deployment::clock_guard() const
{
    return safeguard(Safeguard::ClockGuard);
}

std::optional<std::int32_t> Deployment::messages_per_second() const
{
    return messages_per_second_.get(
        ini_, [&] { return number<std::int32_t>("Safeguards", "MessagesPerSecond"); });
}

std::optional<std::int32_t> Deployment::queued_per_sender() const
{
    return queued_per_sender_.get(
        ini_, [&] { return number<std::int32_t>("Safeguards", "QueuedPerSender"); });
}

std::optional<std::int32_t> Deployment::queued_per_recipient() const
{
    return queued_per_recipient_.get(
        ini_, [&] { return number<std::int32_t>("Safeguards", "QueuedPerRecipient"); });
}

std::optional<std::int32_t> Deployment::chunks_per_connection() const
{
    return chunks_per_connection_.get(
        ini_, [&] { return number<std::int32_t>("Safeguards", "ChunksPerConnection"); });
}

std::optional<std::int32_t> Deployment::close_malformed() const
{
    return close_malformed_.get(ini_, [&] { return number<std::int32_t>("Safeguards", "CloseMalformed"); });
}

std::optional<std::int32_t> Deployment::log_lines_per_address() const
{
    return log_lines_per_address_.get(
        ini_, [&] { return number<std::int32_t>("Safeguards", "LogLinesPerAddress"); });
}

std::optional<std::int32_t> Deployment::rooms_per_user() const
{
    return number<std::int32_t>("Safeguards", "RoomsPerUser");
}

std::optional<std::int32_t> Deployment::queued_per_pair() const
{
    return queued_per_pair_.get(ini_, [&] { return number<std::int32_t>("Safeguards", "QueuedPerPair"); });
}

std::optional<std::int32_t> Deployment::queued_bytes_per_sender() const
{
    return queued_bytes_per_sender_.get(
        ini_, [&] { return number<std::int32_t>("Safeguards", "QueuedBytesPerSender"); });
}

std::optional<std::int32_t> Deployment::queued_bytes_per_recipient() const
{
    return queued_bytes_per_recipient_.get(
        ini_, [&] { return number<std::int32_t>("Safeguards", "QueuedBytesPerRecipient"); });
}

std::optional<std::chrono::days> Deployment::longest_expiration() const
{
    const auto days = longest_expiration_.get(
        ini_, [&] { return number<std::int32_t>("Safeguards", "LongestExpirationDays"); });
    return days ? std::optional(std::chrono::days(*days)) : std::nullopt;
}

std::optional<std::chrono::minutes> Deployment::offline_log_pause() const
{
    const auto minutes =
        offline_log_pause_.get(ini_, [&] { return number<std::int32_t>("Safeguards", "OfflineLogMinutes"); });
    return minutes ? std::optional(std::chrono::minutes(*minutes)) : std::nullopt;
}

std::optional<std::int32_t> Deployment::status_length() const
{
    return status_length_.get(ini_, [&] { return number<std::int32_t>("Safeguards", "StatusLength"); });
}

std::int32_t Deployment::room_slots() const
{
    return number<std::int32_t>("Safeguards", "RoomSlots").value_or(0);
}

} // namespace qz::config
