#include "HomeStore.h"

#include "base/Text.h"
#include "common/Exit.h"
#include "server/HomeFiles.h"
#include "store/Statements.h"

namespace velto {

void CommandJournal::ReportError(
    std::string_view /*routine*/, const qz::EngineError& error, const std::string& /*address*/)
{
    failure_ = failure_.value_or(error.description());
}

void CommandJournal::raise_error(
    std::string_view routine, const qz::EngineError& error, const std::string& address)
{
    ReportError(routine, error, address);
}

void CommandJournal::require_success() const
{
    if (failure_) {
        throw CommandError(Exit::Failed, qz::printable(*failure_));
    }
}

HomeSettings::HomeSettings(const Home& home)
    : machine(home.folder()), ini(home.settings_file()),
      key(home.folder() / qz::server::kKeyFile, machine.crypto()), cipher(machine.crypto(), key),
      settings(ini, cipher, journal), deployment(ini)
{
}

HomeStore::HomeStore(const Home& home)
    : HomeSettings(home), parser(machine.crypto()),
      database(
          [this] {
              return machine.create_connection({deployment.provider(), deployment.durability(),
                  machine.home() / qz::server::kDatabaseFile, qz::store::all_statements()});
          },
          settings, deployment, journal),
      log(database, settings, parser, journal)
{
    database.BuildConnectionString();
    journal.require_success();
}

void HomeStore::commit()
{
    database.turn_ended();
    journal.require_success();
}

HomeDirectory::HomeDirectory(const Home& home) : HomeStore(home)
{
    directory.SetUsers();
    directory.SetRooms();
    journal.require_success();
}

} // namespace velto
