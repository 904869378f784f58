// A value from outside is bound to one parameter, or the statement is refused. Every text can be bound.
#include "Fuzzing.h"

#include "base/EngineError.h"
#include "base/Text.h"
#include "store/Query.h"
#include "store/Statements.h"

#include <optional>
#include <string>

namespace {

using namespace qz::store;
using qz::fuzz::promise;
using qz::platform::Value;

/// Nothing when the statement is refused.
std::optional<Value> bound(Parameter parameter)
{
    try {
        return parameter.take_value(statements::kSelectOwnedRoom);
    } catch (const qz::EngineError& error) {
        promise(error.number() == qz::number_of(qz::DatabaseError::Syntax));
        promise(error.description().ends_with("begins with \"SELECT \""));
        return std::nullopt;
    }
}

} // namespace

int fuzz_query(const std::uint8_t* data, std::size_t size)
{
    const auto text = qz::fuzz::text_of(data, size);
    const auto doubled = qz::replace_all(text, "'", "''");
    const bool has_nul = text.find('\0') != std::string_view::npos;
    const auto expected = has_nul ? std::nullopt : std::optional<Value>(std::string(text));
    promise(bound(Quoted{doubled}) == expected);
    promise(bound(Literal{"'" + doubled + "'"}) == expected);

    const auto raw = bound(Quoted{text});
    promise(!raw || qz::replace_all(raw->text(), "'", "''") == text);
    const auto literal = bound(Literal{text});
    promise(!literal || !std::holds_alternative<std::string>(literal->held())
        || text.find("'" + qz::replace_all(literal->text(), "'", "''") + "'") != std::string_view::npos);
    promise(stated_text(statements::kDeleteCommand, {text}).ends_with(text));
    return 0;
}
