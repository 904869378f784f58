#include "config/SettingTable.h"

#include "base/Text.h"
#include "config/IniDocument.h"
#include "helpers/ProtocolKeywords.h"
#include "helpers/SettingsCipher.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace qz::config {

namespace {

constexpr std::int32_t kMost16 = (std::numeric_limits<std::int16_t>::max)();
constexpr std::int32_t kMost32 = (std::numeric_limits<std::int32_t>::max)();
constexpr std::int32_t kMostPort = (std::numeric_limits<std::uint16_t>::max)();
constexpr std::int32_t kMostSockets = kMost16 - 1; // numbers are 16 bits wide, and number 0 means nobody
constexpr std::int32_t kHour = 3600;
constexpr std::int32_t kMostSlots = 1'000'000;
constexpr std::int32_t kMostQueued = 1'000'000;
constexpr std::int32_t kMostRate = 1'000'000;
constexpr std::int32_t kMostDays = 36'500;
constexpr std::int32_t kMostMinutes = 525'600;   // a year
constexpr std::int32_t kLongestStatus = 100'000; // characters

constexpr std::string_view kGeneral = "General SetUp";
constexpr std::string_view kMailSetUp = "SMTP SetUp";
constexpr std::string_view kDatabase = "DB SetUp";
constexpr std::string_view kPolicy = "Policy";
constexpr std::string_view kTransport = "Transport";
constexpr std::string_view kSafeguards = "Safeguards";

constexpr SettingRow text(
    std::string_view section, std::string_view key, std::string_view missing, std::string_view description)
{
    return {.section = section, .key = key, .missing = missing, .description = description};
}

constexpr SettingRow secret(SettingRow row)
{
    row.secret = true;
    return row;
}

constexpr SettingRow encoded(SettingRow row)
{
    row.encoded = true;
    return row;
}

constexpr SettingRow not_served(SettingRow row)
{
    row.served = false;
    return row;
}

constexpr SettingRow with_init(SettingRow row, std::string_view init)
{
    row.init = init;
    return row;
}

constexpr SettingRow address(std::string_view key, std::string_view missing, std::string_view description)
{
    SettingRow row = text(kTransport, key, missing, description);
    row.type = SettingType::Address;
    return row;
}

constexpr SettingRow integer(std::string_view section, std::string_view key, std::int32_t minimum,
    std::int32_t maximum, std::string_view missing, std::string_view description)
{
    SettingRow row = text(section, key, missing, description);
    row.type = SettingType::Integer;
    row.minimum = minimum;
    row.maximum = maximum;
    return row;
}

constexpr SettingRow choice(std::string_view section, std::string_view key, std::string_view choices,
    std::string_view missing, std::string_view description)
{
    SettingRow row = text(section, key, missing, description);
    row.type = SettingType::Choice;
    row.choices = choices;
    row.init = missing;
    return row;
}

constexpr SettingRow boolean(
    std::string_view section, std::string_view key, std::string_view missing, std::string_view description)
{
    SettingRow row = text(section, key, missing, description);
    row.type = SettingType::Boolean;
    return row;
}

constexpr SettingRow safeguard(std::string_view key, std::string_view description)
{
    SettingRow row = boolean(kSafeguards, key, "False", description);
    row.type = SettingType::Switch;
    return with_init(row, "True");
}

constexpr std::array kTable{
    integer(kGeneral, "ListeningPort", 1, kMostPort, "2001", "Port on which clients connect"),
    with_init(integer(kGeneral, "Clear log older than", 0, kMost16, "0",
                  "Days after which lines of the activity log are cleared; 0 keeps all"),
        "90"),
    integer(kGeneral, "ClientInactivityDaysBeforeDisabling", 0, kMost16, "0",
        "Days without activity after which an account is disabled"),
    text(kGeneral, "Client Last Version", "", "Latest client version: major.minor.build"),
    integer(kGeneral, "Client Message Expiration Time", 1, kMost32, "15",
        "Minutes for which a message waits for its recipient"),
    text(kGeneral, "URL Client Last Version", "http://127.0.0.1/velto/download",
        "Address from which users download the client"),
    text(kGeneral, "AdminScreenName", "", "Screen name of the administrator"),
    text(kGeneral, "WebAdministrator", "Caretakership", "Name of the web pages' administrator"),
    secret(text(kGeneral, "get_WebAdministratorPassword", "Caretakership",
        "Password of the web pages' administrator, as it is read")),
    secret(text(kGeneral, "WebAdministratorPassword", "",
        "Password of the web pages' administrator, as hosts set it; nothing reads it")),
    integer(kGeneral, "Client relative delay", -kMost16 - 1, kMost16, "", "Relative delay of clients"),
    encoded(text(kMailSetUp, "SMTP Server", "", "Address of the mail server")),
    encoded(text(kMailSetUp, "SMTP User", "",
        "User name at the mail server; kept for hosts, mails are sent without it")),
    secret(encoded(text(kMailSetUp, "SMTP Password", "",
        "Password at the mail server; kept for hosts, mails are sent without it"))),
    encoded(text(kDatabase, "dbServerIP", "127.0.0.1", "Address of the database server")),
    encoded(text(kDatabase, "dbUserName", "sa", "User name at the database")),
    secret(encoded(text(kDatabase, "dbPassword", "", "Password at the database"))),
    text(kDatabase, "dbODBC", "VELTO", "Name of the ODBC data source"),
    boolean(kPolicy, "AllowAOLIM", "True", "Clients may use an outside messaging network"),
    boolean(kPolicy, "AllowFileTransfer", "True", "Clients may transfer files"),
    boolean(kPolicy, "AllowSnapShot", "True", "Clients may transfer pictures of the screen"),
    boolean("SetUp", "Animation", "True", "The host's window shows animations"),
    integer("SetUp", "ServerSpeed", 0, 2, "1", "Speed of housekeeping: 0 fast, 1 normal, 2 slow"),
    text("Test", "iniTest", "", "A text by which a host checks that this file can be written and read"),

    choice("Storage", "Provider", "embedded odbc", "embedded", "Database: a file of the server, or ODBC"),
    choice("Storage", "Durability", "process power", "process",
        "What stored data survives: a killed process, or also a power loss"),
    with_init(address("ListenAddress", "all", "Address on which clients connect"), "all"),
    address("LocalAddress", "the machine's first address", "Address by which clients reach this machine"),
    not_served(integer(
        kTransport, "TLSPort", 0, kMostPort, "off", "Port on which clients connect with TLS; 0 for none")),
    not_served(text(kTransport, "TLSCertificate", "off", "File of the TLS certificate with its chain, PEM")),
    not_served(text(kTransport, "TLSKey", "off", "File of the TLS certificate's private key, PEM")),
    not_served(with_init(integer(kTransport, "WebPort", 0, kMostPort, "off",
                             "Port of the browser client and the console; 0 for none"),
        "2080")),
    not_served(with_init(
        address("WebAddress", "127.0.0.1", "Address of the browser client and the console"), "127.0.0.1")),
    with_init(integer(kTransport, "MaxConnections", 0, kMostSockets, "off",
                  "Most connections at a time; 0 for no limit"),
        "20000"),
    with_init(integer(kTransport, "MaxConnectionsPerAddress", 0, kMostSockets, "off",
                  "Most connections at a time from one address; 0 for no limit"),
        "200"),
    with_init(integer(kTransport, "ConnectionsPerSecond", 0, kMostRate, "off",
                  "New connections a second from one address, four times as many at once; 0 for no limit"),
        "50"),
    with_init(integer(kTransport, "LogonSeconds", 0, kHour, "off",
                  "Seconds within which a new connection must log on; 0 for no limit"),
        "60"),
    with_init(integer("Mail", "Port", 1, kMostPort, "25", "Port of the mail server"), "25"),
    safeguard("VerifySender", "Refuse requests that name another sender than the connection's user"),
    safeguard("KeepUntilConfirmed", "Send messages again until they are confirmed or expire"),
    safeguard("DurableQueue", "Queued messages survive a restart"),
    safeguard("LogonThrottle", "Failed logons delay further ones, and bring a bounded number of mails"),
    safeguard("DailyJobsOncePerDay", "The daily jobs run once a day"),
    safeguard("HidePasswords", "Passwords are masked in diagnostics and mails"),
    safeguard("VerifyReceipt", "Only its recipient may confirm a message"),
    safeguard("EndRevokedSessions",
        "End the sessions of accounts that are disabled, deleted or given another password"),
    safeguard("InactivityByLastLogon", "Inactivity counts from the last successful logon"),
    safeguard("ReuseRestingSockets",
        "Where all socket numbers rest, the one closed longest ago serves a new connection"),
    safeguard("InactivityGuard",
        "Never disable the administrator's account, nor many accounts at once, nor while the clock is in "
        "doubt"),
    safeguard("ClockGuard",
        "While the clock is in doubt no message expires, no daily job runs, and the activity log is kept"),
    with_init(
        integer(kSafeguards, "MessagesPerSecond", 0, kMostRate, "off",
            "Messages a second from one connection beyond which it is read more slowly; 0 for no limit"),
        "500"),
    with_init(integer(kSafeguards, "LogLinesPerAddress", 0, kMostRate, "off",
                  "Log lines a minute of one address's connections before logon; 0 for no limit"),
        "60"),
    with_init(integer(kSafeguards, "QueuedPerSender", 0, kMostQueued, "off",
                  "Most messages of one sender that may wait to be delivered; 0 for no limit"),
        "5000"),
    with_init(integer(kSafeguards, "QueuedPerRecipient", 0, kMostQueued, "off",
                  "Most messages for one recipient that may wait to be delivered; 0 for no limit"),
        "20000"),
    with_init(
        integer(kSafeguards, "ChunksPerConnection", 0, kMostRate, "off",
            "Most chunks of partial messages that are kept of one connection; 0 for no limit of its own"),
        "100"),
    with_init(integer(kSafeguards, "CloseMalformed", 0, kMostRate, "off",
                  "Faulty units at which a connection is closed; 0 for never"),
        "10"),
    safeguard(
        "RoomNames", "Room names are short, printable and in lower case, and a deleted room has no members"),
    with_init(integer(kSafeguards, "RoomsPerUser", 0, kMostSlots, "off",
                  "Most rooms that one user may own; 0 for no limit"),
        "50"),
    with_init(integer(kSafeguards, "QueuedPerPair", 0, kMostQueued, "off",
                  "Most messages of one sender to one recipient that may wait; 0 for no limit"),
        "1000"),
    with_init(integer(kSafeguards, "QueuedBytesPerSender", 0, kMost32, "off",
                  "Most bytes of text of one sender that may wait to be delivered; 0 for no limit"),
        "20000000"),
    with_init(integer(kSafeguards, "QueuedBytesPerRecipient", 0, kMost32, "off",
                  "Most bytes of text for one recipient that may wait to be delivered; 0 for no limit"),
        "20000000"),
    with_init(integer(kSafeguards, "LongestExpirationDays", 0, kMostDays, "off",
                  "Most days for which a sender may let a message wait; 0 for no limit"),
        "366"),
    with_init(integer(kSafeguards, "OfflineLogMinutes", 0, kMostMinutes, "off",
                  "Minutes between two log lines about messages for the same offline user; 0 for a line with "
                  "each attempt"),
        "60"),
    with_init(integer(kSafeguards, "StatusLength", 0, kLongestStatus, "off",
                  "Most characters of a status, without any that cannot be seen; 0 for no limit"),
        "200"),
    with_init(integer(kSafeguards, "RoomSlots", 0, kMostSlots, "0",
                  "Least number of room memberships there is room for at the start"),
        "1000"),
};

// Sections whose keys are user names or whatever the engine puts there.
constexpr std::array<std::string_view, 5> kKeptByEngine{
    "OnLineInfo", "UsersStatus", "LastDateSentEmail_NewVersion", "DailyJobs", "Test"};

constexpr std::array<std::string_view, 3> kProtecting{kSafeguards, kTransport, "Storage"};

bool is_one_of(std::span<const std::string_view> sections, std::string_view section)
{
    return std::any_of(sections.begin(), sections.end(),
        [&](std::string_view each) { return equal_ignoring_case(each, section); });
}

bool is_ipv4(std::string_view value)
{
    for (int part = 0; part < 4; ++part) {
        const auto dot = (std::min)(value.find('.'), value.size());
        const auto digits = value.substr(0, dot);
        unsigned number = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error != std::errc() || end != digits.data() + digits.size() || number > 255) {
            return false;
        }
        if ((part < 3) != (dot < value.size())) {
            return false;
        }
        value.remove_prefix((std::min)(dot + 1, value.size()));
    }
    return true;
}

