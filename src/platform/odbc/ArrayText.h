// Arrays as PostgreSQL reads them from a text.
#pragma once

#include "platform/database/Value.h"

#include <vector>

namespace qz::platform {

/// Rows turned into columns: an array of all its values for each. Several times so when they are long, for
/// a parameter has a longest length.
std::vector<std::vector<Value>> as_arrays(const std::vector<std::vector<Value>>& rows);

} // namespace qz::platform
