#include "Archive.h"

#include "common/Exit.h"

#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <fstream>
#include <sys/stat.h>

namespace velto {

namespace {

constexpr std::size_t kBlock = 1 << 20;

struct EntryCloser {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};

} // namespace

void Archive::Closer::operator()(archive* handle) const
{
    archive_write_free(handle);
}

Archive::Archive(int descriptor, std::string name) : name_(std::move(name)), archive_(archive_write_new())
{
    check(archive_write_set_format_pax_restricted(archive_.get())); // plain tar wherever that is enough
    check(archive_write_open_fd(archive_.get(), descriptor));
}

Archive::~Archive() = default;

void Archive::check(std::int64_t code)
{
    if (code < ARCHIVE_OK) {
        const char* why = archive_error_string(archive_.get());
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
    const std::unique_ptr<archive_entry, EntryCloser> entry(archive_entry_new());
    archive_entry_copy_stat(entry.get(), &status);
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_size(entry.get(), size);
    check(archive_write_header(archive_.get(), entry.get()));
}

void Archive::put(std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto written = archive_write_data(archive_.get(), bytes.data(), bytes.size());
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
    check(archive_write_close(archive_.get()));
}

} // namespace velto
