#include "helpers/UnitCutter.h"

#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <utility>

namespace qz::helpers {

namespace {

const std::string& start_markers()
{
    static const std::string kMarkers = protocol_keywords().FrameStart + protocol_keywords().EnvelopeStart;
    return kMarkers;
}

char end_marker_for(char start)
{
    const auto& words = protocol_keywords();
    return start == words.FrameStart.front() ? words.FrameEnd.front() : words.EnvelopeEnd.front();
}

} // namespace

std::optional<std::string> UnitCutter::next_unit(std::string_view& bytes)
{
    if (begun_.empty()) {
        bytes.remove_prefix((std::min)(bytes.size(), bytes.find_first_of(start_markers())));
    }
    if (bytes.empty() || overflowed_) {
        bytes = {};
        return std::nullopt;
    }
    const auto end = bytes.find(end_marker_for(begun_.empty() ? bytes.front() : begun_.front()));
    const bool whole = end != std::string_view::npos;
    if (begun_.size() + (whole ? end : bytes.size()) > kMaxUnit) {
        overflow(bytes);
        return std::nullopt;
    }
    const auto piece = bytes.substr(0, whole ? end + 1 : bytes.size());
    bytes.remove_prefix(piece.size());
    if (!whole) {
        begun_.append(piece);
        return std::nullopt;
    }
    if (begun_.empty()) {
        return valid_utf8(piece);
    }
    // The buffer goes with the unit: a connection between two units owns none.
    const auto unit = std::exchange(begun_, {}).append(piece);
    return valid_utf8(unit);
}

void UnitCutter::overflow(std::string_view& bytes)
{
    overflowed_ = true;
    begun_ = std::string{};
    bytes = {};
}

} // namespace qz::helpers
