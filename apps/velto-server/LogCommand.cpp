#include "LogCommand.h"

#include "HomeStore.h"
#include "base/Text.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

namespace velto {

void run_log(const Home& home, const LogOptions& options)
{
    home.require_initialised();
    HomeStore store(home, Access::Read);
    auto lines = store.log.get_Log_web(options.lines);
    store.journal.require_success();
    if (lines.size() == 1 && lines.front().empty()) {
        lines.clear(); // how the listing says that there are none
    }
    std::reverse(lines.begin(), lines.end());
    if (options.json) {
        std::cout << nlohmann::json(lines).dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
                  << "\n";
        return;
    }
    for (const auto& line : lines) {
        std::cout << qz::printable(line) << "\n";
    }
}

} // namespace velto
