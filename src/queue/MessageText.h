// The text of a message: held once, however many recipients it has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace qz::queue {

/// Copies share the text, which never changes, and what is known about where it is kept.
class MessageText {
public:
    MessageText() = default;
    MessageText(std::string text) : shared_(std::make_shared<Shared>(std::move(text))) { }
    MessageText(const char* text) : MessageText(std::string(text)) { }

    const std::string& str() const { return shared_ ? shared_->text : kEmpty; }
    std::size_t size() const { return str().size(); }
    bool has_copies() const { return shared_.use_count() > 1; }

    /// The text has several recipients: with DurableQueue it is stored in a row of its own, to which the rows
    /// of `queue` refer.
    void set_several_recipients() const { shared().several_recipients = true; }
    bool has_several_recipients() const { return shared_ && shared_->several_recipients; }
    /// Its key in `queuetext`; 0 while it has no row there.
    std::int64_t row() const { return shared_ ? shared_->row : 0; }
    void set_row(std::int64_t row) const { shared().row = row; }

    /// The number of entries of the queue that have this text; the queue's table counts them.
    /// @return the number after the change.
    std::size_t add_entry() const { return ++shared().entries; }
    std::size_t remove_entry() const { return --shared().entries; }
    std::size_t entries() const { return shared_ ? shared_->entries : 0; }

private:
    struct Shared {
        explicit Shared(std::string its_text) : text(std::move(its_text)) { }
        const std::string text;
        std::int64_t row = 0;
        std::size_t entries = 0;
        bool several_recipients = false;
    };
    Shared& shared() const
    {
        if (!shared_) {
            shared_ = std::make_shared<Shared>(std::string());
        }
        return *shared_;
    }

    static inline const std::string kEmpty;

    mutable std::shared_ptr<Shared> shared_;
};

} // namespace qz::queue
