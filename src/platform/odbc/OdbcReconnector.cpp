#include "platform/odbc/OdbcReconnector.h"

#include <algorithm>

namespace qz::platform {

void OdbcReconnector::begin(const std::string& connection_string, const std::string& former)
{
    running_ = true;
    connection_string_ = connection_string;
    former_ = former;
    began_ = SteadyClock::now();
    delay_ = times_.first_retry;
    next_attempt_ = began_ + delay_;
    attempt_.reset();
}

void OdbcReconnector::stop()
{
    running_ = false;
    attempt_.reset();
}

std::chrono::seconds OdbcReconnector::running_time() const
{
    return std::chrono::duration_cast<std::chrono::seconds>(SteadyClock::now() - began_);
}

std::unique_ptr<OdbcLink> OdbcReconnector::poll()
{
    if (!running_) {
        return nullptr;
    }
    if (!attempt_) {
        if (SteadyClock::now() >= next_attempt_) {
            attempt_ = std::make_unique<OdbcLink>(connection_string_, times_, former_, trace_);
        }
        return nullptr;
    }
    if (!attempt_->is_ready()) {
        return nullptr;
    }
    auto link = std::move(attempt_);
    try {
        link->wait(); // not long: it is ready
        running_ = false;
        return link;
    } catch (const LinkLost&) {
        wait_longer();
        return nullptr;
    }
}

void OdbcReconnector::refuse()
{
    running_ = true;
    wait_longer();
}

void OdbcReconnector::wait_longer()
{
    delay_ = (std::min)(delay_ * 2, times_.longest_retry);
    next_attempt_ = SteadyClock::now() + delay_;
}

} // namespace qz::platform
