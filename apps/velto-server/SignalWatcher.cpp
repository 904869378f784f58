#include "SignalWatcher.h"

#include <csignal>
#include <pthread.h>

namespace velto {

namespace {

/// Ends the watcher's thread; nobody else sends it.
constexpr int kEndOfWatch = SIGUSR2;

sigset_t watched_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, kEndOfWatch}) {
        sigaddset(&signals, signal);
    }
    return signals;
}

} // namespace

void SignalWatcher::hold_back()
{
    const auto signals = watched_signals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

SignalWatcher::SignalWatcher(std::function<void(int)> on_signal) : on_signal_(std::move(on_signal))
{
    hold_back();
    thread_ = std::thread([this] { watch(); });
}

SignalWatcher::~SignalWatcher()
{
    pthread_kill(thread_.native_handle(), kEndOfWatch);
    thread_.join();
}

void SignalWatcher::watch()
{
    const auto signals = watched_signals();
    for (int signal = 0; sigwait(&signals, &signal) == 0 && signal != kEndOfWatch;) {
        on_signal_(signal);
    }
}

} // namespace velto
