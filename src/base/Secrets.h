// What diagnostics and mails show in place of a password.
#pragma once

#include "base/EngineError.h"

#include <string>
#include <string_view>

namespace qz {

inline constexpr std::string_view kHiddenPassword = "********";

/// The failure of a statement that carries a password, for people who must not see it. Some drivers quote the
/// value that they refuse, or the beginning of it: a description that may do so is not shown at all.
EngineError without_password(const EngineError& error, std::string_view password);

} // namespace qz
