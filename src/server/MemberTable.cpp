#include "server/MemberTable.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <tuple>
#include <type_traits>
#include <utility>

namespace qz::server {

namespace {

// How each type of the declarations in Main travels in a Variant.
template <typename T> struct Travels;

template <typename Integer, ValueType Type> struct TravelsAsInteger {
    static constexpr ValueType type = Type;
    static Integer from(const Variant& value) { return static_cast<Integer>(std::get<std::int32_t>(value)); }
    static Variant to(Integer value) { return static_cast<std::int32_t>(value); }
};
template <> struct Travels<std::int16_t> : TravelsAsInteger<std::int16_t, ValueType::Integer16> {
};
template <> struct Travels<std::uint16_t> : TravelsAsInteger<std::uint16_t, ValueType::Unsigned16> {
};
template <> struct Travels<std::int32_t> : TravelsAsInteger<std::int32_t, ValueType::Integer32> {
};
template <> struct Travels<ServerStatus> : TravelsAsInteger<ServerStatus, ValueType::Status> {
};
template <> struct Travels<ServerSpeed> : TravelsAsInteger<ServerSpeed, ValueType::Speed> {
};

template <> struct Travels<bool> {
    static constexpr ValueType type = ValueType::Boolean;
    static bool from(const Variant& value) { return std::get<std::int32_t>(value) != 0; }
    static Variant to(bool value) { return value; }
};
template <> struct Travels<VariantBool> {
    static constexpr ValueType type = ValueType::Boolean;
    static VariantBool from(const Variant& value)
    {
        return {static_cast<std::int16_t>(std::get<std::int32_t>(value))};
    }
};
template <> struct Travels<std::string> {
    static constexpr ValueType type = ValueType::Text;
    static std::string from(const Variant& value) { return valid_utf8(std::get<std::string>(value)); }
    static Variant to(std::string value) { return value; }
};
template <typename T, ValueType Type> struct TravelsAsResult {
    static constexpr ValueType type = Type;
    static Variant to(T value) { return value; }
};
template <> struct Travels<DateTime> : TravelsAsResult<DateTime, ValueType::Date> {
};
template <>
struct Travels<std::vector<std::string>> : TravelsAsResult<std::vector<std::string>, ValueType::Texts> {
};
template <>
struct Travels<std::vector<queue::QueueMessageSmall>>
    : TravelsAsResult<std::vector<queue::QueueMessageSmall>, ValueType::Messages> {
};
template <> struct Travels<void> {
    static constexpr ValueType type = ValueType::Empty;
};

template <typename Argument>
constexpr bool kByReference =
    std::is_lvalue_reference_v<Argument> && !std::is_const_v<std::remove_reference_t<Argument>>;

template <typename Argument> void write_back(Variant& place, std::decay_t<Argument>& value)
{
    if constexpr (kByReference<Argument>) {
        place = Travels<std::decay_t<Argument>>::to(value);
    }
}

template <auto Method, typename Result, typename... Arguments, std::size_t... I>
Variant call_member(Main& main, std::vector<Variant>& values, std::index_sequence<I...> /*positions*/)
{
    std::tuple<std::decay_t<Arguments>...> arguments{Travels<std::decay_t<Arguments>>::from(values.at(I))...};
    Variant result;
    if constexpr (std::is_void_v<Result>) {
        (main.*Method)(std::get<I>(arguments)...);
    } else {
        result = Travels<Result>::to((main.*Method)(std::get<I>(arguments)...));
    }
    (write_back<Arguments>(values[I], std::get<I>(arguments)), ...);
    return result;
}

/// A row of the table: types and passing follow from the declaration in Main, names and defaults are given.
template <auto Method, typename Result, typename... Arguments>
Member describe(std::string_view name, std::vector<Parameter> parameters)
{
    assert(parameters.size() == sizeof...(Arguments));
    const std::array<ValueType, sizeof...(Arguments)> types{Travels<std::decay_t<Arguments>>::type...};
    const std::array<bool, sizeof...(Arguments)> by_reference{kByReference<Arguments>...};
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        parameters[i].type = types.at(i);
        parameters[i].by_reference = by_reference.at(i);
    }
    return {name, std::move(parameters), Travels<Result>::type, [](Main& main, std::vector<Variant>& values) {
                return call_member<Method, Result, Arguments...>(
                    main, values, std::index_sequence_for<Arguments...>{});
            }};
}

template <typename Result, typename... Arguments> struct Signature {
};
template <typename Result, typename... Arguments>
Signature<Result, Arguments...> signature_of(Result (Main::*)(Arguments...));
template <typename Result, typename... Arguments>
Signature<Result, Arguments...> signature_of(Result (Main::*)(Arguments...) const);

template <auto Method, typename Result, typename... Arguments>
Member describe(
    Signature<Result, Arguments...> /*signature*/, std::string_view name, std::vector<Parameter> parameters)
{
    return describe<Method, Result, Arguments...>(name, std::move(parameters));
}

template <auto Method> Member member(std::string_view name, std::vector<Parameter> parameters = {})
{
    return describe<Method>(decltype(signature_of(Method)){}, name, std::move(parameters));
}

const Variant kNoText = std::string();
const Variant kFalse = std::int32_t{0};
const Variant kAll = std::int32_t{0};           // of delete_ServerCommand
const Variant kNewestLines = std::int32_t{100}; // of get_Log_web

std::vector<Member> make_members()
{
    return {
        member<&Main::Server_Start>("Server_Start"),
        member<&Main::Server_End>("Server_End"),
        member<&Main::ShutDownServer>("ShutDownServer"),
        member<&Main::set_ServerStatus>("set_ServerStatus", {{"ServerStatus"}}),
        member<&Main::get_ServerStatus>("get_ServerStatus"),
        member<&Main::set_ServerSpeed>("set_ServerSpeed", {{"ServerSpeed"}}),
        member<&Main::get_ServerSpeed>("get_ServerSpeed"),
        member<&Main::set_AcceptIncomingConnections>("set_AcceptIncomingConnections", {{"Accept"}}),
        member<&Main::get_StarTime>("get_StarTime"),
        member<&Main::get_ServerIP>("get_ServerIP"),
        member<&Main::get_ServerTime>("get_ServerTime"),
        member<&Main::Version>("Version"),
        member<&Main::ProtocolVersion>("ProtocolVersion"),
        member<&Main::Credits>("Credits"),
        member<&Main::get_ConnectionOK>("get_ConnectionOK"),
        member<&Main::ConnectionTest>("ConnectionTest"),
        member<&Main::set_ServerCommand>("set_ServerCommand", {{"CommandToSend"}, {"Parameters", kNoText}}),
        member<&Main::delete_ServerCommand>("delete_ServerCommand", {{"ID", kAll}}),
        member<&Main::PushCloseAllConnections>("PushCloseAllConnections"),
        member<&Main::SendInstantMessageToAll>("SendInstantMessageToAll", {{"Message"}}),
        member<&Main::SendRemoteCommand>("SendRemoteCommand", {{"Message"}, {"RemoteCommand"}}),
        member<&Main::LogOffUser>("LogOffUser", {{"ScreenName"}}),
        member<&Main::LoadSockets>("LoadSockets", {{"NumberOfSocketsToLoad"}, {"ToPreserve", kFalse}}),
        member<&Main::get_SocketsCount>("get_SocketsCount"),
        member<&Main::get_CountOnLineUsers>("get_CountOnLineUsers"),
        member<&Main::get_RemoteAddress>("get_RemoteAddress", {{"Socket"}}),
        member<&Main::Retrieve_UserSocket>("Retrieve_UserSocket", {{"UserName"}}),
        member<&Main::CloseAllConnections>("CloseAllConnections"),
        member<&Main::get_UserStatus>("get_UserStatus", {{"ScreenName"}, {"RemoteIP", kNoText}}),
        member<&Main::Send_InstantMessage>("Send_InstantMessage", {{"Message"}, {"ScreenName"}}),
        member<&Main::get_QueueMessages>("get_QueueMessages"),
        member<&Main::Retrieve_AutoReply>("Retrieve_AutoReply", {{"UserName"}}),
        member<&Main::Retrieve_AutoReplyMessage>("Retrieve_AutoReplyMessage", {{"UserName"}}),
        member<&Main::Update_AutoReply>("Update_AutoReply", {{"UserName"}, {"Message"}, {"Enabled"}}),
        member<&Main::SendPolicy>("SendPolicy", {{"ScreenName"}}),
        member<&Main::SendPolicyToClients>("SendPolicyToClients"),
        member<&Main::SendMessageExpirationTime>("SendMessageExpirationTime", {{"ScreenName"}}),
        member<&Main::SendMessageExpirationTimeToClients>("SendMessageExpirationTimeToClients"),
        member<&Main::SendLastVersionToClients>("SendLastVersionToClients"),
        member<&Main::SendEmail>("SendEmail", {{"Recipient"}, {"Subject"}, {"Body"}, {"From", kNoText}}),
        member<&Main::ScreenNameExist>("ScreenNameExist", {{"UserName"}, {"RemoteIP", kNoText}}),
        member<&Main::ScreenName_Enabled>("ScreenName_Enabled", {{"ScreenName"}}),
        member<&Main::VerifyCredentials>("VerifyCredentials", {{"ScreenName"}, {"Password"}}),
        member<&Main::set_NewScreenName>(
            "set_NewScreenName", {{"ScreenName"}, {"Email"}, {"FirstName"}, {"LastName"}, {"Password"}}),
        member<&Main::set_MyDetails>("set_MyDetails",
            {{"ScreenName"}, {"Email"}, {"FirstName"}, {"LastName"}, {"Phone"}, {"Fax"}, {"HomePage"},
                {"Country"}, {"Password"}, {"RemoteIP", kNoText}}),
        member<&Main::set_ScreenNamePassword>(
            "set_ScreenNamePassword", {{"ScreenName"}, {"Password"}, {"RemoteIP", kNoText}}),
        member<&Main::ChangeUserNamePassword>("ChangeUserNamePassword",
            {{"ScreenName"}, {"OldPassword"}, {"NewPassword"}, {"index"}, {"RemoteIP"},
                {"ServiceMessage", kNoText}}),
        member<&Main::set_ScreenName_Enabled>("set_ScreenName_Enabled", {{"ScreenName"}, {"Enabled"}}),
        member<&Main::Retrieve_UserEmail>("Retrieve_UserEmail", {{"UserName"}}),
        member<&Main::Retrieve_UserPhone>("Retrieve_UserPhone", {{"UserName"}}),
        member<&Main::Retrieve_UserFax>("Retrieve_UserFax", {{"UserName"}}),
        member<&Main::Retrieve_UserHomePage>("Retrieve_UserHomePage", {{"UserName"}}),
        member<&Main::Retrieve_UserCountry>("Retrieve_UserCountry", {{"UserName"}}),
        member<&Main::Retrieve_UserPassWord>("Retrieve_UserPassWord", {{"UserName"}}),
        member<&Main::Retrieve_UserFirstName>("Retrieve_UserFirstName", {{"UserName"}}),
        member<&Main::Retrieve_UserLastName>("Retrieve_UserLastName", {{"UserName"}}),
        member<&Main::Retrieve_UserCreationTime>("Retrieve_UserCreationTime", {{"UserName"}}),
        member<&Main::OpendbConnection>("OpendbConnection"),
        member<&Main::ClosedbConnection>("ClosedbConnection"),
        member<&Main::ListAllUsers>("ListAllUsers"),
        member<&Main::ListAllUsers_web>("ListAllUsers_web"),
        member<&Main::ListAllUsersCount_web>("ListAllUsersCount_web"),
        member<&Main::get_Log_web>("get_Log_web", {{"LastRecord", kNewestLines}}),
        member<&Main::get_BuddiesCount>("get_BuddiesCount"),
        member<&Main::ClearOldLog>("ClearOldLog"),
        member<&Main::get_ConfigurationFile>("get_ConfigurationFile"),
        member<&Main::get_IniFile>("get_IniFile"),
        member<&Main::get_ListeningPort>("get_ListeningPort"),
        member<&Main::set_ListeningPort>("set_ListeningPort", {{"PortNumber"}}),
        member<&Main::get_LogOlderThan>("get_LogOlderThan"),
        member<&Main::set_LogOlderThan>("set_LogOlderThan", {{"Value"}}),
        member<&Main::get_ClientInactivityDaysBeforeDisabling>("get_ClientInactivityDaysBeforeDisabling"),
        member<&Main::set_ClientInactivityDaysBeforeDisabling>(
            "set_ClientInactivityDaysBeforeDisabling", {{"Days"}}),
        member<&Main::get_Client_Last_Version>("get_Client_Last_Version"),
        member<&Main::set_Client_Last_Version>("set_Client_Last_Version", {{"Version"}}),
        member<&Main::get_Message_Expiration_Time>("get_Message_Expiration_Time"),
        member<&Main::set_Message_Expiration_Time>("set_Message_Expiration_Time", {{"Minutes"}}),
        member<&Main::get_URL_Client_Last_Version>("get_URL_Client_Last_Version"),
        member<&Main::Set_URL_Client_Last_Version>("Set_URL_Client_Last_Version", {{"Value"}}),
        member<&Main::get_AdminScreenName>("get_AdminScreenName"),
        member<&Main::set_AdminScreenName>("set_AdminScreenName", {{"ScreenName"}}),
        member<&Main::get_WebAdministrator>("get_WebAdministrator"),
        member<&Main::set_WebAdministrator>("set_WebAdministrator", {{"Administrator"}}),
        member<&Main::get_WebAdministratorPassword>("get_WebAdministratorPassword"),
        member<&Main::set_WebAdministratorPassword>(
            "set_WebAdministratorPassword", {{"AdministratorPassword"}}),
        member<&Main::set_ClientDelay>("set_ClientDelay", {{"Value"}}),
        member<&Main::get_SPTMP_Server>("get_SPTMP_Server"),
        member<&Main::set_SPTMP_Server>("set_SPTMP_Server", {{"ServerAddress"}}),
        member<&Main::get_SPTMP_User>("get_SPTMP_User"),
        member<&Main::set_SPTMP_UserName>("set_SPTMP_UserName", {{"UserName"}}),
        member<&Main::get_SPTMP_Password>("get_SPTMP_Password"),
        member<&Main::set_SPTMP_Password>("set_SPTMP_Password", {{"Password"}}),
        member<&Main::get_DBServerIP>("get_DBServerIP"),
        member<&Main::set_DBServerIP>("set_DBServerIP", {{"ServerIP"}}),
        member<&Main::get_DBUserName>("get_DBUserName"),
        member<&Main::set_DBUserName>("set_DBUserName", {{"DBUSerName"}}),
        member<&Main::get_DBPassword>("get_DBPassword"),
        member<&Main::set_DBPassword>("set_DBPassword", {{"Password"}}),
        member<&Main::get_DBODBC>("get_DBODBC"),
        member<&Main::set_DBODBC>("set_DBODBC", {{"ODBCName"}}),
        member<&Main::get_AllowAOLIM>("get_AllowAOLIM"),
        member<&Main::set_AllowAOLIM>("set_AllowAOLIM", {{"Value"}}),
        member<&Main::get_AllowFileTransfer>("get_AllowFileTransfer"),
        member<&Main::set_AllowFileTransfer>("set_AllowFileTransfer", {{"Value"}}),
        member<&Main::get_AllowSnapShot>("get_AllowSnapShot"),
        member<&Main::set_AllowSnapShot>("set_AllowSnapShot", {{"Value"}}),
        member<&Main::get_Animation>("get_Animation"),
        member<&Main::set_Animation>("set_Animation", {{"Value"}}),
        member<&Main::get_ServerSpeedRead>("get_ServerSpeedRead"),
        member<&Main::set_ServerSpeedWrite>("set_ServerSpeedWrite", {{"Speed"}}),
        member<&Main::get_iniTest>("get_iniTest"),
        member<&Main::set_iniTest>("set_iniTest", {{"TestMessage"}}),
    };
}

/// The default as it stands in a signature.
std::string fallback_text(const Variant& fallback)
{
    const auto* number = std::get_if<std::int32_t>(&fallback);
    return number != nullptr ? std::to_string(*number) : "\"\"";
}

} // namespace

std::size_t Member::required_arguments() const
{
    return static_cast<std::size_t>(
        std::count_if(parameters.begin(), parameters.end(), [](const auto& p) { return !p.optional(); }));
}

std::string Member::signature() const
{
    std::string text = std::string(name) + "(";
    for (const auto& parameter : parameters) {
        const auto declaration = (parameter.by_reference ? "ByRef " : "") + std::string(parameter.name) + ": "
            + std::string(type_name(parameter.type));
        text += &parameter == parameters.data() ? "" : ", ";
        text += parameter.optional() ? "[" + declaration + " = " + fallback_text(parameter.fallback) + "]"
                                     : declaration;
    }
    text += ")";
    return result == ValueType::Empty ? text : text + " -> " + std::string(type_name(result));
}

std::span<const Member> main_members()
{
    static const std::vector<Member> kMembers = make_members();
    return kMembers;
}

const Member* find_member(std::string_view name)
{
    const auto members = main_members();
    const auto found = std::find_if(members.begin(), members.end(),
        [&](const Member& member) { return equal_ignoring_case(member.name, name); });
    return found == members.end() ? nullptr : &*found;
}

} // namespace qz::server
