#include "config/Settings.h"

#include "base/Guarded.h"
#include "base/Numbers.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

#include <utility>

namespace qz::config {

namespace {

constexpr SettingName kListeningPort{"General SetUp", "ListeningPort"};
constexpr SettingName kLogOlderThan{"General SetUp", "Clear log older than"};
constexpr SettingName kInactivityDays{"General SetUp", "ClientInactivityDaysBeforeDisabling"};
constexpr SettingName kLastVersion{"General SetUp", "Client Last Version"};
constexpr SettingName kExpirationTime{"General SetUp", "Client Message Expiration Time"};
constexpr SettingName kDownloadAddress{"General SetUp", "URL Client Last Version"};
constexpr SettingName kAdminScreenName{"General SetUp", "AdminScreenName"};
constexpr SettingName kWebAdministrator{"General SetUp", "WebAdministrator"};
constexpr SettingName kWebPasswordRead{"General SetUp", "get_WebAdministratorPassword"};
constexpr SettingName kWebPasswordWritten{"General SetUp", "WebAdministratorPassword"};
constexpr SettingName kClientDelay{"General SetUp", "Client relative delay"};
constexpr SettingName kMailServer{"SMTP SetUp", "SMTP Server"};
constexpr SettingName kMailUser{"SMTP SetUp", "SMTP User"};
constexpr SettingName kMailPasswordRead{"SMTP SetUp", "SMTP Password"}; // one entry: case does not count
constexpr SettingName kMailPasswordWritten{"SMTP SetUp", "SMTP PassWord"};
constexpr SettingName kDatabaseServer{"DB SetUp", "dbServerIP"};
constexpr SettingName kDatabaseUser{"DB SetUp", "dbUserName"};
constexpr SettingName kDatabasePassword{"DB SetUp", "dbPassword"};
constexpr SettingName kDatabaseSource{"DB SetUp", "dbODBC"};
constexpr SettingName kAllowAOLIM{"Policy", "AllowAOLIM"};
constexpr SettingName kAllowFileTransfer{"Policy", "AllowFileTransfer"};
constexpr SettingName kAllowSnapShot{"Policy", "AllowSnapShot"};
constexpr SettingName kAnimation{"Setup", "Animation"};
constexpr SettingName kServerSpeed{"SetUp", "ServerSpeed"};
constexpr SettingName kTest{"Test", "iniTest"};

constexpr std::uint16_t kDefaultPort = 2001;
constexpr std::int16_t kLongestLog = 730;           // days
constexpr std::int32_t kDefaultExpirationTime = 15; // minutes
constexpr std::string_view kDefaultDownloadAddress = "http://127.0.0.1/velto/download";
constexpr std::string_view kBlank = "***BLANK***"; // stored in place of an empty text
constexpr std::int16_t kTrue = -1;
constexpr std::int16_t kFalse = 0;

} // namespace

// ---- The rules ----

std::string Settings::DefaultAdministratorWord()
{
    return "Caretakership";
}

std::string Settings::read(const SettingName& name) const
{
    return ini_.ReadIniValue(name.section, name.key);
}

void Settings::write(const SettingName& name, std::string_view value)
{
    ini_.WriteIniValue(name.section, name.key, value);
}

template <typename Integer> Integer Settings::number(const SettingName& name) const
{
    return to_integer<Integer>(leading_number(read(name)));
}

std::string Settings::decoded(const SettingName& name) const
{
    const std::string value = cipher_.Decode(read(name));
    const auto text = trim(value);
    return text == kBlank ? std::string() : std::string(text);
}

bool Settings::can_be_decoded(const SettingName& name) const
{
    return attempt([&] { decoded(name); });
}

template <typename Rule> std::string Settings::text_property(const char* property, Rule&& rule) const
{
    return guarded(journal_, property, no_address, std::string(), std::forward<Rule>(rule));
}

std::string Settings::encoded_property(const char* property, const SettingName& name) const
{
    return text_property(property, [&] { return decoded(name); });
}

template <typename Integer>
Integer Settings::number_property(const char* property, const SettingName& name) const
{
    return guarded(journal_, property, no_address, Integer{0}, [&] { return number<Integer>(name); });
}

bool Settings::boolean_property(const char* getter, const char* setter, const SettingName& name)
{
    return guarded(journal_, getter, no_address, false, [&] {
        const std::string value = read(name);
        if (value.empty()) {
            set_boolean(setter, name, kTrue);
            return true;
        }
        return value == helpers::protocol_keywords().TrueKeyword;
    });
}

void Settings::set_text(const char* property, const SettingName& name, std::string_view value)
{
    guarded(journal_, property, no_address, [&] { write(name, value); });
}

void Settings::set_number(const char* property, const SettingName& name, std::int32_t value)
{
    set_text(property, name, std::to_string(value));
}

void Settings::set_encoded(const char* property, const SettingName& name, std::string_view value)
{
    guarded(journal_, property, no_address, [&] {
        // A longer one would be cut in reading, and what is left of it would not decode.
        if (helpers::SettingsCipher::encoded_size(value.size()) > IniDocument::kValueLimit) {
            throw runtime_error(RuntimeError::Overflow, "The text is too long to be stored encoded");
        }
        write(name, cipher_.Encode(trim(value).empty() ? kBlank : value));
    });
}

void Settings::set_boolean(const char* property, const SettingName& name, std::int16_t value)
{
    guarded(journal_, property, no_address, [&] {
        const auto& keywords = helpers::protocol_keywords();
        if (value == kTrue || value == kFalse) {
            write(name, value == kTrue ? keywords.TrueKeyword : keywords.FalseKeyword);
        }
    });
}

// ---- The properties ----

std::string Settings::get_ConfigurationFile() const
{
    return text_property("get_ConfigurationFile", [&] { return ini_.path().string(); });
}

std::string Settings::get_IniFile() const
{
    return get_ConfigurationFile();
}

std::uint16_t Settings::get_ListeningPort() const
{
    return guarded(journal_, "get_ListeningPort", no_address, std::uint16_t{0}, [&] {
        const auto port = number<std::uint16_t>(kListeningPort);
        return port == 0 ? kDefaultPort : port;
    });
}

void Settings::write_ListeningPort(std::uint16_t port)
{
    write(kListeningPort, std::to_string(port));
}

std::int16_t Settings::get_LogOlderThan() const
{
    return guarded(journal_, "get_LogOlderThan", no_address, std::int16_t{0}, [&] {
        const auto days = number<std::int16_t>(kLogOlderThan);
        return days < 0 ? kLongestLog : days;
    });
}

void Settings::set_LogOlderThan(std::int16_t days)
{
    set_number("set_LogOlderThan", kLogOlderThan, days);
}

std::int16_t Settings::get_ClientInactivityDaysBeforeDisabling() const
{
    return number_property<std::int16_t>("get_ClientInactivityDaysBeforeDisabling", kInactivityDays);
}

void Settings::set_ClientInactivityDaysBeforeDisabling(std::int16_t days)
{
    set_number("set_ClientInactivityDaysBeforeDisabling", kInactivityDays, days);
}

std::string Settings::get_Client_Last_Version() const
{
    return text_property("get_Client_Last_Version", [&] {
        std::string version = read(kLastVersion);
        return trim(version).empty() ? std::string() : version;
    });
}

void Settings::set_Client_Last_Version(const std::string& version)
{
    set_text("set_Client_Last_Version", kLastVersion, version);
}

std::int32_t Settings::get_Message_Expiration_Time() const
{
    return guarded(journal_, "get_Message_Expiration_Time", no_address, std::int32_t{0}, [&] {
        return expiration_time_.get(ini_, [&] {
            const auto minutes = number<std::int32_t>(kExpirationTime);
            return minutes < 1 ? kDefaultExpirationTime : minutes;
        });
    });
}

void Settings::set_Message_Expiration_Time(std::int32_t minutes)
{
    set_number("set_Message_Expiration_Time", kExpirationTime, minutes);
}

std::string Settings::get_URL_Client_Last_Version() const
{
    return text_property("get_URL_Client_Last_Version", [&] {
        const std::string value = read(kDownloadAddress);
        const auto address = trim(value);
        return std::string(address.empty() ? kDefaultDownloadAddress : address);
    });
}

void Settings::Set_URL_Client_Last_Version(const std::string& address)
{
    set_text("Set_URL_Client_Last_Version", kDownloadAddress, address);
}

void Settings::set_ClientDelay(std::int16_t delay)
{
    set_number("set_ClientDelay", kClientDelay, delay);
}

std::string Settings::get_AdminScreenName() const
{
    return text_property("get_AdminScreenName", [&] { return lower(read(kAdminScreenName)); });
}

void Settings::set_AdminScreenName(const std::string& screen_name)
{
    set_text("set_AdminScreenName", kAdminScreenName, screen_name);
}

std::string Settings::get_WebAdministrator() const
{
    return text_property("get_WebAdministrator", [&] {
        const std::string value = read(kWebAdministrator);
        const auto name = trim(value);
        return name.empty() ? DefaultAdministratorWord() : std::string(name);
    });
}

void Settings::set_WebAdministrator(const std::string& name)
{
    set_text("set_WebAdministrator", kWebAdministrator, name.empty() ? DefaultAdministratorWord() : name);
}

std::string Settings::get_WebAdministratorPassword() const
{
    return text_property("get_WebAdministratorPassword", [&] {
        const std::string password = read(kWebPasswordRead);
        return password.empty() ? DefaultAdministratorWord() : password;
    });
}

void Settings::set_WebAdministratorPassword(const std::string& password)
{
    set_text("set_WebAdministratorPassword", kWebPasswordWritten,
        password.empty() ? DefaultAdministratorWord() : password);
}

std::string Settings::get_SPTMP_Server() const
{
    return encoded_property("get_SPTMP_Server", kMailServer);
}

void Settings::set_SPTMP_Server(const std::string& address)
{
    set_encoded("set_SPTMP_Server", kMailServer, address);
}

std::string Settings::get_SPTMP_User() const
{
    return encoded_property("get_SPTMP_User", kMailUser);
}

void Settings::set_SPTMP_UserName(const std::string& user_name)
{
    set_encoded("set_SPTMP_UserName", kMailUser, user_name);
}

std::string Settings::get_SPTMP_Password() const
{
    return encoded_property("get_SPTMP_Password", kMailPasswordRead);
}

void Settings::set_SPTMP_Password(const std::string& password)
{
    set_encoded("set_SPTMP_Password", kMailPasswordWritten, password);
}

std::string Settings::get_DBServerIP() const
{
    return encoded_property("get_DBServerIP", kDatabaseServer);
}

void Settings::set_DBServerIP(const std::string& address)
{
    set_encoded("set_DBServerIP", kDatabaseServer, address);
}

bool Settings::knows_DBServerIP() const
{
    return can_be_decoded(kDatabaseServer);
}

bool Settings::knows_DBUserName() const
{
    return can_be_decoded(kDatabaseUser);
}

std::string Settings::get_DBUserName() const
{
    return encoded_property("get_DBUserName", kDatabaseUser);
}

void Settings::set_DBUserName(const std::string& user_name)
{
    set_encoded("set_DBUserName", kDatabaseUser, user_name);
}

std::string Settings::get_DBPassword() const
{
    return encoded_property("get_DBPassword", kDatabasePassword);
}

void Settings::set_DBPassword(const std::string& password)
{
    set_encoded("set_DBPassword", kDatabasePassword, password);
}

std::string Settings::get_DBODBC() const
{
    return text_property("get_DBODBC", [&] { return read(kDatabaseSource); });
}

void Settings::set_DBODBC(const std::string& name)
{
    set_text("set_DBODBC", kDatabaseSource, name);
}

bool Settings::get_AllowAOLIM()
{
    return boolean_property("get_AllowAOLIM", "set_AllowAOLIM", kAllowAOLIM);
}

void Settings::set_AllowAOLIM(std::int16_t value)
{
    set_boolean("set_AllowAOLIM", kAllowAOLIM, value);
}

bool Settings::get_AllowFileTransfer()
{
    return boolean_property("get_AllowFileTransfer", "set_AllowFileTransfer", kAllowFileTransfer);
}

void Settings::set_AllowFileTransfer(std::int16_t value)
{
    set_boolean("set_AllowFileTransfer", kAllowFileTransfer, value);
}

bool Settings::get_AllowSnapShot()
{
    return boolean_property("get_AllowSnapShot", "set_AllowSnapShot", kAllowSnapShot);
}

void Settings::set_AllowSnapShot(std::int16_t value)
{
    set_boolean("set_AllowSnapShot", kAllowSnapShot, value);
}

bool Settings::get_Animation()
{
    return boolean_property("get_Animation", "set_Animation", kAnimation);
}

void Settings::set_Animation(std::int16_t value)
{
    set_boolean("set_Animation", kAnimation, value);
}

ServerSpeed Settings::get_ServerSpeedRead()
{
    return guarded(journal_, "get_ServerSpeedRead", no_address, ServerSpeed{0}, [&] {
        if (trim(read(kServerSpeed)).empty()) {
            set_ServerSpeedWrite(ServerSpeed::Normal);
            return ServerSpeed::Normal;
        }
        return static_cast<ServerSpeed>(number<std::int32_t>(kServerSpeed));
    });
}

void Settings::set_ServerSpeedWrite(ServerSpeed speed)
{
    set_number("set_ServerSpeedWrite", kServerSpeed, static_cast<std::int32_t>(speed));
}

std::string Settings::get_iniTest() const
{
    return text_property("get_iniTest", [&] { return read(kTest); });
}

void Settings::set_iniTest(const std::string& text)
{
    set_text("set_iniTest", kTest, text);
}

} // namespace qz::config
