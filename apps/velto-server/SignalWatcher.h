// SIGTERM, SIGINT and SIGHUP, heard by a thread of their own and told as calls.
#pragma once

#include <functional>
#include <thread>

namespace velto {

class SignalWatcher {
public:
    /// From now on the signals wait for a watcher. A thread that was made before would still take them, and
    /// end the process: call it before there are any.
    static void hold_back();

    /// @param on_signal  called on the watcher's thread with the signal's number.
    explicit SignalWatcher(std::function<void(int)> on_signal);
    ~SignalWatcher();
    SignalWatcher(const SignalWatcher&) = delete;
    SignalWatcher& operator=(const SignalWatcher&) = delete;

private:
    void watch();

    std::function<void(int)> on_signal_;
    std::thread thread_;
};

} // namespace velto
