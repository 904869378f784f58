#include "StatusKeeper.h"

#include "Memory.h"
#include "ServiceManager.h"
#include "base/EngineError.h"

#include <chrono>
#include <unistd.h>

namespace velto {

namespace {

constexpr int kSecondsBetweenSigns = 5;

} // namespace

StatusKeeper::StatusKeeper(
    const Home& home, qz::platform::Machine& machine, qz::server::Main& main, HostLog& log)
    : home_(home), file_(home), main_(main), log_(log), timer_(machine.create_timer(*this))
{
    file_.remove(); // what a killed server left behind
}

StatusKeeper::~StatusKeeper()
{
    file_.remove();
}

void StatusKeeper::start()
{
    identity_ = {getpid(), main_.get_StarTime().text(), main_.listening_address(), main_.get_ListeningPort(),
        main_.Version()};
    database_.emplace(home_, log_);
    write(main_.figures());
    timer_->set_interval(std::chrono::seconds(1));
    timer_->set_enabled(true);
}

void StatusKeeper::timer_ticked()
{
    ++seconds_since_write_;
    database_->look();
    return_unused_memory();
    const auto figures = main_.figures();
    service_manager::tell_status(std::to_string(figures.users_on_line) + " on line, "
        + std::to_string(figures.queued_messages) + " messages waiting");
    if (figures != written_ || seconds_since_write_ >= kSecondsBetweenSigns) {
        write(figures);
    }
}

void StatusKeeper::write(const qz::server::Figures& figures)
{
    written_ = figures;
    seconds_since_write_ = 0;
    try {
        file_.write(identity_, figures);
        failing_ = false;
    } catch (const qz::EngineError& error) {
        if (!failing_) {
            log_.write(LogLevel::Warning, "the status file cannot be written: " + error.description());
        }
        failing_ = true;
    }
}

} // namespace velto
