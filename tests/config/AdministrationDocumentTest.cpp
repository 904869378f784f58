#include "config/SettingTable.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

// The document that administrators read knows every setting, with the words of the table.
TEST(AdministrationDocument, DescribesEverySetting)
{
    std::ostringstream bytes;
    bytes << std::ifstream(VELTO_SOURCE_TREE "/docs/administration.md").rdbuf();
    const auto document = bytes.str();
    for (const auto& row : qz::config::setting_table()) {
        const auto section = document.find("### `[" + std::string(row.section) + "]`");
        const auto line =
            document.find("| `" + std::string(row.key) + "` | " + std::string(row.description), section);
        EXPECT_NE(line, std::string::npos) << row.section << "/" << row.key;
    }
}
