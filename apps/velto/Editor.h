// The line that is being typed; lines that come meanwhile are printed above it.
#pragma once

#include "Screen.h"

#include <cstdio>
#include <histedit.h>
#include <memory>
#include <string>
#include <vector>

namespace velto {

/// Standard input and output are terminals. One object at a time; the terminal is put back as it was at its
/// end.
class Editor final : public Screen {
public:
    explicit Editor(Complete complete);
    ~Editor() override;

    void print(const Line& line) override;
    void set_prompt(const std::string& prompt) override;
    std::vector<std::string> read() override;
    std::string typed() const override;
    bool is_at_end() const override { return at_end_; }
    bool wants_to_leave() const override { return at_end_; }
    void redraw() override;

private:
    struct Ended {
        void operator()(EditLine* editor) const { el_end(editor); }
        void operator()(History* history) const { history_end(history); }
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    static Editor& self(EditLine* editor);
    static int next_character(EditLine* editor, wchar_t* character);
    static unsigned char end_or_delete(EditLine* editor, int key);
    static unsigned char complete_word(EditLine* editor, int key);
    static unsigned char clear_screen(EditLine* editor, int key);

    void bind_keys();
    void take_line(const std::string& line);
    bool fill(int wait);
    std::string erased() const;
    std::string drawn();
    static void write(const std::string& text);

    Complete complete_;
    Colour colour_;
    std::string prompt_;
    std::string input_; // bytes that were read and not yet edited in
    bool at_end_ = false;
    int cursor_row_ = 0;                        // rows above the cursor that belong to the line
    int last_row_ = 0;                          // of the line
    std::unique_ptr<std::FILE, Ended> nowhere_; // where libedit draws
    std::unique_ptr<History, Ended> history_;
    std::unique_ptr<EditLine, Ended> editor_; // ends before the others
};

} // namespace velto
