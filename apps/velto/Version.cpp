#include "Version.h"

namespace velto {

const char* const kVersion = VELTO_VERSION;

} // namespace velto
