#include "BackupCommand.h"

#include "Archive.h"
#include "HomeStore.h"
#include "PassingFile.h"
#include "base/EngineError.h"
#include "base/Text.h"
#include "common/Console.h"
#include "common/Exit.h"
#include "platform/AtomicFile.h"
#include "platform/sqlite/SqliteBackup.h"
#include "server/HomeFiles.h"

#include <csignal>
#include <cstdint>
#include <iostream>
#include <system_error>
#include <unistd.h>

namespace velto {

namespace fs = std::filesystem;

namespace {

volatile std::sig_atomic_t g_interrupted = 0;

/// Lets SIGINT and SIGTERM end the work where it can tidy up behind itself.
class Interruption {
public:
    Interruption()
    {
        for (const int signal : {SIGINT, SIGTERM}) {
            std::signal(signal, [](int) { g_interrupted = 1; });
        }
    }
    static void check()
    {
        if (g_interrupted != 0) {
            throw CommandError(Exit::Failed, "interrupted; nothing was written");
        }
    }
};

/// On a terminal, how far a long work is, in a line that is written over.
class Progress {
public:
    explicit Progress(std::string what) : what_(std::move(what)), shown_(isatty(STDERR_FILENO) == 1) { }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress()
    {
        if (percent_ >= 0) {
            std::cerr << "\r\x1b[K" << std::flush;
        }
    }
    void tell(std::int64_t done, std::int64_t total)
    {
        Interruption::check();
        const auto percent = total > 0 ? done * 100 / total : 100;
        if (shown_ && percent != percent_) {
            std::cerr << "\r" << what_ << " " << percent << " %" << std::flush;
            percent_ = percent;
        }
    }

private:
    std::string what_;
    bool shown_;
    std::int64_t percent_ = -1;
};

/// A file of the home must not become its own backup.
void require_elsewhere(const Home& home, const fs::path& target)
{
    const auto absolute = fs::weakly_canonical(target);
    const auto folder = fs::weakly_canonical(home.folder());
    const auto name = absolute.filename().string();
    const bool is_ours = name.starts_with("VELTO.db") || name.starts_with("VELTO_Server.");
    if (absolute.parent_path() == folder && is_ours) {
        throw CommandError(Exit::Usage,
            absolute.string() + " is a file of the server itself; name another one for the backup");
    }
}

void require_free(const BackupOptions& options)
{
    std::error_code error;
    const auto status = fs::symlink_status(options.file, error);
    if (!fs::exists(status)) {
        return;
    }
    if (!fs::is_regular_file(status)) {
        throw CommandError(Exit::Failed,
            qz::printable(options.file) + " is there and is not a plain file; it was left alone");
    }
    if (!options.force) {
        throw CommandError(Exit::Failed,
            qz::printable(options.file) + " is there already; it was left alone\nReplace it with --force.");
    }
}

void add_small(Archive& archive, const fs::path& file)
{
    if (const auto content = qz::platform::AtomicFile(file).read()) {
        archive.add(file.filename().string(), file, content->bytes);
    }
}

/// Copies the database beside the archive first: nothing is known of its size before.
void add_database(Archive& archive, const Home& home, const fs::path& target)
{
    const auto database = home.folder() / qz::server::kDatabaseFile;
    const PassingFile copy(target);
    {
        Progress copying("copying the database");
        qz::platform::copy_sqlite_database(
            database, copy.path(), [&](int done, int total) { copying.tell(done, total); });
    }
    Progress writing("writing the backup");
    archive.add_file(qz::server::kDatabaseFile, database, copy.path(),
        [&](std::int64_t done, std::int64_t total) { writing.tell(done, total); });
}

} // namespace

void run_backup(const Home& home, const BackupOptions& options)
{
    home.require_initialised();
    const fs::path target = fs::absolute(options.file);
    require_elsewhere(home, target);
    require_free(options);
    HomeSettings settings(home, Access::Read);
    const bool embedded = settings.deployment.provider() == qz::platform::Provider::Embedded;
    if (const auto complaint = settings.complaint_about_key()) {
        warn(*complaint + "; the backup is of little use without the right one");
    }
    const Interruption interruption;
    PassingFile file(target);
    Archive archive(file.descriptor(), target.string());
    add_small(archive, home.settings_file());
    add_small(archive, home.key_file());
    if (embedded) {
        add_database(archive, home, target);
    }
    archive.finish();
    file.keep(options.force ? PassingFile::Existing::Replace : PassingFile::Existing::Keep);
    std::cout << "Backup of " << home.folder().string() << ": " << qz::printable(target.string()) << ", "
              << fs::file_size(target) << " bytes\n";
    if (!embedded) {
        std::cout << "The database stands on a server of its own and is not in it: back it up there.\n";
    }
}

} // namespace velto
