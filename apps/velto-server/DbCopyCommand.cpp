#include "DbCopyCommand.h"

#include "HomeLock.h"
#include "HomeStore.h"
#include "base/Text.h"
#include "common/Console.h"
#include "common/Exit.h"
#include "store/Statements.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <unistd.h>
#include <utility>
#include <vector>

namespace velto {

namespace {

using qz::platform::Maintenance;
using qz::platform::ResultSet;
using qz::platform::Table;
using qz::platform::Value;

constexpr std::size_t kPage = 500;

const auto& all_tables()
{
    using namespace qz::store::tables;
    static constexpr std::array kTables{kUsers, kBuddies, kRooms, kMessages, kLog, kCommand, kAutoReply,
        kQueue, kQueueText, kQueueCount, kLastLogOn};
    return kTables;
}

std::string bytes_of(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// A value as every provider gives it back. Dates are texts in some databases, and numbers whole or real.
std::string canonical(const std::string& column, const Value& value)
{
    const auto& held = value.held();
    if (value.is_null()) {
        return "null";
    }
    if (std::holds_alternative<std::string>(held)) {
        const auto date = column.ends_with("time") ? qz::DateTime::parse(value.text()) : std::nullopt;
        return "t" + (date ? date->text() : value.text());
    }
    return std::holds_alternative<qz::DateTime>(held) ? "t" + value.text()
                                                      : "n" + qz::decimal(value.number());
}

/// Rows and their checksum (FNV-1a over all rows in the order of their keys, the columns by name).
struct Content {
    std::uint64_t rows = 0;
    std::uint64_t checksum = 14695981039346656037U;
    bool operator==(const Content&) const = default;

    void add(const ResultSet& page)
    {
        std::map<std::string, std::size_t> order;
        for (std::size_t i = 0; i < page.columns.size(); ++i) {
            order[qz::lower(page.columns[i])] = i;
        }
        for (const auto& row : page.rows) {
            ++rows;
            for (const auto& [column, place] : order) {
                add(column);
                add(canonical(column, row[place]));
            }
        }
    }

private:
    void add(const std::string& text)
    {
        for (const char c : text) {
            add(static_cast<unsigned char>(c));
        }
        add(std::uint8_t{0});
    }
    void add(std::uint8_t byte) { checksum = (checksum ^ byte) * 1099511628211U; }
};

std::int64_t last_key(const ResultSet& page, const Table& table)
{
    const auto key = std::find_if(page.columns.begin(), page.columns.end(),
        [&](const std::string& each) { return qz::equal_ignoring_case(each, table.key); });
    return static_cast<std::int64_t>(
        page.rows.back().at(static_cast<std::size_t>(key - page.columns.begin())).number());
}

/// Visits all rows of a table, page by page.
template <typename Visit> Content read_all(Maintenance& tables, const Table& table, Visit visit)
{
    Content content;
    std::int64_t after = INT64_MIN;
    for (;;) {
        const auto page = tables.read_rows(table, after, kPage);
        if (page.rows.empty()) {
            return content;
        }
        content.add(page);
        visit(page);
        after = last_key(page, table);
    }
}

/// A line that is drawn anew, on a terminal only.
class Progress {
public:
    explicit Progress(std::uint64_t all) : all_(all), shown_(isatty(STDERR_FILENO) == 1) { }
    ~Progress()
    {
        if (shown_) {
            std::cerr << "\r\033[K";
        }
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void add(const Table& table, std::size_t rows)
    {
        done_ += rows;
        if (!shown_) {
            return;
        }
        constexpr std::uint64_t width = 30;
        const auto part = all_ == 0 ? width : (std::min)(width, done_ * width / all_);
        std::cerr << "\r\033[K[" << std::string(part, '#') << std::string(width - part, ' ') << "] " << done_
                  << " of " << all_ << " rows, " << table.name << std::flush;
    }

private:
    std::uint64_t all_;
    std::uint64_t done_ = 0;
    bool shown_;
};

void require_same_key(const Home& from, const Home& to)
{
    const auto key = bytes_of(from.folder() / qz::server::kKeyFile);
    if (!key.empty() && key != bytes_of(to.folder() / qz::server::kKeyFile)) {
        throw CommandError(Exit::Failed,
            "the homes have different keys, so that no password of one could be read in the other\nCopy "
                + (from.folder() / qz::server::kKeyFile).string() + " to "
                + (to.folder() / qz::server::kKeyFile).string() + " first.");
    }
}

/// Addresses tell nothing: a server has several names, and a file several paths.
void require_two_databases(Maintenance& source, Maintenance& target)
{
    struct Mark {
        explicit Mark(Maintenance& marked) : tables(marked), text(marked.set_mark()) { }
        ~Mark() { tables.clear_mark(text); }
        Mark(const Mark&) = delete;
        Mark& operator=(const Mark&) = delete;
        Maintenance& tables;
        std::string text;
    };
    const Mark mark(target);
    if (source.has_mark(mark.text)) {
        throw CommandError(Exit::Usage,
            "both homes use the same database; nothing was changed\nSet DBServerIP of one of them to another "
            "database first.");
    }
}

void require_empty(Maintenance& target)
{
    for (const auto& table : all_tables()) {
        if (target.count_rows(table) != 0) {
            throw CommandError(Exit::Failed,
                "the target is not empty: its table " + std::string(table.name)
                    + " has rows; nothing was changed\nWith --replace they are deleted first.");
        }
    }
}

/// Everything that is done to the target. Unless it is kept, it is taken back, and people are told.
class Change {
public:
    explicit Change(Maintenance& target) : target_(target), takes_back_(target.begin()) { }
    ~Change()
    {
        if (!kept_) {
            target_.roll_back();
            std::cerr << "velto-server: " << what_became() << "\n";
        }
    }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

    void keep()
    {
        committing_ = true;
        target_.commit();
        kept_ = true;
    }

private:
    const char* what_became() const
    {
        if (!takes_back_) {
            return "the target has no transactions and may hold a part of the copy now: do not use it, "
                   "repeat the "
                   "command with --replace";
        }
        return committing_ ? "it is unknown whether the copy was stored: repeat the command with --replace"
                           : "the copy was given up; the target holds what it held before";
    }

    Maintenance& target_;
    bool takes_back_;
    bool committing_ = false;
    bool kept_ = false;
};

/// The source as it is at one moment: the server of another home may write to the same database.
class Moment {
public:
    explicit Moment(Maintenance& source) : source_(source) { source.begin_reading(); }
    ~Moment() { source_.roll_back(); }
    Moment(const Moment&) = delete;
    Moment& operator=(const Moment&) = delete;

private:
    Maintenance& source_;
};

std::uint64_t count_all(Maintenance& tables)
{
    std::uint64_t all = 0;
    for (const auto& table : all_tables()) {
        all += tables.count_rows(table);
    }
    return all;
}

using Contents = std::vector<std::pair<Table, Content>>;

Contents copy_all(Maintenance& source, Maintenance& target)
{
    for (const auto& table : all_tables()) {
        target.delete_rows(table);
    }
    Contents copied;
    Progress progress(count_all(source));
    for (const auto& table : all_tables()) {
        copied.emplace_back(table, read_all(source, table, [&](const ResultSet& page) {
            target.write_rows(table, page);
            progress.add(table, page.rows.size());
        }));
    }
    return copied;
}

/// Prints a line for each table.
/// @return whether the target holds what was copied.
bool compare(Maintenance& target, const Contents& copied)
{
    bool same = true;
    for (const auto& [table, expected] : copied) {
        const bool equal = read_all(target, table, [](const ResultSet&) {}) == expected;
        same = same && equal;
        std::printf("%-12s %10llu rows  %016llx  %s\n", std::string(table.name).c_str(),
            static_cast<unsigned long long>(expected.rows),
            static_cast<unsigned long long>(expected.checksum), equal ? "same" : "DIFFERENT");
    }
    return same;
}

} // namespace

void run_db_copy(const DbCopyOptions& options)
{
    const Home from(options.from);
    const Home to(options.to);
    from.require_initialised();
    to.require_initialised();
    if (std::filesystem::equivalent(from.folder(), to.folder())) {
        throw CommandError(Exit::Usage, "--from and --to are the same home");
    }
    const HomeLock from_lock(from);
    const HomeLock to_lock(to);
    require_same_key(from, to);
    HomeStore from_store(from);
    HomeStore to_store(to);
    auto& source = from_store.database.maintenance();
    auto& target = to_store.database.maintenance();
    target.make_schema();
    require_two_databases(source, target);
    if (!options.replace) {
        require_empty(target);
    }
    const Moment moment(source);
    Change change(target);
    if (!compare(target, copy_all(source, target))) {
        throw CommandError(Exit::Failed, "the copy differs from the original");
    }
    change.keep();
}

} // namespace velto
