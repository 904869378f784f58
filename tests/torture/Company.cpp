#include "torture/Company.h"

#include "support/TemporaryFolder.h"
#include "system/Process.h"

#include <algorithm>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <utility>

namespace qz::torture {

namespace {

using namespace std::chrono_literals;
using Words = std::vector<std::string>;

constexpr std::size_t kMostTasks = 2;
constexpr std::size_t kMostAccounts = 60;
constexpr auto kPatience = 60s;
constexpr const char* kSetting = "General SetUp/WebAdministrator"; // of a host that is not there

bool has_line(const std::string& text, const std::string& line)
{
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

} // namespace

Company::Company(Server& server, const Database& database, const std::filesystem::path& folder, Truth& truth,
    std::mt19937_64& random)
    : server_(server), database_(database), folder_(folder / "company"), truth_(truth), random_(random)
{
    std::filesystem::create_directory(folder_);
    test::put_bytes(folder_ / "password", "secret\n");
}

Company::~Company()
{
    for (const auto& task : tasks_) {
        kill(task.process, SIGKILL);
        waitpid(task.process, nullptr, 0);
    }
}

const std::vector<Company::Kind>& Company::kinds()
{
    static const std::vector<Kind> kinds{
        {"user add", 12, &Company::add_user, {0}, &Company::user_added},
        {"user list", 20, &Company::list_users, {0}, &Company::users_listed},
        {"config set", 12, &Company::set_value, {0}, &Company::value_set},
        {"backup", 5, &Company::back_up, {0}, &Company::backed_up},
        {"log", 12, &Company::read_log, {0}},
        {"status", 8, &Company::tell_status, {0, 3}}, // no server runs
        {"check", 6, &Company::check, {0}, nullptr, true},
        {"a reader", 18, &Company::read, {0}},
        {"a reader who takes its time", 7, &Company::read_for_long, {0}},
    };
    return kinds;
}

void Company::work(Time now)
{
    one_has_ended_ = false;
    for (auto task = tasks_.begin(); task != tasks_.end();) {
        task->may_fail = task->may_fail || server_.is_starved() || database_.is_in_trouble();
        if (has_ended(*task, now)) {
            one_has_ended_ = true;
            task = tasks_.erase(task);
        } else {
            ++task;
        }
    }
    if (now >= next_ && tasks_.size() < kMostTasks) {
        start(now);
        next_ = now + std::chrono::milliseconds(below(120));
    }
}

/// Each kind runs once at a time, so that the value that was set last is known.
void Company::start(Time now)
{
    auto lot = static_cast<int>(below(100));
    auto kind = kinds().begin();
    for (; lot >= kind->share; ++kind) {
        lot -= kind->share;
    }
    const bool runs =
        std::any_of(tasks_.begin(), tasks_.end(), [&](const Task& task) { return task.kind == &*kind; });
    if (runs || (kind->words == &Company::add_user && accounts_.size() >= kMostAccounts)) {
        return;
    }
    Task task;
    task.kind = &*kind;
    task.accounts = accounts_.size();
    task.may_fail = server_.is_starved() || database_.is_in_trouble();
    task.output = folder_ / std::to_string(started_);
    task.began = now;
    ++started_;
    const auto words = (this->*kind->words)(task);
    task.process = test::spawn(words, folder_ / "password", task.output);
    tasks_.push_back(task);
}

bool Company::has_ended(Task& task, Time now)
{
    int status = 0;
    if (waitpid(task.process, &status, WNOHANG) == 0) {
        if (now - task.began < kPatience) {
            return false;
        }
        kill(task.process, SIGKILL);
        waitpid(task.process, &status, 0);
    }
    judge(task, WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    return true;
}

void Company::judge(const Task& task, int code)
{
    ++commands_;
    const auto& codes = task.kind->codes;
    const auto output = test::bytes_of(task.output);
    std::filesystem::remove(task.output);
    const bool is_expected = std::find(codes.begin(), codes.end(), code) != codes.end();
    if (code < 0 || (!is_expected && !task.may_fail)) {
        truth_.fail(std::string(task.kind->name) + " ended with " + std::to_string(code) + ": " + output);
    }
    if (task.kind->ended != nullptr) {
        (this->*task.kind->ended)(task, code == 0, output);
    }
}

void Company::leave_the_port()
{
    const auto next = std::exchange(next_, Time::max());
    wait_while([this] {
        return std::any_of(
            tasks_.begin(), tasks_.end(), [](const Task& task) { return task.kind->tries_port; });
    });
    next_ = next;
}

void Company::finish()
{
    next_ = Time::max();
    wait_while([this] { return !tasks_.empty(); });
}

template <typename Condition> void Company::wait_while(Condition condition)
{
    while (condition()) {
        work(std::chrono::steady_clock::now());
        std::this_thread::sleep_for(1ms); // the only way to wait for one of several processes
    }
}

Words Company::add_user(Task& task)
{
    task.subject = "guest" + std::to_string(started_);
    return server_.command({"user", "add", task.subject, "--password-stdin"});
}

void Company::user_added(const Task& task, bool done, const std::string& /*output*/)
{
    if (done) {
        accounts_.push_back(task.subject);
    }
}

Words Company::list_users(Task& /*task*/)
{
    return server_.command({"user", "list", "--names"});
}

void Company::users_listed(const Task& task, bool done, const std::string& output)
{
    if (done) {
        require_accounts(task.accounts, output, "user list");
    }
}

void Company::require_accounts(std::size_t count, const std::string& names, const std::string& where)
{
    for (std::size_t i = 0; i < count; ++i) {
        if (!has_line(names, accounts_[i])) {
            truth_.fail(accounts_[i] + " was added and is not in " + where + ": " + names);
        }
    }
}

Words Company::set_value(Task& task)
{
    task.subject = "somebody" + std::to_string(started_);
    return server_.command({"config", "set", kSetting, task.subject});
}

void Company::value_set(const Task& task, bool done, const std::string& /*output*/)
{
    if (done) {
        values_.clear();
    }
    if (done || !values_.empty()) {
        values_.push_back(task.subject);
    }
}

Words Company::back_up(Task& /*task*/)
{
    return server_.command({"backup", folder_ / "backup.tar", "--force"});
}

void Company::backed_up(const Task& task, bool done, const std::string& /*output*/)
{
    if (done) {
        has_backup_ = true;
        accounts_in_backup_ = task.accounts;
    }
}

Words Company::read_log(Task& /*task*/)
{
    return server_.command({"log", "-n", "50"});
}

Words Company::tell_status(Task& /*task*/)
{
    return server_.command({"status", "--json"});
}

Words Company::check(Task& /*task*/)
{
    return server_.command({"check"});
}

Words Company::read(Task& /*task*/)
{
    return database_.shell({below(2) == 0 ? "SELECT count(*) FROM queue" : "SELECT max(IDLog) FROM log"});
}

Words Company::read_for_long(Task& /*task*/)
{
    return database_.shell(
        {"BEGIN; SELECT count(*) FROM messages; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT "
         "i + 1 FROM n WHERE i < 500000) SELECT count(*) FROM n; COMMIT"});
}

int Company::run(const Words& words, std::string& output)
{
    const int code = test::wait_for(test::spawn(words, "/dev/null", folder_ / "output"), kPatience);
    output = test::bytes_of(folder_ / "output");
    return code;
}

/// Mostly the log stays for the server that starts next; otherwise it is copied into the file by
/// who closes last, if the check does.
void Company::check_integrity()
{
    if (!database_.is_embedded()) {
        return;
    }
    const auto* const keep_log = below(4) != 0 ? "on" : "off";
    std::string output;
    const int code = run(
        database_.shell({std::string(".dbconfig no_ckpt_on_close ") + keep_log, "PRAGMA integrity_check"}),
        output);
    ++integrity_checks_;
    const bool is_sound = code == 0 && output.ends_with("\nok\n");
    const bool is_damaged =
        output.find("malformed") != std::string::npos || output.find("***") != std::string::npos;
    if (is_damaged || (!is_sound && !server_.is_starved())) {
        truth_.fail("the database is damaged: " + output);
    }
}

void Company::compare()
{
    std::string output;
    if (run(server_.command({"user", "list", "--names"}), output) != 0) {
        truth_.fail("user list: " + output);
    }
    require_accounts(accounts_.size(), output, "the end");
    run(server_.command({"config", "get", kSetting}), output);
    const auto is_there = [&](const std::string& value) {
        return output.find(value + "\n") != std::string::npos;
    };
    if (!values_.empty() && std::none_of(values_.begin(), values_.end(), is_there)) {
        truth_.fail("config set set " + values_.front() + ", and there is " + output);
    }
    if (has_backup_ && database_.is_embedded()) {
        compare_backup();
    }
    check_integrity();
}

void Company::compare_backup()
{
    std::string output;
    if (run({"/usr/bin/env", "tar", "-xf", folder_ / "backup.tar", "-C", folder_, "VELTO.db"}, output) != 0) {
        truth_.fail("the backup cannot be unpacked: " + output);
        return;
    }
    run(Database::shell_of(folder_ / "VELTO.db", {"PRAGMA integrity_check", "SELECT UserName FROM users"}),
        output);
    if (!output.starts_with("ok\n")) {
        truth_.fail("the backup is damaged: " + output);
    }
    require_accounts(accounts_in_backup_, output, "the backup");
}

} // namespace qz::torture
