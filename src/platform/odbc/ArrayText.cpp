#include "platform/odbc/ArrayText.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

namespace qz::platform {

namespace {

/// Bytes of one array after which the next begins. An element is shorter than a parameter may be; twice as
/// long, for all of it may be escaped, both still fit.
constexpr std::size_t kLongEnough = 100'000;

/// Quoted, and with what would end the quotes escaped, whatever it holds.
void append_element(std::string& array, const Value& value)
{
    if (value.is_null()) {
        array += "NULL";
        return;
    }
    array += '"';
    for (const char c : value.text()) {
        if (c == '"' || c == '\\') {
            array += '\\';
        }
        array += c;
    }
    array += '"';
}

} // namespace

std::vector<std::vector<Value>> as_arrays(const std::vector<std::vector<Value>>& rows)
{
    std::vector<std::vector<Value>> all;
    std::vector<std::string> arrays;
    const auto finish = [&] {
        auto& parameters = all.emplace_back();
        for (auto& array : std::exchange(arrays, {})) {
            parameters.emplace_back(std::move(array) + '}');
        }
    };
    for (const auto& row : rows) {
        arrays.resize(row.size());
        for (std::size_t i = 0; i < row.size(); ++i) {
            arrays[i] += arrays[i].empty() ? '{' : ',';
            append_element(arrays[i], row[i]);
        }
        if (std::any_of(arrays.begin(), arrays.end(),
                [](const std::string& array) { return array.size() > kLongEnough; })) {
            finish();
        }
    }
    if (!arrays.empty()) {
        finish();
    }
    return all;
}

} // namespace qz::platform
