// Fields and values are parts of the text, and nothing behind msg= is taken for a key.
#include "Fuzzing.h"

#include "helpers/Crypto.h"
#include "helpers/MessageParser.h"

#include <string>

namespace {

/// Is never asked: values need no cryptography.
class NoCrypto : public qz::helpers::Crypto {
public:
    std::uint64_t random_below(std::uint64_t) override { std::abort(); }
    Key random_key() override { std::abort(); }
    Key hash(std::string_view) override { std::abort(); }
    std::string seal(const Key&, std::string_view) override { std::abort(); }
    std::optional<std::string> open(const Key&, std::string_view) override { std::abort(); }
    std::string to_base64url(std::string_view) override { std::abort(); }
    std::optional<std::string> from_base64url(std::string_view) override { std::abort(); }
};

} // namespace

int fuzz_message_parser(const std::uint8_t* data, std::size_t size)
{
    using qz::fuzz::promise;
    NoCrypto crypto;
    const qz::helpers::MessageParser parser(crypto);
    const std::string text(qz::fuzz::text_of(data, size));
    const auto field = parser.field(text, 1);
    promise(text.starts_with(field) && field.find(' ') == std::string::npos);
    promise(text.ends_with(parser.text_after_keyword(text, field)));
    for (const auto* key : {"screenname", "msg", "comment", "myIP", "sessionidvalue", "unknown"}) {
        const auto value = parser.value(text, key);
        promise(value.empty() || text.find(std::string(key) + '=' + value) != std::string::npos);
        promise(std::string_view(key) == "msg" || !value.ends_with(' '));
        // A message that says anything at all changes no value of a body.
        const std::string body = "screenname=ann comment=a b sessionidvalue=7 msg=";
        const auto expected = std::string_view(key) == "msg" ? text : parser.value(body, key);
        promise(parser.value(body + text, key) == expected);
    }
    return 0;
}
