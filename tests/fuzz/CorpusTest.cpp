// Runs the corpus of every fuzz target, with what the fuzzers once found, through its function.
#include "FuzzTargets.h" // made by CMake from the list of targets

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class Corpus : public testing::TestWithParam<FuzzTarget> { };

TEST_P(Corpus, Runs)
{
    const auto folder = std::filesystem::path(kFuzzCorpus) / GetParam().name;
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        SCOPED_TRACE(entry.path().string());
        std::ifstream file(entry.path(), std::ios::binary);
        std::ostringstream content;
        content << file.rdbuf();
        const auto bytes = content.str();
        EXPECT_EQ(GetParam().run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
        ++files;
    }
    EXPECT_GT(files, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Fuzz, Corpus, testing::ValuesIn(kFuzzTargets), [](const auto& target) { return target.param.name; });
