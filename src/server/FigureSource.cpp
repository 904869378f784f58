#include "server/FigureSource.h"

#include "base/Guarded.h"
#include "store/Statements.h"

namespace qz::server {

Figures FigureSource::read()
{
    Figures figures;
    figures.users_on_line = connections_.count_on_line();
    figures.connections = pool_.count_connected();
    figures.queued_messages = static_cast<std::int64_t>(message_queue_.count());
    const auto& counts = message_queue_.counts();
    figures.messages_accepted = counts.accepted;
    figures.messages_confirmed = counts.confirmed;
    figures.messages_expired = counts.expired;
    // A database that is gone is reported by those who need it; the number of accounts is then the last one.
    attempt([&] { read_database(figures); });
    figures.accounts = accounts_;
    ini_.generation(); // a look at the file
    figures.settings_in_force = ini_.is_in_force();
    figures.settings_trouble = ini_.trouble() ? ini_.trouble()->text : std::string();
    return figures;
}

void FigureSource::read_database(Figures& figures)
{
    if (!database_.is_open()) {
        return;
    }
    figures.database = database_.description();
    const auto mark = database_.change_mark(store::tables::kUsers);
    if (mark == counted_mark_) {
        return;
    }
    counted_mark_ = mark; // also when the count fails: it is tried again after the next change
    accounts_ = counters_.users().value_or(static_cast<std::int32_t>(accounts_));
}

} // namespace qz::server
