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

HomeSettings::HomeSettings(const Home& home, Access access)
    : machine(home.folder()), ini(home.settings_file(), access),
      key(home.key_file(), machine.crypto(), [&home] { home.require_key(); }), cipher(machine.crypto(), key),
      settings(ini, cipher, journal), deployment(ini)
{
}

HomeStore::HomeStore(const Home& home, Access access)
    : HomeSettings(home, access), parser(machine.crypto()),
      database(
          [this, access] {
              using qz::platform::DatabaseAccess;
              return machine.create_connection({deployment.provider(), deployment.durability(),
                  machine.home() / qz::server::kDatabaseFile, qz::store::all_statements(),
                  access == Access::Read ? DatabaseAccess::Read : DatabaseAccess::ReadWrite});
          },
          settings, deployment, journal),
      log(database, settings, parser, journal)
{
    home.require_key();
    database.BuildConnectionString();
    journal.require_success();
}

void HomeStore::commit()
{
    database.turn_ended();
    journal.require_success();
}

HomeDirectory::HomeDirectory(const Home& home, Access access) : HomeStore(home, access)
{
    directory.SetUsers();
    directory.SetRooms();
    journal.require_success();
}

} // namespace velto
