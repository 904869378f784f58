// Where a chat is shown and typed: a terminal with a line to edit, or plain lines.
#pragma once

#include "Line.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

class Screen {
public:
    /// @return the texts with which the last word of the line could go on.
    using Complete = std::function<std::vector<std::string>(std::string_view line)>;

    /// The terminal of this process; when standard input or output is none, plain lines.
    static std::unique_ptr<Screen> of_process(Complete complete);
    virtual ~Screen() = default;
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /// Prints above the line that is being typed, which stays as it is.
    virtual void print(const Line& line) = 0;
    /// What stands before the line that is being typed.
    virtual void set_prompt(const std::string& prompt) = 0;
    /// To be called when standard input is readable.
    /// @return the lines that were completed.
    virtual std::vector<std::string> read() = 0;
    /// The line as it stands now.
    virtual std::string typed() const { return {}; }
    /// Nothing more will be typed.
    virtual bool is_at_end() const = 0;
    /// The user wants to leave at once.
    virtual bool wants_to_leave() const { return false; }
    /// The terminal has another size, or was used by others meanwhile.
    virtual void redraw() { }

protected:
    Screen() = default;
};

} // namespace velto
