// Ctrl-C and its like, for commands that wait.
#pragma once

namespace velto {

/// From its construction on, SIGINT, SIGTERM and SIGHUP end nothing by themselves: they are noted, and
/// interrupt what waits. One at a time.
class Interrupt {
public:
    Interrupt();
    /// Whether one of the signals has come.
    static bool requested();
};

} // namespace velto
