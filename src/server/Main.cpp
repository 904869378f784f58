#include "server/Main.h"

#include "server/Engine.h"

namespace qz::server {

namespace {

constexpr const char* kProtocolVersion = "1";
constexpr const char* kCredits = "VELTO, the instant-messaging server of small organisations";

} // namespace

Main::Main(platform::Machine& machine, MainEvents& events) : engine_(machine, events) { }

Main::~Main() = default;

void Main::Server_Start()
{
    engine_.Server_Start();
}

void Main::Server_End()
{
    engine_.Server_End();
}

void Main::ShutDownServer()
{
    engine_->commands.ShutDownServer();
}

void Main::set_ServerStatus(ServerStatus status)
{
    engine_->status = status;
}

ServerStatus Main::get_ServerStatus() const
{
    return engine_->status;
}

void Main::set_ServerSpeed(ServerSpeed speed)
{
    engine_->housekeeping.set_ServerSpeed(speed);
}

ServerSpeed Main::get_ServerSpeed()
{
    return engine_->settings.get_ServerSpeedRead();
}

void Main::set_AcceptIncomingConnections(bool accept)
{
    engine_->accept_incoming_connections = accept;
}

DateTime Main::get_StarTime() const
{
    return engine_->start_time;
}

std::string Main::listening_address()
{
    return engine_->listening_address();
}

Figures Main::figures()
{
    return engine_->figures.read();
}

std::string Main::get_ServerIP()
{
    return engine_->get_ServerIP();
}

std::string Main::get_ServerTime()
{
    return engine_->server_time();
}

std::string Main::Version()
{
    return VELTO_VERSION;
}

std::string Main::ProtocolVersion()
{
    return kProtocolVersion;
}

std::string Main::Credits()
{
    return kCredits;
}

std::string Main::get_ConnectionOK()
{
    return store::Database::get_ConnectionOK();
}

std::string Main::ConnectionTest()
{
    return engine_->database.ConnectionTest();
}

void Main::set_ServerCommand(const std::string& command_to_send, const std::string& parameters)
{
    engine_->commands.set_ServerCommand(command_to_send, parameters);
}

void Main::delete_ServerCommand(std::int32_t id)
{
    engine_->commands.delete_ServerCommand(id);
}

void Main::PushCloseAllConnections()
{
    engine_->commands.PushCloseAllConnections();
}

void Main::SendInstantMessageToAll(const std::string& message)
{
    engine_->commands.SendInstantMessageToAll(message);
}

void Main::SendRemoteCommand(const std::string& message, const std::string& remote_command)
{
    engine_->commands.SendRemoteCommand(message, remote_command);
}

void Main::LogOffUser(const std::string& screen_name)
{
    engine_->commands.LogOffUser(screen_name);
}

void Main::LoadSockets(std::int16_t number_of_sockets_to_load, bool& to_preserve)
{
    engine_->pool.LoadSockets(number_of_sockets_to_load, to_preserve);
}

std::int16_t Main::get_SocketsCount()
{
    return engine_->pool.get_SocketsCount();
}

std::int32_t Main::get_CountOnLineUsers()
{
    return engine_->connections.count_on_line();
}

std::string Main::get_RemoteAddress(std::int16_t socket)
{
    return engine_->pool.get_RemoteAddress(socket);
}

std::int16_t Main::Retrieve_UserSocket(const std::string& user_name)
{
    return engine_->connections.Retrieve_UserSocket(user_name);
}

void Main::CloseAllConnections()
{
    engine_->policing.CloseAllConnections();
}

std::string Main::get_UserStatus(const std::string& screen_name, const std::string& /*remote_ip*/)
{
    return engine_->presence.get_UserStatus(screen_name);
}

void Main::Send_InstantMessage(const std::string& message, const std::string& screen_name)
{
    engine_->message_requests.Send_InstantMessage(message, screen_name);
}

std::vector<queue::QueueMessageSmall> Main::get_QueueMessages()
{
    return engine_->message_queue.get_QueueMessages();
}

bool Main::Retrieve_AutoReply(const std::string& user_name)
{
    return engine_->auto_replies.Retrieve_AutoReply(user_name);
}

std::string Main::Retrieve_AutoReplyMessage(const std::string& user_name)
{
    return engine_->auto_replies.Retrieve_AutoReplyMessage(user_name);
}

bool Main::Update_AutoReply(const std::string& user_name, const std::string& message, bool enabled)
{
    return engine_->auto_replies.Update_AutoReply(user_name, message, enabled);
}

void Main::SendPolicy(const std::string& screen_name)
{
    engine_->policy.SendPolicy(screen_name);
}

void Main::SendPolicyToClients()
{
    engine_->commands.SendPolicyToClients();
}

void Main::SendMessageExpirationTime(const std::string& screen_name)
{
    engine_->policy.SendMessageExpirationTime(screen_name);
}

void Main::SendMessageExpirationTimeToClients()
{
    engine_->policy.SendMessageExpirationTimeToClients();
}

void Main::SendLastVersionToClients()
{
    engine_->commands.SendLastVersionToClients();
}

void Main::SendEmail(
    const std::string& recipient, const std::string& subject, const std::string& body, std::string& from)
{
    engine_->mail.SendEmail(recipient, subject, body, from);
}

bool Main::ScreenNameExist(const std::string& user_name, const std::string& remote_ip)
{
    return engine_->accounts.ScreenNameExist(user_name, remote_ip);
}

bool Main::ScreenName_Enabled(const std::string& screen_name)
{
    return engine_->accounts.ScreenName_Enabled(screen_name);
}

bool Main::VerifyCredentials(const std::string& screen_name, const std::string& password)
{
    return engine_->accounts.CheckScreenName_Password(screen_name, password);
}

bool Main::set_NewScreenName(const std::string& screen_name, const std::string& email,
    const std::string& first_name, const std::string& last_name, const std::string& password)
{
    return engine_->accounts.set_NewScreenName(screen_name, email, first_name, last_name, password);
}

bool Main::set_MyDetails(const std::string& screen_name, const std::string& email,
    const std::string& first_name, const std::string& last_name, const std::string& phone,
    const std::string& fax, const std::string& home_page, const std::string& country,
    const std::string& password, const std::string& remote_ip)
{
    return engine_->accounts.set_MyDetails(
        screen_name, {email, first_name, last_name, phone, fax, home_page, country, password}, remote_ip);
}

bool Main::set_ScreenNamePassword(
    const std::string& screen_name, const std::string& password, const std::string& remote_ip)
{
    return engine_->accounts.set_ScreenNamePassword(screen_name, password, remote_ip);
}

bool Main::ChangeUserNamePassword(const std::string& screen_name, const std::string& old_password,
    const std::string& new_password, std::int16_t /*index*/, const std::string& remote_ip,
    std::string& service_message)
{
    return engine_->accounts.ChangeUserNamePassword(
        screen_name, old_password, new_password, remote_ip, service_message);
}

void Main::set_ScreenName_Enabled(const std::string& screen_name, bool enabled)
{
    engine_->accounts.set_ScreenName_Enabled(screen_name, enabled);
}

std::string Main::Retrieve_UserEmail(const std::string& user_name)
{
    return engine_->accounts.Retrieve_UserEmail(user_name);
}

std::string Main::Retrieve_UserPhone(const std::string& user_name)
{
    return engine_->accounts.Retrieve_UserPhone(user_name);
}

std::string Main::Retrieve_UserFax(const std::string& user_name)
{
    return engine_->accounts.Retrieve_UserFax(user_name);
}

std::string Main::Retrieve_UserHomePage(const std::string& user_name)
{
    return engine_->accounts.Retrieve_UserHomePage(user_name);
}

std::string Main::Retrieve_UserCountry(const std::string& user_name)
{
    return engine_->accounts.Retrieve_UserCountry(user_name);
}

std::string Main::Retrieve_UserPassWord(const std::string& user_name)
{
    return engine_->accounts.Retrieve_UserPassWord(user_name);
}

std::string Main::Retrieve_UserFirstName(const std::string& user_name)
{
    return engine_->accounts.Retrieve_UserFirstName(user_name);
}

std::string Main::Retrieve_UserLastName(const std::string& user_name)
{
    return engine_->accounts.Retrieve_UserLastName(user_name);
}

DateTime Main::Retrieve_UserCreationTime(const std::string& user_name)
{
    return engine_->accounts.Retrieve_UserCreationTime(user_name);
}

void Main::OpendbConnection()
{
    engine_->database.OpendbConnection();
}

void Main::ClosedbConnection()
{
    engine_->database.ClosedbConnection();
}

void Main::ListAllUsers()
{
    engine_->directory.ListAllUsers();
}

std::vector<std::string> Main::ListAllUsers_web()
{
    return engine_->directory.ListAllUsers_web();
}

std::int32_t Main::ListAllUsersCount_web()
{
    return engine_->directory.ListAllUsersCount_web();
}

std::vector<std::string> Main::get_Log_web(std::int32_t last_record)
{
    return engine_->activity_log.get_Log_web(last_record);
}

std::int32_t Main::get_BuddiesCount()
{
    return engine_->counters.get_BuddiesCount();
}

void Main::ClearOldLog()
{
    engine_->activity_log.ClearOldLog();
}

std::string Main::get_ConfigurationFile()
{
    return engine_->settings.get_ConfigurationFile();
}

std::string Main::get_IniFile()
{
    return engine_->settings.get_IniFile();
}

std::uint16_t Main::get_ListeningPort()
{
    return engine_->settings.get_ListeningPort();
}

void Main::set_ListeningPort(std::uint16_t port_number)
{
    engine_->set_ListeningPort(port_number);
}

std::int16_t Main::get_LogOlderThan()
{
    return engine_->settings.get_LogOlderThan();
}

void Main::set_LogOlderThan(std::int16_t days)
{
    engine_->settings.set_LogOlderThan(days);
}

std::int16_t Main::get_ClientInactivityDaysBeforeDisabling()
{
    return engine_->settings.get_ClientInactivityDaysBeforeDisabling();
}

void Main::set_ClientInactivityDaysBeforeDisabling(std::int16_t days)
{
    engine_->settings.set_ClientInactivityDaysBeforeDisabling(days);
}

std::string Main::get_Client_Last_Version()
{
    return engine_->settings.get_Client_Last_Version();
}

void Main::set_Client_Last_Version(const std::string& version)
{
    engine_->settings.set_Client_Last_Version(version);
}

std::int32_t Main::get_Message_Expiration_Time()
{
    return engine_->settings.get_Message_Expiration_Time();
}

void Main::set_Message_Expiration_Time(std::int32_t minutes)
{
    engine_->settings.set_Message_Expiration_Time(minutes);
}

std::string Main::get_URL_Client_Last_Version()
{
    return engine_->settings.get_URL_Client_Last_Version();
}

void Main::Set_URL_Client_Last_Version(const std::string& value)
{
    engine_->settings.Set_URL_Client_Last_Version(value);
}

std::string Main::get_AdminScreenName()
{
    return engine_->settings.get_AdminScreenName();
}

void Main::set_AdminScreenName(const std::string& screen_name)
{
    engine_->settings.set_AdminScreenName(screen_name);
}

std::string Main::get_WebAdministrator()
{
    return engine_->settings.get_WebAdministrator();
}

void Main::set_WebAdministrator(const std::string& administrator)
{
    engine_->settings.set_WebAdministrator(administrator);
}

std::string Main::get_WebAdministratorPassword()
{
    return engine_->settings.get_WebAdministratorPassword();
}

void Main::set_WebAdministratorPassword(const std::string& administrator_password)
{
    engine_->settings.set_WebAdministratorPassword(administrator_password);
}

void Main::set_ClientDelay(std::int16_t value)
{
    engine_->settings.set_ClientDelay(value);
}

std::string Main::get_SPTMP_Server()
{
    return engine_->settings.get_SPTMP_Server();
}

void Main::set_SPTMP_Server(const std::string& server_address)
{
    engine_->settings.set_SPTMP_Server(server_address);
}

std::string Main::get_SPTMP_User()
{
    return engine_->settings.get_SPTMP_User();
}

void Main::set_SPTMP_UserName(const std::string& user_name)
{
    engine_->settings.set_SPTMP_UserName(user_name);
}

std::string Main::get_SPTMP_Password()
{
    return engine_->settings.get_SPTMP_Password();
}

void Main::set_SPTMP_Password(const std::string& password)
{
    engine_->settings.set_SPTMP_Password(password);
}

std::string Main::get_DBServerIP()
{
    return engine_->settings.get_DBServerIP();
}

void Main::set_DBServerIP(const std::string& server_ip)
{
    engine_->settings.set_DBServerIP(server_ip);
}

std::string Main::get_DBUserName()
{
    return engine_->settings.get_DBUserName();
}

void Main::set_DBUserName(const std::string& user_name)
{
    engine_->settings.set_DBUserName(user_name);
}

std::string Main::get_DBPassword()
{
    return engine_->settings.get_DBPassword();
}

void Main::set_DBPassword(const std::string& password)
{
    engine_->settings.set_DBPassword(password);
}

std::string Main::get_DBODBC()
{
    return engine_->settings.get_DBODBC();
}

void Main::set_DBODBC(const std::string& odbc_name)
{
    engine_->settings.set_DBODBC(odbc_name);
}

bool Main::get_AllowAOLIM()
{
    return engine_->settings.get_AllowAOLIM();
}

void Main::set_AllowAOLIM(VariantBool value)
{
    engine_->settings.set_AllowAOLIM(value.value);
}

bool Main::get_AllowFileTransfer()
{
    return engine_->settings.get_AllowFileTransfer();
}

void Main::set_AllowFileTransfer(VariantBool value)
{
    engine_->settings.set_AllowFileTransfer(value.value);
}

bool Main::get_AllowSnapShot()
{
    return engine_->settings.get_AllowSnapShot();
}

void Main::set_AllowSnapShot(VariantBool value)
{
    engine_->settings.set_AllowSnapShot(value.value);
}

bool Main::get_Animation()
{
    return engine_->settings.get_Animation();
}

void Main::set_Animation(VariantBool value)
{
    engine_->settings.set_Animation(value.value);
}

ServerSpeed Main::get_ServerSpeedRead()
{
    return engine_->settings.get_ServerSpeedRead();
}

void Main::set_ServerSpeedWrite(ServerSpeed speed)
{
    engine_->settings.set_ServerSpeedWrite(speed);
}

std::string Main::get_iniTest()
{
    return engine_->settings.get_iniTest();
}

void Main::set_iniTest(const std::string& test_message)
{
    engine_->settings.set_iniTest(test_message);
}

} // namespace qz::server
