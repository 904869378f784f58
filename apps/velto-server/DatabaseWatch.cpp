#include "DatabaseWatch.h"

#include "HomeStore.h"
#include "server/HomeFiles.h"

#include <sys/stat.h>

namespace velto {

DatabaseWatch::DatabaseWatch(const Home& home, HostLog& log) : log_(log)
{
    struct stat status { };
    const auto file = home.folder() / qz::server::kDatabaseFile;
    if (HomeSettings(home).deployment.provider() == qz::platform::Provider::Embedded
        && stat(file.c_str(), &status) == 0) {
        file_ = file;
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }
}

void DatabaseWatch::look()
{
    if (file_.empty()) {
        return;
    }
    struct stat status { };
    const bool is_gone =
        stat(file_.c_str(), &status) != 0 || status.st_dev != device_ || status.st_ino != inode_;
    if (is_gone && !gone_) {
        log_.write(LogLevel::Error,
            "the database file " + file_.string()
                + " was deleted, moved or replaced under the running server, which still writes into the old "
                  "one: "
                  "what it stores is lost when it ends. Put the file back, or stop the server and restore a "
                  "backup");
    }
    gone_ = is_gone;
}

} // namespace velto
