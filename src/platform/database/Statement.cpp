#include "platform/database/Statement.h"

#include <cassert>

namespace qz::platform {

std::string fill(const Statement& statement, std::initializer_list<std::string_view> values)
{
    std::string result;
    std::string_view rest = statement.text;
    for (const auto value : values) {
        const auto hole = rest.find("{}");
        assert(hole != std::string_view::npos);
        result.append(rest.substr(0, hole)).append(value);
        rest.remove_prefix(hole + 2);
    }
    assert(rest.find("{}") == std::string_view::npos);
    return result.append(rest);
}

} // namespace qz::platform
