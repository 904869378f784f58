// Conversions of numbers with the rules of the interface: halves round to even, and a number that does not
// fit its width is the run-time error "Overflow".
#pragma once

#include "base/EngineError.h"

#include <cmath>
#include <concepts>
#include <limits>

namespace qz {

/// @param number  any number; NaN and infinities do not fit.
/// @throws EngineError 6 "Overflow" when the rounded number does not fit into `Integer` (at most 32 bits).
template <std::integral Integer>
requires(sizeof(Integer) <= 4) Integer to_integer(double number)
{
    // nearbyint rounds halves to even in the default rounding mode, which nothing here changes.
    const double rounded = std::nearbyint(number);
    if (!(rounded >= static_cast<double>((std::numeric_limits<Integer>::min)())
            && rounded <= static_cast<double>((std::numeric_limits<Integer>::max)()))) {
        throw runtime_error(RuntimeError::Overflow);
    }
    return static_cast<Integer>(rounded);
}

} // namespace qz
