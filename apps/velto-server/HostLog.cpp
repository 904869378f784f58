#include "HostLog.h"

#include "base/Text.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <spdlog/details/null_mutex.h>
#include <spdlog/formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace velto {

namespace {

struct LevelNames {
    spdlog::level::level_enum level;
    const char* word;
    const char* priority; // of the journal: 3 error, 4 warning, 6 information
};

const LevelNames& names_of(LogLevel level)
{
    static constexpr std::array<LevelNames, 3> kNames{{{spdlog::level::info, "info", "<6>"},
        {spdlog::level::warn, "warning", "<4>"}, {spdlog::level::err, "error", "<3>"}}};
    return kNames.at(static_cast<std::size_t>(level));
}

std::string local_time(std::time_t time, const char* pattern)
{
    std::tm civil{};
    localtime_r(&time, &civil);
    std::array<char, 32> text{};
    const auto length = std::strftime(text.data(), text.size(), pattern, &civil);
    return {text.data(), length};
}

/// Lines of text: as the pattern "%Y-%m-%d %H:%M:%S %^%l%$ %v", but the time is put into words once a second.
class TextLines final : public spdlog::formatter {
public:
    void format(const spdlog::details::log_msg& message, spdlog::memory_buf_t& to) override
    {
        const auto second = std::chrono::time_point_cast<std::chrono::seconds>(message.time);
        if (stamp_.empty() || second != second_) {
            second_ = second;
            stamp_ = local_time(spdlog::log_clock::to_time_t(second), "%Y-%m-%d %H:%M:%S ");
        }
        const auto& level = spdlog::level::to_string_view(message.level);
        append(to, stamp_);
        message.color_range_start = to.size();
        append(to, level);
        message.color_range_end = to.size();
        to.push_back(' ');
        append(to, message.payload);
        to.push_back('\n');
    }
    std::unique_ptr<spdlog::formatter> clone() const override { return std::make_unique<TextLines>(); }

private:
    static void append(spdlog::memory_buf_t& to, spdlog::string_view_t text)
    {
        to.append(text.data(), text.data() + text.size());
    }

    std::chrono::time_point<spdlog::log_clock, std::chrono::seconds> second_;
    std::string stamp_;
};

std::string as_json(LogLevel level, const std::string& text, std::initializer_list<HostLog::Field> fields)
{
    nlohmann::ordered_json object = {{"time", local_time(std::time(nullptr), "%Y-%m-%dT%H:%M:%S%z")},
        {"level", names_of(level).word}, {"message", text}};
    for (const auto& field : fields) {
        if (!field.value.empty()) {
            object[std::string(field.name)] = field.value;
        }
    }
    return object.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

void append_text(std::string& line, const std::string& text, std::initializer_list<HostLog::Field> fields)
{
    qz::append_printable(line, text);
    bool any = false;
    for (const auto& field : fields) {
        if (!field.value.empty()) {
            line += std::exchange(any, true) ? " " : " [";
            qz::append_printable(line, field.value);
        }
    }
    line += any ? "]" : "";
}

} // namespace

LogFormat natural_log_format()
{
    const char* stream = std::getenv("JOURNAL_STREAM"); // NOLINT(concurrency-mt-unsafe): before any thread
    std::uintmax_t device = 0;
    std::uintmax_t file = 0;
    struct stat status { };
    const bool is_journal = stream != nullptr
        && std::sscanf(stream, "%" SCNuMAX ":%" SCNuMAX, &device, &file)
            == 2 // NOLINT(cert-err34-c): a number
                 // that overflows matches no file
        && fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == file;
    return is_journal ? LogFormat::Journal : LogFormat::Text;
}

/// Writes the lines of a turn with one call: a file or a pipe takes ten lines as fast as one.
class HostLog::HeldLines final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
public:
    bool holds = false;

    /// What standard error does not take is lost, as a line alone would be.
    void write_out()
    {
        for (std::size_t done = 0; done < text_.size();) {
            const auto size = ::write(STDERR_FILENO, text_.data() + done, text_.size() - done);
            if (size < 0 && errno != EINTR) {
                break;
            }
            done += size < 0 ? 0 : static_cast<std::size_t>(size);
        }
        text_.clear();
    }

protected:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        formatter_->format(message, text_);
        constexpr std::size_t kMost = std::size_t{64} * 1024;
        if (!holds || message.level != spdlog::level::info || text_.size() > kMost) {
            write_out();
        }
    }
    void flush_() override { write_out(); }

private:
    spdlog::memory_buf_t text_;
};

HostLog::HostLog(LogFormat format) : format_(format)
{
    const bool plain = std::getenv("NO_COLOR") != nullptr; // NOLINT(concurrency-mt-unsafe): before any thread
    spdlog::sink_ptr sink;
    if (isatty(STDERR_FILENO) != 0) {
        const auto color = plain ? spdlog::color_mode::never : spdlog::color_mode::automatic;
        sink = std::make_shared<spdlog::sinks::stderr_color_sink_st>(color);
    } else {
        held_ = std::make_shared<HeldLines>();
        sink = held_;
    }
    logger_ = std::make_shared<spdlog::logger>("velto-server", std::move(sink));
    if (format == LogFormat::Text) {
        logger_->set_formatter(std::make_unique<TextLines>());
    } else {
        logger_->set_pattern("%v");
    }
}

HostLog::~HostLog()
{
    end_holding();
}

void HostLog::begin_to_hold()
{
    const std::lock_guard lock(mutex_);
    if (held_) {
        held_->holds = true;
    }
}

void HostLog::flush()
{
    const std::lock_guard lock(mutex_);
    if (held_) {
        held_->write_out();
    }
}

void HostLog::end_holding()
{
    const std::lock_guard lock(mutex_);
    if (held_) {
        held_->holds = false;
        held_->write_out();
    }
}

void HostLog::write(LogLevel level, const std::string& text, std::initializer_list<Field> fields)
{
    const std::lock_guard lock(mutex_);
    const auto& names = names_of(level);
    line_.clear();
    switch (format_) {
    case LogFormat::Text:
        append_text(line_, text, fields);
        break;
    case LogFormat::Journal:
        line_ += names.priority;
        append_text(line_, text, fields);
        break;
    case LogFormat::Json:
        line_ += as_json(level, text, fields);
        break;
    }
    logger_->log(names.level, spdlog::string_view_t(line_));
}

} // namespace velto