/// Only whether it can be meant as one; the socket says the rest.
bool resembles_ipv6(std::string_view value)
{
    return value.find(':') != std::string_view::npos
        && value.substr(0, value.find('%')).find_first_not_of("0123456789abcdefABCDEF:.")
        == std::string_view::npos;
}

bool is_choice(std::string_view choices, std::string_view value)
{
    while (!choices.empty()) {
        const auto end = (std::min)(choices.find(' '), choices.size());
        if (equal_ignoring_case(choices.substr(0, end), value)) {
            return true;
        }
        choices.remove_prefix((std::min)(end + 1, choices.size()));
    }
    return false;
}

/// For every type but texts.
bool is_allowed(const SettingRow& row, std::string_view value)
{
    const auto& keywords = helpers::protocol_keywords();
    switch (row.type) {
    case SettingType::Text:
        break;
    case SettingType::Address:
        return is_ipv4(value) || resembles_ipv6(value) || equal_ignoring_case(value, "all");
    case SettingType::Integer:
        return integer_value(row, value).has_value();
    case SettingType::Boolean:
        return value == keywords.TrueKeyword || value == keywords.FalseKeyword;
    case SettingType::Switch:
        return switch_value(value).has_value();
    case SettingType::Choice:
        return is_choice(row.choices, value);
    }
    return true;
}

