#include "StatusFile.h"

#include "base/EngineError.h"
#include "platform/AtomicFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace velto {

namespace {

using Json = nlohmann::ordered_json;

constexpr mode_t kMode = 0640; // as the database's: figures are for the administrators
constexpr std::int64_t kNanoseconds = 1'000'000'000;

[[noreturn]] void fail(const std::filesystem::path& path)
{
    throw qz::runtime_error(
        qz::RuntimeError::FileAccess, path.string() + ": " + std::generic_category().message(errno));
}

std::int64_t seconds_now()
{
    return std::chrono::duration_cast<std::chrono::seconds>(
        std::chrono::system_clock::now().time_since_epoch())
        .count();
}

} // namespace

StatusFile::StatusFile(const Home& home) : path_(home.folder() / "VELTO_Server.status") { }

void StatusFile::write(const ServerIdentity& identity, const qz::server::Figures& figures) const
{
    Json object = {{"process", identity.process}, {"since", identity.since}, {"address", identity.address},
        {"port", identity.port}};
    for (const auto& row : qz::server::kFigureRows) {
        object[std::string(row.name)] = figures.*row.value;
    }
    object["database"] = figures.database;
    object["version"] = identity.version;
    object["settings_in_force"] = figures.settings_in_force;
    object["settings_trouble"] = figures.settings_trouble;
    const auto text = object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";

    const auto passing = path_.string() + ".new"; // only the holder of the home's lock writes here
    unlink(passing.c_str());
    const int file = open(passing.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
    if (file < 0) {
        fail(passing);
    }
    const bool written = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(file);
    if (!written || rename(passing.c_str(), path_.c_str()) != 0) {
        unlink(passing.c_str());
        fail(path_);
    }
}

void StatusFile::remove() const noexcept
{
    unlink(path_.c_str());
}

std::optional<StatusFile::Content> StatusFile::read(pid_t process) const
{
    const auto file = qz::platform::AtomicFile(path_).read();
    if (!file) {
        return std::nullopt;
    }
    auto object = Json::parse(file->bytes, nullptr, false);
    if (!object.is_object() || object.value("process", Json()) != Json(process)) {
        return std::nullopt;
    }
    const auto age = seconds_now() - file->stamp.modified / kNanoseconds;
    return Content{std::move(object), (std::max)(age, std::int64_t{0}), file->stamp.modified};
}

} // namespace velto
