#include "StatusCommand.h"

#include "HomeLock.h"
#include "StatusFile.h"
#include "base/Text.h"
#include "common/Console.h"

#include <iostream>
#include <nlohmann/json.hpp>

namespace velto {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kWordsWidth = 20;

void print_line(std::string_view words, const std::string& value)
{
    std::cout << in_column(std::string(words), kWordsWidth) << qz::printable(value) << "\n";
}

std::string text_of(const Json& object, const std::string& name)
{
    const auto found = object.find(name);
    if (found == object.end()) {
        return {};
    }
    return found->is_string() ? found->get<std::string>() : found->dump();
}

void print_status(const StatusFile::Content& status)
{
    print_line("running", "process " + text_of(status.object, "process"));
    print_line("since", text_of(status.object, "since"));
    const auto address = text_of(status.object, "address");
    print_line("address",
        (address.find(':') == std::string::npos ? address : "[" + address + "]") + ":"
            + text_of(status.object, "port"));
    for (const auto& row : qz::server::kFigureRows) {
        print_line(row.words, text_of(status.object, std::string(row.name)));
    }
    print_line("database", text_of(status.object, "database"));
    print_line("version", text_of(status.object, "version"));
    if (const auto trouble = text_of(status.object, "settings_trouble"); !trouble.empty()) {
        print_line("SETTINGS", trouble + "; the settings that were read before are in force");
    }
    if (status.is_silent()) {
        print_line(
            "SILENT", "no sign of life for " + std::to_string(status.age) + " seconds; the server may hang");
    }
}

Exit tell_none(const Home& home, bool json)
{
    if (json) {
        print_json({{"running", false}});
    }
    throw CommandError(Exit::NoServer,
        "no server runs in " + home.folder().string() + "\nStart it with: velto-server run --home "
            + home.folder().string());
}

Exit tell_starting(pid_t process, bool json)
{
    if (json) {
        print_json({{"running", true}, {"ready", false}, {"process", process}});
    } else {
        print_line("running", "process " + std::to_string(process));
        print_line("not ready", "it has not finished starting, or is ending");
    }
    return Exit::NoServer;
}

} // namespace

Exit run_status(const Home& home, bool json)
{
    home.require_present();
    const auto process = HomeLock::holder(home);
    if (!process) {
        return tell_none(home, json);
    }
    const auto status = StatusFile(home).read(*process);
    if (!status) {
        return tell_starting(*process, json);
    }
    const bool responds = !status->is_silent();
    if (json) {
        Json answer = {{"running", true}, {"ready", true}, {"responds", responds}};
        answer.update(status->object);
        answer["seconds_since_sign"] = status->age;
        print_json(answer);
    } else {
        print_status(*status);
    }
    return responds ? Exit::Done : Exit::NoServer;
}

} // namespace velto
