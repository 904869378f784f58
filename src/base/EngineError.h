// Failures below the error border, with the numbers and sources that the Error event reports.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace qz {

/// A failure: number, source and description as they reach the host through the Error event.
class EngineError : public std::exception {
public:
    EngineError(std::int32_t number, std::string source, std::string description)
        : number_(number), source_(std::move(source)), description_(std::move(description))
    {
    }
    std::int32_t number() const { return number_; }
    const std::string& source() const { return source_; }
    const std::string& description() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

private:
    std::int32_t number_;
    std::string source_;
    std::string description_;
};

/// Sources of errors.
extern const std::string kEngineSource;     // the engine itself
extern const std::string kProviderSource;   // every database provider
extern const std::string kRecordsetSource;  // a recordset
extern const std::string kConnectionSource; // a connection

/// Numbers of run-time errors of the engine, those of the automation languages that its hosts are written in.
enum class RuntimeError : std::int32_t {
    InvalidProcedureCall = 5,
    Overflow = 6,
    OutOfMemory = 7,
    SubscriptOutOfRange = 9,
    TypeMismatch = 13,
    Internal = 51,
    FileAccess = 75,
    NotAvailable = 445,
};

/// Numbers of database errors, those of OLE DB and ADO.
enum class DatabaseError : std::uint32_t {
    Unspecified = 0x80004005, // link, connect, lock and unspecified failures
    Syntax = 0x80040E14,
    Constraint = 0x80040E2F,
    Timeout = 0x80040E31,
    MissingTable = 0x80040E37,
    RowGone = 0x80040E38,
    LogonFailed = 0x80040E4D,
    ConnectionClosed = 3704, // a statement or an edit on a closed connection
    NoConnection = 3709,     // a query or an insert on a closed connection
    NoCurrentRow = 3021,
    NoSuchField = 3265,
};

constexpr std::int32_t number_of(DatabaseError error)
{
    return static_cast<std::int32_t>(error);
}

/// A run-time error with its usual description and the engine as source.
EngineError runtime_error(RuntimeError error);
EngineError runtime_error(RuntimeError error, std::string description);

/// A database error: the source follows from the number.
EngineError database_error(DatabaseError error, std::string description);

/// The exception being handled, as an EngineError. Call it only inside a catch block.
EngineError current_error();

} // namespace qz
