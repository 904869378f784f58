// Values of the interface as scripts and automation see them, with their types.
#pragma once

#include "base/DateTime.h"
#include "queue/QueueMessageSmall.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qz::server {

enum class ValueType {
    Empty,
    Boolean,
    Integer16,
    Unsigned16,
    Integer32,
    Text,
    Date,
    Texts,
    Messages,
    Status,
    Speed
};

/// A Boolean argument is an integer (-1 true, 0 false, and what else a caller may pass); a Boolean result is
/// a bool.
using Variant = std::variant<std::monostate, std::int32_t, bool, std::string, DateTime,
    std::vector<std::string>, std::vector<queue::QueueMessageSmall>>;

/// Name of the type in signatures: "I4", "BSTR", "BOOL".
std::string_view type_name(ValueType type);

/// Reads an argument written as text: numbers in decimal, Booleans as True, False, yes, no or a number, dates
/// as "yyyy-mm-dd hh:mm:ss".
/// @throws EngineError 13 when the text is not of the type, 6 when the number does not fit.
Variant variant_from_text(ValueType type, std::string_view text);

} // namespace qz::server
