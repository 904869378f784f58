#include "platform/SystemClock.h"

namespace qz::platform {

namespace {

DateTime local_time(std::time_t second)
{
    std::tm local{};
#ifdef _WIN32
    localtime_s(&local, &second);
#else
    localtime_r(&second, &local);
#endif
    // A leap second (60) counts as the second before it.
    return DateTime::from_civil({local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
        local.tm_min, local.tm_sec > 59 ? 59 : local.tm_sec});
}

} // namespace

DateTime SystemClock::now() const
{
    const auto second = std::time(nullptr); // a tenth of the cost of an exact time
    if (second != second_) {
        second_ = second;
        local_ = local_time(second);
    }
    return local_;
}

std::chrono::steady_clock::time_point SystemClock::steady() const
{
    return std::chrono::steady_clock::now();
}

} // namespace qz::platform
