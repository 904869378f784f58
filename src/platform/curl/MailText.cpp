#include "platform/curl/MailText.h"

#include "base/DateTime.h"
#include "base/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace qz::platform {

namespace {

constexpr std::size_t kLongestAddress = 254;
constexpr std::size_t kLongestPlainSubject = 900; // bytes; a line of a mail has at most 998
constexpr std::size_t kLongestPlainLine = 998;
constexpr std::size_t kLongestCodedLine = 75; // and the "=" of a soft line end
constexpr std::string_view kAlphanumeric = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

bool consists_of(std::string_view text, std::string_view more)
{
    return std::all_of(text.begin(), text.end(), [&](char c) {
        return kAlphanumeric.find(c) != std::string_view::npos || more.find(c) != std::string_view::npos;
    });
}

/// Only what needs no quoting, so that nothing can be read as a second address or as an option of a command.
bool is_plain_address(std::string_view address)
{
    const auto at = address.find('@');
    if (at == std::string_view::npos || address.size() > kLongestAddress) {
        return false;
    }
    const auto local = address.substr(0, at);
    const auto domain = address.substr(at + 1);
    return !local.empty() && !domain.empty() && consists_of(local, "!#$%&'*+-/=?^_`{|}~.")
        && consists_of(domain, ".-");
}

bool is_printable(char c)
{
    return c >= ' ' && c <= '~';
}

bool is_printable(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return is_printable(c); });
}

std::string coded_byte(char c)
{
    static constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    return {'=', kDigits[byte / 16U], kDigits[byte % 16U]};
}

/// Number of bytes of the character at the start of a UTF-8 text.
std::size_t first_character_size(std::string_view text)
{
    return first_characters(text, 1).size();
}

/// Encoded words of at most 75 characters, one on a line; none ends inside a character.
std::string encoded_subject(std::string_view subject)
{
    constexpr std::string_view opening = "=?UTF-8?Q?";
    constexpr std::string_view closing = "?=";
    std::string result(opening);
    std::size_t length = opening.size();
    while (!subject.empty()) {
        const auto size = first_character_size(subject);
        std::string coded;
        for (const char c : subject.substr(0, size)) {
            const bool plain = kAlphanumeric.find(c) != std::string_view::npos;
            coded += c == ' ' ? "_" : plain ? std::string(1, c) : coded_byte(c);
        }
        if (length + coded.size() + closing.size() > kLongestCodedLine) {
            result.append(closing).append("\r\n ").append(opening);
            length = opening.size();
        }
        result += coded;
        length += coded.size();
        subject.remove_prefix(size);
    }
    return result.append(closing);
}

std::string subject_of(const OutgoingMail& mail)
{
    const bool plain = mail.subject.size() <= kLongestPlainSubject && is_printable(mail.subject)
        && mail.subject.find("=?") == std::string::npos;
    return plain ? mail.subject : encoded_subject(valid_utf8(mail.subject));
}

/// "Mon, 02 Mar 2026 09:00:00 +0000".
std::string date_of(std::chrono::system_clock::time_point now)
{
    const auto day = std::chrono::floor<std::chrono::days>(now);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(std::chrono::floor<std::chrono::seconds>(now - day));
    const auto weekday = static_cast<int>(std::chrono::weekday(day).c_encoding());
    const auto month = static_cast<int>(static_cast<unsigned>(date.month()));
    std::array<char, 64> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.3s, %02u %.3s %04d %02d:%02d:%02d +0000",
        day_name(weekday).data(), static_cast<unsigned>(date.day()), month_name(month).data(),
        static_cast<int>(date.year()), static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
    return {text.data(), static_cast<std::size_t>(length)};
}

/// Takes a line off the front of the text, whatever it ends with.
std::string_view take_line(std::string_view& text)
{
    const auto end = (std::min)(text.find_first_of("\r\n"), text.size());
    const auto line = text.substr(0, end);
    text.remove_prefix(end);
    text.remove_prefix(text.starts_with("\r\n") ? 2 : text.empty() ? 0 : 1);
    return line;
}

bool is_plain_body(std::string_view body)
{
    while (!body.empty()) {
        const auto line = take_line(body);
        const bool plain = line.size() <= kLongestPlainLine
            && std::all_of(line.begin(), line.end(), [](char c) { return c == '\t' || is_printable(c); });
        if (!plain) {
            return false;
        }
    }
    return true;
}

/// One line in quoted-printable, with soft line ends. Dots are coded too: none can end the message.
std::string quoted_printable(std::string_view line)
{
    std::string result;
    std::size_t length = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        const bool ends_with_blank = c == ' ' && i + 1 == line.size();
        const auto coded =
            !is_printable(c) || c == '=' || c == '.' || ends_with_blank ? coded_byte(c) : std::string(1, c);
        if (length + coded.size() > kLongestCodedLine) {
            result += "=\r\n";
            length = 0;
        }
        result += coded;
        length += coded.size();
    }
    return result;
}

std::string body_of(std::string_view body, bool plain)
{
    std::string result;
    while (!body.empty()) {
        const auto line = take_line(body);
        result.append(plain ? std::string(line) : quoted_printable(line)).append("\r\n");
    }
    return result;
}

} // namespace

void require_sound(const OutgoingMail& mail)
{
    for (const auto* address : {&mail.sender, &mail.recipient}) {
        if (!is_plain_address(*address)) {
            throw mail_error("\"" + printable(*address) + "\" is not one plain mail address");
        }
    }
    if (single_line(mail.subject) != mail.subject) {
        throw mail_error("The subject of a mail must be one line");
    }
    if (mail.server.empty()) {
        throw mail_error("No mail server is set");
    }
    const bool is_ipv6 = mail.server.find(':') != std::string::npos;
    if (!consists_of(mail.server, is_ipv6 ? ":." : "-._")) {
        throw mail_error("\"" + printable(mail.server) + "\" is not the address of a mail server");
    }
}

std::string compose(const OutgoingMail& mail, std::chrono::system_clock::time_point now, std::string_view id)
{
    const bool plain = is_plain_body(mail.body);
    std::string text = "Date: " + date_of(now) + "\r\n";
    text += "Message-ID: <" + std::string(id) + mail.sender.substr(mail.sender.find('@')) + ">\r\n";
    text += "From: <" + mail.sender + ">\r\n";
    text += "To: <" + mail.recipient + ">\r\n";
    text += "Subject: " + subject_of(mail) + "\r\n";
    text += "MIME-Version: 1.0\r\n";
    text += "Content-Type: text/plain; charset=utf-8\r\n";
    text += std::string("Content-Transfer-Encoding: ") + (plain ? "7bit" : "quoted-printable") + "\r\n\r\n";
    return text + body_of(plain ? mail.body : valid_utf8(mail.body), plain);
}

std::string address_of(const OutgoingMail& mail)
{
    const bool is_ipv6 = mail.server.find(':') != std::string::npos;
    return "smtp://" + (is_ipv6 ? "[" + mail.server + "]" : mail.server) + ":" + std::to_string(mail.port);
}

} // namespace qz::platform
