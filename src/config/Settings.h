// The engine's settings as its hosts see them: a getter and a setter each, every access at the settings file.
#pragma once

#include "base/Journal.h"
#include "config/IniFile.h"
#include "helpers/SettingsCipher.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qz::config {

/// Where a setting stands.
struct SettingName {
    std::string_view section;
    std::string_view key;
};

/// Any other number may come in through the interface too.
enum class ServerSpeed : std::int32_t { Fast = 0, Normal = 1, Slow = 2 };

/// Every property reports its own errors under its name and then returns the empty text, 0 or false. A write
/// that the system refuses is not reported: the next read returns the old value.
class Settings {
public:
    /// All must outlive the object.
    Settings(IniFile& ini, helpers::SettingsCipher& cipher, Journal& journal)
        : ini_(ini), cipher_(cipher), journal_(journal)
    {
    }

    std::string get_ConfigurationFile() const;
    std::string get_IniFile() const;

    std::uint16_t get_ListeningPort() const;
    /// Only the entry; the listening socket is told by the server room.
    void write_ListeningPort(std::uint16_t port);
    std::int16_t get_LogOlderThan() const; // days
    void set_LogOlderThan(std::int16_t days);
    std::int16_t get_ClientInactivityDaysBeforeDisabling() const;
    void set_ClientInactivityDaysBeforeDisabling(std::int16_t days);
    std::string get_Client_Last_Version() const;
    void set_Client_Last_Version(const std::string& version);
    std::int32_t get_Message_Expiration_Time() const; // minutes
    void set_Message_Expiration_Time(std::int32_t minutes);
    std::string get_URL_Client_Last_Version() const;
    void Set_URL_Client_Last_Version(const std::string& address);
    void set_ClientDelay(std::int16_t delay);

    std::string get_AdminScreenName() const;
    void set_AdminScreenName(const std::string& screen_name);
    std::string get_WebAdministrator() const;
    void set_WebAdministrator(const std::string& name);
    /// Does not read what set_WebAdministratorPassword writes, but an entry of its own that only a person can
    /// write. Web pages of deployments rely on the word that this returns.
    std::string get_WebAdministratorPassword() const;
    void set_WebAdministratorPassword(const std::string& password);

    std::string get_SPTMP_Server() const;
    void set_SPTMP_Server(const std::string& address);
    std::string get_SPTMP_User() const;
    void set_SPTMP_UserName(const std::string& user_name);
    std::string get_SPTMP_Password() const;
    void set_SPTMP_Password(const std::string& password);

    std::string get_DBServerIP() const;
    void set_DBServerIP(const std::string& address);
    /// False when the entry is encoded and this server's key does not open it: it reads as empty then, and a
    /// default must not be written over it.
    bool knows_DBServerIP() const;
    bool knows_DBUserName() const;
    std::string get_DBUserName() const;
    void set_DBUserName(const std::string& user_name);
    std::string get_DBPassword() const;
    void set_DBPassword(const std::string& password);
    std::string get_DBODBC() const;
    void set_DBODBC(const std::string& name);

    /// Booleans: the first read of a missing entry writes True. Setters take -1 (true) or 0 (false) and
    /// ignore every other number.
    bool get_AllowAOLIM();
    void set_AllowAOLIM(std::int16_t value);
    bool get_AllowFileTransfer();
    void set_AllowFileTransfer(std::int16_t value);
    bool get_AllowSnapShot();
    void set_AllowSnapShot(std::int16_t value);
    bool get_Animation();
    void set_Animation(std::int16_t value);

    /// The first read of a missing entry writes Normal.
    ServerSpeed get_ServerSpeedRead();
    void set_ServerSpeedWrite(ServerSpeed speed);

    std::string get_iniTest() const;
    void set_iniTest(const std::string& text);

private:
    static std::string DefaultAdministratorWord();

    std::string read(const SettingName& name) const;
    void write(const SettingName& name, std::string_view value);
    template <typename Integer> Integer number(const SettingName& name) const;
    std::string decoded(const SettingName& name) const;
    bool can_be_decoded(const SettingName& name) const;

    // A whole property each, guarded under its name.
    template <typename Rule> std::string text_property(const char* property, Rule&& rule) const;
    std::string encoded_property(const char* property, const SettingName& name) const;
    template <typename Integer> Integer number_property(const char* property, const SettingName& name) const;
    bool boolean_property(const char* getter, const char* setter, const SettingName& name);
    void set_text(const char* property, const SettingName& name, std::string_view value);
    void set_number(const char* property, const SettingName& name, std::int32_t value);
    void set_encoded(const char* property, const SettingName& name, std::string_view value);
    void set_boolean(const char* property, const SettingName& name, std::int16_t value);

    IniFile& ini_;
    helpers::SettingsCipher& cipher_;
    Journal& journal_;
    mutable KeptValue<std::int32_t> expiration_time_; // every message asks for it
};

} // namespace qz::config
