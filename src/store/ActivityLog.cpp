#include "store/ActivityLog.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"
#include "store/Statements.h"

#include <iterator>

namespace qz::store {

namespace {

constexpr std::size_t kUserNameWidth = 50;
constexpr std::size_t kRemoteIPWidth = 20;
constexpr std::size_t kActionWidth = 255;
constexpr std::int64_t kRowsAtOnce = 2'000;

/// Cuts a cleaned text to a column's width. In a cleaned text quotes come in pairs; a cut through a pair
/// would leave half of it, which would end the literal early.
std::string cut_cleaned(std::string cleaned, std::size_t width)
{
    if (cleaned.size() <= width) {
        return cleaned;
    }
    auto cut = first_characters(cleaned, width);
    const auto last_other = cut.find_last_not_of('\'');
    const auto quotes = last_other == std::string_view::npos ? cut.size() : cut.size() - last_other - 1;
    if (cut.size() < cleaned.size() && quotes % 2 == 1) {
        cut.remove_suffix(1);
    }
    return std::string(cut);
}

} // namespace

ActivityLog::ActivityLog(
    Database& database, config::Settings& settings, const helpers::MessageParser& parser, Journal& journal)
    : database_(database), settings_(settings), parser_(parser), journal_(journal)
{
}

void ActivityLog::Write2dbLog(
    const std::string& action, const std::string& user_name, const std::string& remote_ip)
{
    const auto& keywords = helpers::protocol_keywords();
    const SingleLine user(user_name);
    const SingleLine from(remote_ip);
    const SingleLine line(action);
    std::string name_room;
    std::string text_room;
    const auto name = trim(user.text()).empty() ? std::string_view(keywords.HostName)
                                                : as_literal(user.text(), kUserNameWidth, name_room);
    const auto address = from.text().empty() ? std::string_view(keywords.HostAddress)
                                             : first_characters(from.text(), kRemoteIPWidth);
    const auto text = as_literal(line.text(), kActionWidth, text_room);
    try {
        const auto value_of = [](std::string_view literal) {
            return Parameter(Quoted{literal}).take_value(statements::kInsertLogRow);
        };
        new_row_.values[0] = value_of(name);
        new_row_.values[1] = value_of(address);
        new_row_.values[2] = value_of(text);
        database_.add(tables::kLog, new_row_);
        ++rows_written_;
    } catch (...) { // not guarded(): reporting a failure writes a log row, and that would never end
        const auto error = current_error();
        journal_.raise_error("Write2dbLog",
            EngineError(error.number(), error.source(),
                error.description() + " -> " + stated_text(statements::kInsertLogRow, {name, address, text})),
            no_address);
    }
}

/// A text as it stands between quotes, cut to its column's width: nearly always the text itself.
/// @param room  holds the result when it is another text.
std::string_view ActivityLog::as_literal(const std::string& text, std::size_t width, std::string& room) const
{
    if (text.size() <= width && text.find('\'') == std::string::npos) {
        return text;
    }
    return room = cut_cleaned(parser_.CleanText(text), width);
}

void ActivityLog::ClearOldLog()
{
    attempt([&] {
        const auto days = settings_.get_LogOlderThan();
        if (days != 0) {
            database_.run(statements::kDeleteOldLog, days);
        }
    });
}

bool ActivityLog::clear_some()
{
    bool more = false;
    attempt([&] {
        const auto days = settings_.get_LogOlderThan();
        if (days == 0) {
            return;
        }
        const auto oldest = database_.query(statements::kSelectOldestLogRow);
        if (!oldest.empty() && oldest.front()["DaysAgo"].integer() >= days) {
            database_.run(statements::kDeleteFirstOldLogRows, oldest.front().key() + kRowsAtOnce, days);
            more = true;
        }
    });
    return more;
}

std::optional<DateTime> ActivityLog::time_of_newest_earlier_row()
{
    std::optional<DateTime> time;
    attempt([&] {
        const auto own = static_cast<std::int64_t>(rows_written_);
        const auto rows = database_.query(statements::kSelectLogTimes, own + 1);
        if (rows.size() > rows_written_) {
            time = (*std::next(rows.begin(), own))["ActionTime"].date();
        }
    });
    return time;
}

std::vector<std::string> ActivityLog::get_Log_web(std::int32_t last_record)
{
    std::vector<std::string> lines;
    guarded(journal_, "get_Log_web", no_address, [&] {
        if (last_record < 0) { // databases differ in what they make of it
            throw syntax_error(statements::kSelectLogLines);
        }
        for (const auto& row : database_.query(statements::kSelectLogLines, last_record)) {
            lines.push_back(row["MyLog"].text());
        }
    });
    if (lines.empty()) {
        lines.emplace_back();
    }
    return lines;
}

} // namespace qz::store
