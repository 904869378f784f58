#include "client/transfer/NegotiationText.h"

#include <algorithm>
#include <charconv>

namespace qz::client::transfer {

namespace {

constexpr std::string_view kMark = "velto-file/1 ";

/// Reads fields in their fixed order; a field that is missing or wrong spoils the whole text.
class Fields {
public:
    Fields(helpers::Crypto& crypto, std::string_view text) : crypto_(crypto), rest_(text) { }

    bool is_good() const { return good_; }
    bool is_over() const { return good_ && rest_.empty(); }
    std::string_view word()
    {
        const auto end = (std::min)(rest_.find(' '), rest_.size());
        const auto word = rest_.substr(0, end);
        good_ = good_ && end + 1 != rest_.size(); // nothing stands behind the last blank
        rest_.remove_prefix((std::min)(end + 1, rest_.size()));
        return word;
    }
    std::string_view value(std::string_view key)
    {
        auto text = word();
        good_ = good_ && text.starts_with(key);
        text.remove_prefix(good_ ? key.size() : 0);
        return text;
    }
    std::string id()
    {
        const auto text = value("id=");
        good_ = good_ && text.size() == kIdSize && crypto_.from_base64url(text).has_value();
        return std::string(text);
    }
    helpers::Crypto::Key key()
    {
        helpers::Crypto::Key key{};
        const auto bytes = crypto_.from_base64url(value("key="));
        good_ = good_ && bytes && bytes->size() == key.size();
        if (good_) {
            std::copy(bytes->begin(), bytes->end(), key.begin());
        }
        return key;
    }
    std::uint64_t number(std::string_view key, std::uint64_t least, std::uint64_t most)
    {
        const auto text = value(key);
        std::uint64_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        good_ = good_ && error == std::errc() && end == text.data() + text.size() && number >= least
            && number <= most;
        return number;
    }
    std::uint16_t port() { return static_cast<std::uint16_t>(number("port=", kLeastPort, 65'535)); }
    std::string name()
    {
        good_ =
            good_ && rest_.starts_with("name=") && rest_.size() > 5 && rest_.size() <= 5 + kMaxOfferedName;
        const auto name = good_ ? rest_.substr(5) : std::string_view();
        rest_ = {};
        return std::string(name);
    }

private:
    helpers::Crypto& crypto_;
    std::string_view rest_;
    bool good_ = true;
};

std::string key_text(helpers::Crypto& crypto, const helpers::Crypto::Key& key)
{
    return " key=" + crypto.to_base64url({reinterpret_cast<const char*>(key.data()), key.size()});
}

struct Writer {
    helpers::Crypto& crypto;

    std::string operator()(const OfferText& offer) const
    {
        return "offer id=" + offer.id + key_text(crypto, offer.key) + " size=" + std::to_string(offer.size)
            + " name=" + offer.name;
    }
    std::string operator()(const AcceptText& accept) const
    {
        return "accept id=" + accept.id + key_text(crypto, accept.key)
            + " port=" + std::to_string(accept.port);
    }
    std::string operator()(const ListenText& listen) const
    {
        return "listen id=" + listen.id + " port=" + std::to_string(listen.port);
    }
    std::string operator()(const CancelText& cancel) const
    {
        return "cancel id=" + cancel.id + " reason=" + std::to_string(code_of(cancel.reason));
    }
};

NegotiationText read_fields(std::string_view kind, Fields& fields)
{
    // In braces, the fields are read in the order in which they stand.
    if (kind == "offer") {
        return OfferText{fields.id(), fields.key(), fields.number("size=", 0, kMaxFileSize), fields.name()};
    }
    if (kind == "accept") {
        return AcceptText{fields.id(), fields.key(), fields.port()};
    }
    if (kind == "listen") {
        return ListenText{fields.id(), fields.port()};
    }
    return CancelText{fields.id(), outcome_of(fields.number("reason=", 0, 255))};
}

} // namespace

std::string write_negotiation(helpers::Crypto& crypto, const NegotiationText& text)
{
    return std::string(kMark) + std::visit(Writer{crypto}, text);
}

std::optional<NegotiationText> read_negotiation(helpers::Crypto& crypto, std::string_view text)
{
    if (!text.starts_with(kMark) || text.size() > kMaxNegotiation) {
        return std::nullopt;
    }
    Fields fields(crypto, text.substr(kMark.size()));
    const auto kind = fields.word();
    if (kind != "offer" && kind != "accept" && kind != "listen" && kind != "cancel") {
        return std::nullopt;
    }
    auto result = read_fields(kind, fields);
    return fields.is_over() ? std::optional(std::move(result)) : std::nullopt;
}

} // namespace qz::client::transfer