/// For people, as the end of "must be".
std::string allowed_values(const SettingRow& row)
{
    const auto& keywords = helpers::protocol_keywords();
    switch (row.type) {
    case SettingType::Text:
        break;
    case SettingType::Address:
        return "an IP address or \"all\"";
    case SettingType::Integer:
        return "a whole number from " + std::to_string(row.minimum) + " to " + std::to_string(row.maximum);
    case SettingType::Boolean:
        return keywords.TrueKeyword + " or " + keywords.FalseKeyword + ", written exactly so";
    case SettingType::Switch:
        return "True or False (also yes or no, on or off, 1 or 0)";
    case SettingType::Choice:
        return "one of: " + std::string(row.choices);
    }
    return "a text";
}

std::optional<std::string> complaint_about_text(const SettingRow& row, std::string_view value)
{
    if (single_line(value) != value) {
        return "must be one line of text";
    }
    const bool is_plain = !value.starts_with(helpers::SettingsCipher::Marker);
    if (row.encoded && is_plain
        && helpers::SettingsCipher::encoded_size(value.size()) > IniDocument::kValueLimit) {
        return "is too long: it would have more than " + std::to_string(IniDocument::kValueLimit)
            + " characters when encoded";
    }
    if (character_count(value) > IniDocument::kValueLimit) {
        return "is too long: at most " + std::to_string(IniDocument::kValueLimit) + " characters are read";
    }
    return std::nullopt;
}

} // namespace

