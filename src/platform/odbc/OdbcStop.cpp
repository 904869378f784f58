#include "platform/odbc/OdbcStop.h"

#include "platform/odbc/OdbcStatement.h"

namespace qz::platform {

void OdbcStop::cancel()
{
    const std::lock_guard lock(mutex_);
    if (running_ != SQL_NULL_HANDLE) {
        SQLCancel(running_);
    }
}

void OdbcStop::check() const
{
    if (stopped_) {
        OdbcFailure failure;
        failure.description = "the session was given up";
        failure.link_lost = true;
        throw OdbcFailure(failure);
    }
}

OdbcStop::Running::Running(OdbcStop& stop, SQLHANDLE statement) : stop_(stop)
{
    const std::lock_guard lock(stop.mutex_);
    stop.check(); // whoever cancels has stopped before
    stop.running_ = statement;
}

OdbcStop::Running::~Running()
{
    const std::lock_guard lock(stop_.mutex_);
    stop_.running_ = SQL_NULL_HANDLE;
}

} // namespace qz::platform
