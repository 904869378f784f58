// The error border, written once: a procedure of the interface reports its own failures and returns its
// default.
#pragma once

#include "base/EngineError.h"
#include "base/Journal.h"

#include <string>
#include <string_view>
#include <utility>

namespace qz {

inline const std::string no_address; // NOLINT(readability-identifier-naming): reads as a word in the calls

/// Runs `body`; when it fails, reports the failure under `routine` and returns `fallback`.
/// @param address  read at the time of the failure, so `body` may still fill it in.
template <typename Result, typename Body>
Result guarded(
    Journal& journal, std::string_view routine, const std::string& address, Result fallback, Body&& body)
{
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        journal.ReportError(routine, current_error(), address);
        return fallback;
    }
}

/// The same for a procedure without a result.
template <typename Body>
void guarded(Journal& journal, std::string_view routine, const std::string& address, Body&& body)
{
    try {
        std::forward<Body>(body)();
    } catch (...) {
        journal.ReportError(routine, current_error(), address);
    }
}

/// Runs one step of a procedure that ignores its errors.
/// @return true when the step did not fail.
template <typename Step> bool attempt(Step&& step)
{
    try {
        std::forward<Step>(step)();
        return true;
    } catch (...) {
        return false;
    }
}

} // namespace qz
