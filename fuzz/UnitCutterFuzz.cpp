// The units of a stream do not depend on its pieces, keep their limits and are well-formed.
#include "Fuzzing.h"

#include "base/Text.h"
#include "helpers/UnitCutter.h"

#include <string>
#include <vector>

namespace {

using qz::fuzz::promise;
using qz::helpers::UnitCutter;

std::vector<std::string> cut(std::string_view stream, std::size_t piece)
{
    UnitCutter cutter;
    std::vector<std::string> units;
    for (std::size_t at = 0; at < stream.size(); at += piece) {
        auto bytes = stream.substr(at, piece);
        while (auto unit = cutter.next_unit(bytes)) {
            units.push_back(*unit);
        }
        promise(bytes.empty());
    }
    return units;
}

} // namespace

int fuzz_unit_cutter(const std::uint8_t* data, std::size_t size)
{
    // The first byte chooses the pieces.
    if (size == 0) {
        return 0;
    }
    const auto stream = qz::fuzz::text_of(data + 1, size - 1);
    const auto units = cut(stream, stream.size() + 1);
    promise(units == cut(stream, 1U + data[0]));
    for (const auto& unit : units) {
        promise(unit.size() >= 2 && unit.size() <= 3 * UnitCutter::kMaxUnit + 1);
        promise(unit.back() == (unit.front() == '\x01' ? '\x04' : '\x03'));
        promise(unit == qz::valid_utf8(unit));
    }
    return 0;
}
