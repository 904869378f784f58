#include "SqlTrace.h"

#include "base/Guarded.h"

namespace velto {

void SqlTrace::ran(const qz::platform::RanStatement& statement) noexcept
{
    qz::attempt([&] { // a line that memory does not suffice for is left out
        const auto line = qz::platform::trace_line(statement);
        const std::lock_guard lock(mutex_);
        if (log_ != nullptr) {
            log_->write(LogLevel::Info, line);
        }
    });
}

void SqlTrace::end()
{
    const std::lock_guard lock(mutex_);
    log_ = nullptr;
}

} // namespace velto
