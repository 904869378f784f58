// The homes of the measured servers: one is prepared with accounts made in bulk, and every measurement gets a
// copy of it, so that none is influenced by the rows of another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace velto::bench {

class PreparedHome {
public:
    /// Makes a home as `init` does, with accounts and a room, and lets the server encode their passwords.
    /// @param folder  is made, or is empty; it is removed in the end.
    PreparedHome(std::filesystem::path server, std::filesystem::path folder, std::size_t accounts);
    /// Removes everything.
    ~PreparedHome();
    PreparedHome(const PreparedHome&) = delete;
    PreparedHome& operator=(const PreparedHome&) = delete;

    const std::filesystem::path& server() const { return server_; }
    /// Where the measured programs write what they have to say.
    std::string output() const { return (folder_ / "output.log").string(); }

    /// A copy in place of the one before.
    /// @param settings  "Section/Key" and value, in turns.
    /// @return its folder.
    std::filesystem::path copy(std::uint16_t port, const std::vector<std::string>& settings = {}) const;

    /// The home that is copied.
    std::filesystem::path prepared() const { return folder_ / "prepared"; }
    void set_secret(
        const std::filesystem::path& home, const std::string& name, const std::string& value) const;

    /// Lets the tables `messages` and `log` of a copy grow to so many rows.
    static void grow(const std::filesystem::path& home, std::size_t rows);

private:
    void set(const std::filesystem::path& home, const std::string& name, const std::string& value) const;

    std::filesystem::path server_;
    std::filesystem::path folder_;
};

} // namespace velto::bench
