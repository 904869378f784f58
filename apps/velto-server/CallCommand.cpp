#include "CallCommand.h"

#include "HomeStore.h"
#include "HostEvents.h"
#include "base/EngineError.h"
#include "base/Text.h"
#include "config/IniFile.h"
#include "platform/asio/AsioMachine.h"
#include "server/MemberTable.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

namespace velto {

namespace {

using Json = nlohmann::ordered_json;
using qz::server::Member;
using qz::server::Variant;

/// Shows what went wrong on standard error, each thing once: where the database is gone, everything fails
/// alike.
class CallEvents final : public SilentEvents {
public:
    void Error(const std::string& routine_name, std::int32_t error_number, const std::string& error_source,
        const std::string& error_description, const std::string& /*pc_ip*/) override
    {
        const bool log_is_closed = routine_name == "Write2dbLog"
            && error_number
                == qz::number_of(qz::DatabaseError::ConnectionClosed); // what closed it was reported
        if (log_is_closed || !shown_.insert(error_description).second) {
            return;
        }
        std::cerr << "velto-server: " << qz::printable(routine_name) << ": "
                  << qz::printable(error_description) << " (error " << error_number << ", " << error_source
                  << ")\n";
    }
    bool failed() const { return !shown_.empty(); }

private:
    std::set<std::string> shown_;
};

Json to_json(const qz::queue::QueueMessageSmall& message)
{
    return {{"UserName_From", message.UserName_From}, {"UserName_To", message.UserName_To},
        {"ReceivedTime", message.ReceivedTime.text()}, {"ExpirationTime", message.ExpirationTime.text()}};
}

Json to_json(const Variant& value, qz::server::ValueType type)
{
    if (std::holds_alternative<std::monostate>(value)) {
        return nullptr;
    }
    if (const auto* number = std::get_if<std::int32_t>(&value)) {
        return type == qz::server::ValueType::Boolean ? Json(*number != 0) : Json(*number);
    }
    if (const auto* flag = std::get_if<bool>(&value)) {
        return *flag;
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        return *text;
    }
    if (const auto* date = std::get_if<qz::DateTime>(&value)) {
        return date->text();
    }
    if (const auto* texts = std::get_if<std::vector<std::string>>(&value)) {
        return *texts;
    }
    Json messages = Json::array();
    for (const auto& message : std::get<std::vector<qz::queue::QueueMessageSmall>>(value)) {
        messages.push_back(to_json(message));
    }
    return messages;
}

const Member& require_member(const std::string& name)
{
    const auto* member = qz::server::find_member(name);
    if (member == nullptr) {
        throw CommandError(Exit::Usage,
            "there is no member \"" + qz::printable(name) + "\"\nAll of them: velto-server call --list");
    }
    return *member;
}

std::vector<Variant> arguments_for(const Member& member, const std::vector<std::string>& texts)
{
    if (texts.size() < member.required_arguments() || texts.size() > member.parameters.size()) {
        throw CommandError(Exit::Usage, "wrong number of arguments\nThe member is " + member.signature());
    }
    std::vector<Variant> values;
    for (std::size_t i = 0; i < member.parameters.size(); ++i) {
        const auto& parameter = member.parameters[i];
        try {
            values.push_back(
                i < texts.size() ? variant_from_text(parameter.type, texts[i]) : parameter.fallback);
        } catch (const qz::EngineError& error) {
            throw CommandError(Exit::Usage,
                std::string(parameter.name) + ": " + error.description() + "\nThe member is "
                    + member.signature());
        }
    }
    return values;
}

/// An engine makes a key only where nothing is encoded yet, and would log its failures otherwise.
void require_key(const Home& home)
{
    HomeSettings settings(home, Access::Read);
    std::error_code ignored;
    const auto entries = settings.ini.entries();
    const bool encoded = std::filesystem::exists(home.folder() / qz::server::kDatabaseFile, ignored)
        || std::any_of(entries.begin(), entries.end(),
            [](const auto& entry) { return entry.value.starts_with(qz::helpers::SettingsCipher::Marker); });
    if (encoded) {
        settings.require_right_key();
    }
}

} // namespace

void list_members()
{
    for (const auto& member : qz::server::main_members()) {
        std::cout << member.signature() << "\n";
    }
}

Exit run_call(const Home& home, const std::string& member_name, const std::vector<std::string>& arguments)
{
    const auto& member = require_member(member_name);
    auto values = arguments_for(member, arguments);
    home.require_folder();
    if (home.is_initialised()) {
        home.require_initialised(); // a settings file that cannot be read is not the same as none
        require_key(home);
    }

    CallEvents events;
    qz::platform::AsioMachine machine(home.folder());
    auto main = std::make_unique<qz::server::Main>(machine, events);
    Json by_reference = Json::object();
    const auto result = member.call(*main, values);
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (member.parameters[i].by_reference) {
            by_reference[std::string(member.parameters[i].name)] =
                to_json(values[i], member.parameters[i].type);
        }
    }
    const Json answer = {{"result", to_json(result, member.result)}, {"args", by_reference}};
    std::cout << answer.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
    main.reset(); // a mail that is on its way may still fail
    return events.failed() ? Exit::Failed : Exit::Done;
}

} // namespace velto
