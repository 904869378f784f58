// Memory that the process has freed and could give back to the system.
#pragma once

namespace velto {

/// Gives some of it back, if there is much. A call takes a few milliseconds at most: to be called now and
/// then.
void return_unused_memory();

} // namespace velto