std::span<const SettingRow> setting_table()
{
    return kTable;
}

const SettingRow* find_setting(std::string_view section, std::string_view key)
{
    const auto* const found = std::find_if(kTable.begin(), kTable.end(), [&](const SettingRow& row) {
        return equal_ignoring_case(row.key, key) && equal_ignoring_case(row.section, section);
    });
    return found == kTable.end() ? nullptr : found;
}

const SettingRow* find_setting(std::string_view name)
{
    const auto slash = name.find('/');
    return slash == std::string_view::npos ? nullptr
                                           : find_setting(name.substr(0, slash), name.substr(slash + 1));
}

std::optional<std::int32_t> integer_value(const SettingRow& row, std::string_view value)
{
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    const bool whole = error == std::errc() && end == value.data() + value.size();
    return whole && number >= row.minimum && number <= row.maximum ? std::optional(number) : std::nullopt;
}

std::optional<bool> switch_value(std::string_view value)
{
    if (is_choice("true yes on 1", value)) {
        return true;
    }
    return is_choice("false no off 0", value) ? std::optional(false) : std::nullopt;
}

bool is_of_deployment(const SettingRow& row)
{
    return is_choice("Storage Transport Mail Safeguards", row.section);
}

std::optional<std::string> complaint_about(const SettingRow& row, std::string_view value)
{
    if (value.empty()) {
        return std::nullopt;
    }
    if (row.type == SettingType::Text) {
        return complaint_about_text(row, value);
    }
    if (is_allowed(row, value)) {
        return std::nullopt;
    }
    return "must be " + allowed_values(row) + ", not \"" + printable(first_characters(value, 60)) + "\"";
}

std::optional<std::string> complaint_about_empty(const SettingRow& row)
{
    if (row.type == SettingType::Text && !is_protecting(row.section)) {
        return std::nullopt;
    }
    const bool zero_is_off = row.type == SettingType::Integer && row.minimum == 0 && row.missing == "off";
    return "has no value; write " + allowed_values(row) + (zero_is_off ? " (0 switches it off)" : "")
        + ", or remove the entry"
        + (row.missing.empty() ? "" : "; a missing one means: " + std::string(row.missing));
}

std::span<const std::string_view> protecting_sections()
{
    return kProtecting;
}

bool is_protecting(std::string_view section)
{
    return is_one_of(kProtecting, section);
}

bool is_kept_by_engine(std::string_view section)
{
    return is_one_of(kKeptByEngine, section);
}

} // namespace qz::config
