// SIGTERM, SIGINT and SIGHUP, heard by a thread of their own and told as calls.
#pragma once

#include <functional>
#include <thread>

namespace velto {

/// Blocks the signals for the process: make it before any other thread.
class SignalWatcher {
public:
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
