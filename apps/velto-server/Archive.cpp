#include "Archive.h"

#include "common/Exit.h"
#include "platform/LateLibrary.h"

#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <fstream>
#include <sys/stat.h>
#include <system_error>

namespace velto {

namespace {

using qz::platform::LateFunction;
using qz::platform::LateLibrary;

constexpr std::size_t kBlock = 1 << 20;

/// libarchive, which only backups need.
struct Library {
    LateLibrary file{"libarchive.so.13"};
    LateFunction<decltype(archive_entry_copy_stat)> entry_copy_stat{file, "archive_entry_copy_stat"};
    LateFunction<decltype(archive_entry_free)> entry_free{file, "archive_entry_free"};
    LateFunction<decltype(archive_entry_new)> entry_new{file, "archive_entry_new"};
    LateFunction<decltype(archive_entry_set_pathname)> entry_set_pathname{file, "archive_entry_set_pathname"};
    LateFunction<decltype(archive_entry_set_size)> entry_set_size{file, "archive_entry_set_size"};
    LateFunction<decltype(archive_error_string)> error_string{file, "archive_error_string"};
    LateFunction<decltype(archive_write_close)> write_close{file, "archive_write_close"};
    LateFunction<decltype(archive_write_data)> write_data{file, "archive_write_data"};
    LateFunction<decltype(archive_write_free)> write_free{file, "archive_write_free"};
    LateFunction<decltype(archive_write_header)> write_header{file, "archive_write_header"};
    LateFunction<decltype(archive_write_new)> write_new{file, "archive_write_new"};
    LateFunction<decltype(archive_write_open_fd)> write_open_fd{file, "archive_write_open_fd"};
    LateFunction<decltype(archive_write_set_format_pax_restricted)> write_set_format_pax_restricted{
        file, "archive_write_set_format_pax_restricted"};
};

const Library& library()
{
    try {
        static const Library kLibrary;
        return kLibrary;
    } catch (const std::system_error& error) {
        throw CommandError(Exit::Failed,
            std::string("a backup needs the library libarchive; install the package libarchive13 (")
                + error.what() + ")");
    }
}

struct EntryCloser {
    void operator()(archive_entry* entry) const { library().entry_free(entry); }
};

} // namespace

void Archive::Closer::operator()(archive* handle) const
{
    library().write_free(handle);
}

Archive::Archive(int descriptor, std::string name) : name_(std::move(name)), archive_(library().write_new())
{
    check(library().write_set_format_pax_restricted(archive_.get())); // plain tar wherever that is enough
    check(library().write_open_fd(archive_.get(), descriptor));
}

Archive::~Archive() = default;

void Archive::check(std::int64_t code)
{
    if (code < ARCHIVE_OK) {
        const char* why = library().error_string(archive_.get());
        throw CommandError(Exit::Failed,
            "the file " + name_ + " cannot be written: " + (why != nullptr ? why : "out of memory"));
    }
}

void Archive::begin(const std::string& name, const std::filesystem::path& stands_for, std::int64_t size)
{
    struct stat status { };
    if (stat(stands_for.c_str(), &status) != 0) {
        throw CommandError(Exit::Failed, "the file " + stands_for.string() + " is gone");
    }
    const std::unique_ptr<archive_entry, EntryCloser> entry(library().entry_new());
    library().entry_copy_stat(entry.get(), &status);
    library().entry_set_pathname(entry.get(), name.c_str());
    library().entry_set_size(entry.get(), size);
    check(library().write_header(archive_.get(), entry.get()));
}

void Archive::put(std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto written = library().write_data(archive_.get(), bytes.data(), bytes.size());
        check(written);
        if (written == 0) {
            throw CommandError(Exit::Failed, "a file grew while it was written to " + name_);
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void Archive::add(const std::string& name, const std::filesystem::path& stands_for, std::string_view bytes)
{
    begin(name, stands_for, static_cast<std::int64_t>(bytes.size()));
    put(bytes);
}

void Archive::add_file(const std::string& name, const std::filesystem::path& stands_for,
    const std::filesystem::path& file, const std::function<void(std::int64_t, std::int64_t)>& progress)
{
    const auto total = static_cast<std::int64_t>(std::filesystem::file_size(file));
    begin(name, stands_for, total);
    std::ifstream stream(file, std::ios::binary);
    std::string block(kBlock, '\0');
    std::int64_t done = 0;
    while (stream.read(block.data(), static_cast<std::streamsize>(block.size())) || stream.gcount() > 0) {
        put({block.data(), static_cast<std::size_t>(stream.gcount())});
        done += stream.gcount();
        progress(done, total);
    }
    if (done != total) {
        throw CommandError(Exit::Failed, "the file " + file.string() + " cannot be read to its end");
    }
}

void Archive::finish()
{
    check(library().write_close(archive_.get()));
}

} // namespace velto
