// Tokens are pieces of the text in its order, and no value becomes a part of a statement.
#include "Fuzzing.h"

#include "base/EngineError.h"
#include "base/Text.h"
#include "platform/database/Shape.h"
#include "platform/database/Tokenizer.h"
#include "store/Statements.h"

#include <optional>
#include <string>

namespace {

using namespace qz::platform;
using qz::fuzz::promise;

void cut(std::string_view sql, Holes holes)
{
    Tokenizer tokenizer(sql, holes);
    const auto* at = sql.data();
    for (std::size_t count = 0;; ++count) {
        promise(count <= sql.size());
        const auto token = tokenizer.next();
        if (token.kind == TokenKind::End || token.kind == TokenKind::Refused) {
            promise(tokenizer.next().kind == token.kind);
            return;
        }
        promise(token.text.data() >= at && token.text.data() + token.text.size() <= sql.data() + sql.size());
        promise(holes == Holes::Yes || token.kind != TokenKind::Hole);
        at = token.text.data() + token.text.size();
    }
}

/// The values that were found in the text, none when it was refused.
std::optional<std::vector<Value>> values_in(const std::string& sql, const Statement& expected)
{
    static const Catalogue kCatalogue(qz::store::all_statements());
    try {
        const auto match = kCatalogue.look_up(sql);
        promise(match.shape->statement.text == expected.text);
        std::vector<Value> values;
        for (const auto& hole : match.holes()) {
            values.push_back(value_of(hole));
        }
        return values;
    } catch (const qz::EngineError&) {
        return std::nullopt;
    }
}

} // namespace

int fuzz_tokenizer(const std::uint8_t* data, std::size_t size)
{
    const auto text = qz::fuzz::text_of(data, size);
    cut(text, Holes::No);
    cut(text, Holes::Yes);

    const auto& insert = qz::store::statements::kInsertCommand;
    const auto doubled = qz::replace_all(text, "'", "''");
    const auto values = values_in(fill(insert, {"action", doubled}), insert);
    const bool has_nul = text.find('\0') != std::string_view::npos;
    promise(values.has_value() != has_nul);
    promise(!values || (*values)[1] == Value(std::string(text)));
    // As it stands a text is refused or is one value still.
    const auto raw = values_in(fill(insert, {"action", text}), insert);
    promise(!raw || (raw->size() == 2 && (*raw)[0] == Value("action")));
    const auto& remove = qz::store::statements::kDeleteCommand;
    const auto bare = values_in(fill(remove, {text}), remove);
    promise(!bare || bare->size() == 1);
    return 0;
}
