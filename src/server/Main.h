// The engine as its host sees it: one object to create, configure, start, listen to and stop.
#pragma once

#include "base/DateTime.h"
#include "config/Settings.h"
#include "platform/Machine.h"
#include "queue/QueueMessageSmall.h"
#include "server/EngineHandle.h"
#include "server/Figures.h"
#include "server/MainEvents.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qz::server {

enum class ServerStatus : std::int32_t { Arrested = 0, Started = 1, Paused = 2 };
using config::ServerSpeed;

/// A COM Boolean, which can hold any 16-bit number: -1 is true, 0 is false, and the policy setters ignore the
/// rest.
struct VariantBool {
    std::int16_t value = 0;
};

/// A face: every member keeps its given name and forwards to the room that owns the work. No member throws; a
/// failure is logged, raised as Error under the member's name, and the member returns its default (0, false,
/// empty). Texts are UTF-8. Everything runs on one thread, the one that runs the machine's event loop.
class Main {
public:
    /// Reads the settings in the machine's home folder and opens the database; a failure to open it is
    /// reported.
    /// @param machine, events  must outlive this object; see also the destructor.
    Main(platform::Machine& machine, MainEvents& events);
    /// Logs the closing line and closes the database. Inside an event this happens at the end of the turn of
    /// the loop, also of a loop that is being stopped: the machine must live until then. No event is raised
    /// from here on.
    ~Main();
    Main(const Main&) = delete;
    Main& operator=(const Main&) = delete;

    // Starting, stopping, status.
    /// Inside an event, the start of an arrested server is carried out when the event has ended.
    void Server_Start();
    /// Tells the active users and queues the shutdown for a later tick; raises ShutDown at once when the
    /// status is not Started.
    void Server_End();
    /// Queues two commands, close all connections and shut down, for a later tick.
    void ShutDownServer();
    void set_ServerStatus(ServerStatus status);
    ServerStatus get_ServerStatus() const;
    /// Stores the speed and re-times the housekeeping timer. Errors are ignored.
    void set_ServerSpeed(ServerSpeed speed);
    ServerSpeed get_ServerSpeed();
    /// While false, connection requests are dropped silently.
    void set_AcceptIncomingConnections(bool accept);
    /// The moment of the last start; the empty time before it.
    DateTime get_StarTime() const;
    std::string get_ServerIP();
    std::string get_ServerTime();
    std::string Version();
    std::string ProtocolVersion();
    std::string Credits();
    /// Always "Connection OK": a probe of the object itself.
    std::string get_ConnectionOK();
    /// "Connection OK", or three lines for the administrator, which show the database password.
    std::string ConnectionTest();

    // For hosts in this process; not members of the interface.
    Figures figures();
    /// An address on which clients reach the listening port: ListenAddress where it names one, else
    /// get_ServerIP.
    std::string listening_address();

    // Remote commands: rows of the table `command`, carried out by a later tick.
    void set_ServerCommand(const std::string& command_to_send, const std::string& parameters);
    /// @param id  0 deletes all.
    void delete_ServerCommand(std::int32_t id);
    void PushCloseAllConnections();
    void SendInstantMessageToAll(const std::string& message);
    void SendRemoteCommand(const std::string& message, const std::string& remote_command);
    void LogOffUser(const std::string& screen_name);

    // Connections.
    void LoadSockets(std::int16_t number_of_sockets_to_load, bool& to_preserve);
    std::int16_t get_SocketsCount();
    std::int32_t get_CountOnLineUsers();
    std::string get_RemoteAddress(std::int16_t socket);
    /// 0 when the name is empty or not on line.
    std::int16_t Retrieve_UserSocket(const std::string& user_name);
    void CloseAllConnections();
    /// The status text last recorded for a name that is on line, else StatusOffLine.
    std::string get_UserStatus(const std::string& screen_name, const std::string& remote_ip);

    // Messages and policy.
    void Send_InstantMessage(const std::string& message, const std::string& screen_name);
    std::vector<queue::QueueMessageSmall> get_QueueMessages();
    bool Retrieve_AutoReply(const std::string& user_name);
    std::string Retrieve_AutoReplyMessage(const std::string& user_name);
    bool Update_AutoReply(const std::string& user_name, const std::string& message, bool enabled);
    void SendPolicy(const std::string& screen_name);
    void SendPolicyToClients();
    void SendMessageExpirationTime(const std::string& screen_name);
    void SendMessageExpirationTimeToClients();
    void SendLastVersionToClients();
    /// @param from  filled in with the sender that was used when it is empty.
    void SendEmail(
        const std::string& recipient, const std::string& subject, const std::string& body, std::string& from);

