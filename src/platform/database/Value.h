// One field of a row.
#pragma once

#include "base/DateTime.h"

#include <cstdint>
#include <string>
#include <utility>
#include <variant>

namespace qz::platform {

/// Null, a number, a text or a date. Databases without a date type hold dates as text "yyyy-mm-dd hh:mm:ss".
class Value {
public:
    Value() = default;
    Value(std::int64_t number) : value_(number) { }
    Value(std::int32_t number) : value_(std::int64_t{number}) { }
    Value(double number) : value_(number) { }
    Value(bool flag) : value_(std::int64_t{flag ? 1 : 0}) { } // true is stored as 1
    Value(std::string text) : value_(std::move(text)) { }
    Value(const char* text) : value_(std::string(text)) { }
    Value(DateTime date) : value_(date) { }

    bool is_null() const { return std::holds_alternative<std::monostate>(value_); }
    /// The value as text; null gives the empty text.
    std::string text() const;
    /// Converted to 32 bits.
    /// @throws EngineError 13 for null and for texts that are no number, 6 for a number that does not fit.
    std::int32_t integer() const;
    /// @throws EngineError 13 for null and for texts that are no number.
    double number() const;
    /// Any number but 0, and the texts true, yes, t; null is false.
    bool boolean() const;
    /// @throws EngineError 13 for what cannot be read as a date; null gives the empty time.
    DateTime date() const;

    using Held = std::variant<std::monostate, std::int64_t, double, std::string, DateTime>;
    const Held& held() const { return value_; }
    bool operator==(const Value&) const = default;

private:
    Held value_;
};

} // namespace qz::platform
