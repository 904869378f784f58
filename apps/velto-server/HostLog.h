// The daemon's own log, on standard error: for people, for programs, or for the journal.
#pragma once

#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace spdlog {
class logger;
}

namespace velto {

enum class LogFormat {
    Text,    // a line with time and level
    Json,    // one object a line
    Journal, // a line with the journal's priority before it; the journal adds the time
};

/// Journal when standard error is connected to it, else Text.
LogFormat natural_log_format();

enum class LogLevel { Info, Warning, Error };

/// Every event is one line, also when several threads write. Texts may come from anywhere: nothing in them
/// can end a line or steer a terminal.
class HostLog {
public:
    explicit HostLog(LogFormat format);
    ~HostLog();
    HostLog(const HostLog&) = delete;
    HostLog& operator=(const HostLog&) = delete;

    struct Field {
        std::string_view name;
        std::string_view value; // an empty one is left out
    };
    /// @param fields  who and where: shown behind the text in brackets, or as members of the object.
    void write(LogLevel level, const std::string& text, std::initializer_list<Field> fields = {});

    /// From here on lines of information may wait for the next flush, unless a terminal shows them.
    void begin_to_hold();
    void flush();
    /// Nothing waits any more.
    void end_holding();

private:
    class HeldLines;

    LogFormat format_;
    std::mutex mutex_;
    std::shared_ptr<HeldLines> held_; // none on a terminal
    std::shared_ptr<spdlog::logger> logger_;
    std::string line_; // kept for its memory
};

} // namespace velto
