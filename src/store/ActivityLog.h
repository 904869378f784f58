// The activity log: the table `log`, one row for every line that the engine logs.
#pragma once

#include "base/DateTime.h"
#include "base/Journal.h"
#include "config/Settings.h"
#include "helpers/MessageParser.h"
#include "store/Database.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qz::store {

class ActivityLog {
public:
    ActivityLog(Database& database, config::Settings& settings, const helpers::MessageParser& parser,
        Journal& journal);

    /// Inserts one row. A blank user name becomes HostName, an empty address HostAddress; the name is cut to
    /// 50 characters, the address to 20, the action to 255. The address goes into the statement as it stands.
    /// A failure raises Error, with the SQL text in its description, and is not logged.
    void Write2dbLog(const std::string& action, const std::string& user_name, const std::string& remote_ip);

    /// Rows inserted so far, each with the time of its insert.
    std::uint64_t rows_written() const { return rows_written_; }

    /// Deletes the rows that are as old as LogOlderThan days or older; 0 keeps all. Errors are ignored.
    void ClearOldLog();

    /// Deletes such rows from the beginning of the log, a bounded number with each call: a whole log would
    /// hold everybody up. Stops at the first row that is younger.
    /// @return whether there may be more. Errors are ignored, and end it.
    bool clear_some();

    /// Time of the newest row that was there before this object inserted its own; nothing when there is none.
    /// Errors are ignored.
    std::optional<DateTime> time_of_newest_earlier_row();

    /// The newest lines, newest first: "time/user/address/action".
    /// @param last_record  how many at the most.
    /// @return one empty text when there are none or the query fails.
    std::vector<std::string> get_Log_web(std::int32_t last_record);

private:
    std::string_view as_literal(const std::string& text, std::size_t width, std::string& room) const;

    Database& database_;
    config::Settings& settings_;
    const helpers::MessageParser& parser_;
    Journal& journal_;
    std::uint64_t rows_written_ = 0;
    // Kept for its memory: it is filled again for every line.
    platform::RowChange new_row_{{"UserName", "RemoteIP", "Action"}, std::vector<platform::Value>(3)};
};

} // namespace qz::store
