// What another program does to the database file, with no more than the plain library.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include <sqlite3.h>

namespace qz::test {

class OtherProgram {
public:
    explicit OtherProgram(const std::filesystem::path& file) { sqlite3_open(file.c_str(), &handle_); }
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;
    ~OtherProgram() { sqlite3_close(handle_); }
    /// @return the first column of all rows; null gives "null".
    std::vector<std::string> run(const std::string& sql)
    {
        std::vector<std::string> values;
        const auto take = [](void* texts, int /*count*/, char** row, char** /*names*/) {
            static_cast<std::vector<std::string>*>(texts)->emplace_back(row[0] == nullptr ? "null" : row[0]);
            return 0;
        };
        char* message = nullptr;
        EXPECT_EQ(sqlite3_exec(handle_, sql.c_str(), take, &values, &message), SQLITE_OK) << sql << message;
        sqlite3_free(message);
        return values;
    }

private:
    sqlite3* handle_ = nullptr;
};

} // namespace qz::test
