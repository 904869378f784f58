#include "config/KeyFile.h"

#include "base/EngineError.h"
#include "base/Text.h"

#include <algorithm>
#include <string>
#include <system_error>

namespace qz::config {

namespace fs = std::filesystem;

const helpers::Crypto::Key& KeyFile::key()
{
    if (!key_ && !read()) {
        make();
    }
    return *key_;
}

const helpers::Crypto::Key& KeyFile::existing_key()
{
    if (!key_ && !read()) {
        throw runtime_error(RuntimeError::FileAccess, path().string() + ": the key file is missing");
    }
    return *key_;
}

/// @return false when there is no file.
bool KeyFile::read()
{
    const auto content = file_.read();
    if (!content) {
        return false;
    }
    const auto bytes = crypto_.from_base64url(single_line(content->bytes));
    helpers::Crypto::Key key{};
    if (!bytes || bytes->size() != key.size()) {
        throw runtime_error(RuntimeError::FileAccess,
            path().string() + ": this is not a key file, or it is damaged; restore it from a backup");
    }
    std::copy(bytes->begin(), bytes->end(), key.begin());
    key_ = key;
    return true;
}

void KeyFile::make()
{
    before_making_();
    const auto key = crypto_.random_key();
    const std::string line = crypto_.to_base64url(std::string(key.begin(), key.end())) + "\n";
    file_.create(line, fs::perms::owner_read | fs::perms::owner_write);
    // Read back in either case: where another process was faster, its key is the one.
    existing_key();
}

bool KeyFile::is_readable_by_others() const
{
    std::error_code ignored;
    const auto permissions = fs::status(path(), ignored).permissions();
    return permissions != fs::perms::unknown
        && (permissions & (fs::perms::group_read | fs::perms::others_read)) != fs::perms::none;
}

} // namespace qz::config