    // Accounts.
    bool ScreenNameExist(const std::string& user_name, const std::string& remote_ip);
    bool ScreenName_Enabled(const std::string& screen_name);
    bool VerifyCredentials(const std::string& screen_name, const std::string& password);
    /// The name is stored in lower case. False when it is taken.
    bool set_NewScreenName(const std::string& screen_name, const std::string& email,
        const std::string& first_name, const std::string& last_name, const std::string& password);
    bool set_MyDetails(const std::string& screen_name, const std::string& email,
        const std::string& first_name, const std::string& last_name, const std::string& phone,
        const std::string& fax, const std::string& home_page, const std::string& country,
        const std::string& password, const std::string& remote_ip);
    bool set_ScreenNamePassword(
        const std::string& screen_name, const std::string& password, const std::string& remote_ip);
    /// @param index  the user's socket; not looked at.
    /// @param service_message  receives a sentence for the user.
    bool ChangeUserNamePassword(const std::string& screen_name, const std::string& old_password,
        const std::string& new_password, std::int16_t index, const std::string& remote_ip,
        std::string& service_message);
    void set_ScreenName_Enabled(const std::string& screen_name, bool enabled);
    std::string Retrieve_UserEmail(const std::string& user_name);
    std::string Retrieve_UserPhone(const std::string& user_name);
    std::string Retrieve_UserFax(const std::string& user_name);
    std::string Retrieve_UserHomePage(const std::string& user_name);
    std::string Retrieve_UserCountry(const std::string& user_name);
    std::string Retrieve_UserPassWord(const std::string& user_name);
    std::string Retrieve_UserFirstName(const std::string& user_name);
    std::string Retrieve_UserLastName(const std::string& user_name);
    DateTime Retrieve_UserCreationTime(const std::string& user_name);

    // Database and activity log.
    void OpendbConnection();
    void ClosedbConnection();
    void ListAllUsers();
    std::vector<std::string> ListAllUsers_web();
    std::int32_t ListAllUsersCount_web();
    std::vector<std::string> get_Log_web(std::int32_t last_record);
    /// Number of accounts; the name is the interface's own.
    std::int32_t get_BuddiesCount();
    void ClearOldLog();

    // Settings: read from and written to the settings file at every call.
    std::string get_ConfigurationFile();
    std::string get_IniFile();
    std::uint16_t get_ListeningPort();
    void set_ListeningPort(std::uint16_t port_number);
    std::int16_t get_LogOlderThan();
    void set_LogOlderThan(std::int16_t days);
    std::int16_t get_ClientInactivityDaysBeforeDisabling();
    void set_ClientInactivityDaysBeforeDisabling(std::int16_t days);
    std::string get_Client_Last_Version();
    void set_Client_Last_Version(const std::string& version);
    std::int32_t get_Message_Expiration_Time();
    void set_Message_Expiration_Time(std::int32_t minutes);
    std::string get_URL_Client_Last_Version();
    void Set_URL_Client_Last_Version(const std::string& value);
    std::string get_AdminScreenName();
    void set_AdminScreenName(const std::string& screen_name);
    std::string get_WebAdministrator();
    void set_WebAdministrator(const std::string& administrator);
    std::string get_WebAdministratorPassword();
    void set_WebAdministratorPassword(const std::string& administrator_password);
    void set_ClientDelay(std::int16_t value);
    std::string get_SPTMP_Server();
    void set_SPTMP_Server(const std::string& server_address);
    std::string get_SPTMP_User();
    void set_SPTMP_UserName(const std::string& user_name);
    std::string get_SPTMP_Password();
    void set_SPTMP_Password(const std::string& password);
    std::string get_DBServerIP();
    void set_DBServerIP(const std::string& server_ip);
    std::string get_DBUserName();
    void set_DBUserName(const std::string& user_name);
    std::string get_DBPassword();
    void set_DBPassword(const std::string& password);
    std::string get_DBODBC();
    void set_DBODBC(const std::string& odbc_name);
    bool get_AllowAOLIM();
    void set_AllowAOLIM(VariantBool value);
    bool get_AllowFileTransfer();
    void set_AllowFileTransfer(VariantBool value);
    bool get_AllowSnapShot();
    void set_AllowSnapShot(VariantBool value);
    bool get_Animation();
    void set_Animation(VariantBool value);
    ServerSpeed get_ServerSpeedRead();
    void set_ServerSpeedWrite(ServerSpeed speed);
    std::string get_iniTest();
    void set_iniTest(const std::string& test_message);

private:
    EngineHandle engine_;
};

} // namespace qz::server
