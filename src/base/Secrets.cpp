#include "base/Secrets.h"

#include "base/Text.h"

namespace qz {

EngineError without_password(const EngineError& error, std::string_view password)
{
    constexpr std::size_t telling = 3; // so many characters of it are a quotation, not a coincidence
    const auto beginning = first_characters(password, telling);
    const bool quoted = !beginning.empty() && error.description().find(beginning) != std::string::npos;
    return {error.number(), error.source(),
        quoted ? "The description of this error is hidden, for it may show a password" : error.description()};
}

} // namespace qz
