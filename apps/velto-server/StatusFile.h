// What a running server tells of itself: the file VELTO_Server.status in its home.
#pragma once

#include "Home.h"
#include "server/Figures.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace velto {

/// What stays the same from start to end.
struct ServerIdentity {
    pid_t process = 0;
    std::string since; // local time, "yyyy-mm-dd hh:mm:ss"
    std::string address;
    std::uint16_t port = 0;
    std::string version;
};

/// One JSON object, replaced as a whole: readers see the old one or the new one. It is worth nothing after
/// the process, so no disk is waited for.
class StatusFile {
public:
    explicit StatusFile(const Home& home);

    /// @throws EngineError when the file cannot be written; the old one then stays.
    void write(const ServerIdentity& identity, const qz::server::Figures& figures) const;
    void remove() const noexcept;

    struct Content {
        nlohmann::ordered_json object;
        std::int64_t age = 0;     // seconds since it was written
        std::int64_t written = 0; // when, in nanoseconds of the file's clock
        /// Whether the server hangs: it writes every five seconds, but a database may hold it up for ten.
        bool is_silent() const { return age > 15; }
    };
    /// What the process wrote; nothing when it has not yet. The rest of a server that was killed is not
    /// shown.
    std::optional<Content> read(pid_t process) const;

private:
    std::filesystem::path path_;
};

} // namespace velto
