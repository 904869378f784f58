#include "FileLimit.h"

#include <algorithm>
#include <sys/resource.h>

namespace velto {

namespace {

constexpr std::uint64_t kOwnPoolSockets = 757; // to which the pool grows by itself
constexpr std::uint64_t kOtherFiles = 100; // database, mails, listening sockets, connections that are closing

} // namespace

std::uint64_t files_for(std::optional<std::int16_t> max_connections)
{
    return (max_connections ? static_cast<std::uint64_t>(*max_connections) : kOwnPoolSockets) + kOtherFiles;
}

std::uint64_t connections_with(std::uint64_t files)
{
    return files > kOtherFiles ? files - kOtherFiles : 1;
}

std::optional<std::uint64_t> raise_file_limit(std::uint64_t wanted)
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted) {
        return std::nullopt;
    }
    const rlimit both{wanted, (std::max)(static_cast<rlim_t>(wanted), limit.rlim_max)};
    const rlimit soft{(std::min)(static_cast<rlim_t>(wanted), limit.rlim_max), limit.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &both) == 0) { // beyond the hard limit it is root's to set
        return std::nullopt;
    }
    setrlimit(RLIMIT_NOFILE, &soft);
    getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur >= wanted ? std::nullopt : std::optional<std::uint64_t>(limit.rlim_cur);
}

} // namespace velto
