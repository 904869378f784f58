#include "base/EngineError.h"

#include <new>
#include <system_error>

namespace qz {

const std::string kEngineSource = "QZ_Server";
const std::string kProviderSource = "Microsoft OLE DB Provider for ODBC Drivers";
const std::string kRecordsetSource = "ADODB.Recordset";
const std::string kConnectionSource = "ADODB.Connection";

namespace {

const char* description_of(RuntimeError error)
{
    switch (error) {
    case RuntimeError::InvalidProcedureCall:
        return "Invalid procedure call or argument";
    case RuntimeError::Overflow:
        return "Overflow";
    case RuntimeError::OutOfMemory:
        return "Out of memory";
    case RuntimeError::SubscriptOutOfRange:
        return "Subscript out of range";
    case RuntimeError::TypeMismatch:
        return "Type mismatch";
    case RuntimeError::Internal:
        return "Internal error";
    case RuntimeError::FileAccess:
        return "Path/File access error";
    case RuntimeError::NotAvailable:
        return "Object doesn't support this action";
    }
    return "Internal error";
}

const std::string& source_of(DatabaseError error)
{
    switch (error) {
    case DatabaseError::ConnectionClosed:
        return kConnectionSource;
    case DatabaseError::NoConnection:
    case DatabaseError::NoCurrentRow:
    case DatabaseError::NoSuchField:
        return kRecordsetSource;
    default:
        return kProviderSource;
    }
}

} // namespace

EngineError runtime_error(RuntimeError error)
{
    return runtime_error(error, description_of(error));
}

EngineError runtime_error(RuntimeError error, std::string description)
{
    return {static_cast<std::int32_t>(error), kEngineSource, std::move(description)};
}

EngineError database_error(DatabaseError error, std::string description)
{
    return {number_of(error), source_of(error), std::move(description)};
}

EngineError current_error()
{
    try {
        throw;
    } catch (const EngineError& error) {
        return error;
    } catch (const std::bad_alloc&) {
        return runtime_error(RuntimeError::OutOfMemory);
    } catch (const std::system_error& error) {
        return runtime_error(RuntimeError::FileAccess, error.what());
    } catch (const std::exception& error) {
        return runtime_error(RuntimeError::Internal, std::string("Internal error: ") + error.what());
    } catch (...) {
        return runtime_error(RuntimeError::Internal);
    }
}

} // namespace qz
