// The version of this client.
#pragma once

namespace velto {

/// Three numbers with dots.
extern const char* const kVersion;

} // namespace velto
