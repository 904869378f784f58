// A chat in plain lines, for pipes, files and terminals that cannot do more.
#pragma once

#include "Screen.h"

#include <string>
#include <vector>

namespace velto {

class PlainScreen final : public Screen {
public:
    /// Longest line that is taken; the rest of a longer one is dropped.
    static constexpr std::size_t kMostBytes = std::size_t{256} * 1024;

    void print(const Line& line) override;
    void set_prompt(const std::string& /*prompt*/) override { }
    std::vector<std::string> read() override;
    bool is_at_end() const override { return at_end_; }

private:
    std::string read_; // of the line that is not complete
    bool at_end_ = false;
};

} // namespace velto
