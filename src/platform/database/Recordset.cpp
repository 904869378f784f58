#include "platform/database/Recordset.h"

#include "base/EngineError.h"

#include <algorithm>

namespace qz::platform {

namespace {

constexpr std::int32_t kObjectClosed = 3704; // the same number as for a connection, with another source

EngineError no_current_row()
{
    return database_error(DatabaseError::NoCurrentRow,
        "Either BOF or EOF is True, or the current record has been deleted. "
        "Requested operation requires a current record.");
}

} // namespace

void Recordset::Open(const std::string& sql)
{
    Close();
    require_connection();
    sql_ = sql;
    open_ = true;
}

void Recordset::Close()
{
    open_ = false;
    fetched_ = false;
    described_ = false;
    result_ = {};
    row_ = 0;
    row_deleted_ = false;
    abandon_edit();
}

std::int32_t Recordset::RecordCount()
{
    fetch();
    return static_cast<std::int32_t>(result_.rows.size() - (row_deleted_ ? 1U : 0U));
}

bool Recordset::AtEnd()
{
    fetch();
    return row_ >= result_.rows.size();
}

void Recordset::MoveFirst()
{
    leave_row();
    if (result_.rows.empty()) {
        throw no_current_row();
    }
    row_ = 0;
}

void Recordset::MoveNext()
{
    const bool on_deleted = row_deleted_;
    leave_row();
    if (on_deleted) { // the next row has moved up to the cursor
        return;
    }
    if (row_ >= result_.rows.size()) {
        throw no_current_row();
    }
    ++row_;
}

const Value& Recordset::Fields(std::string_view name)
{
    const auto& row = current_row();
    return row[column(name)];
}

void Recordset::SetField(std::string_view name, Value value)
{
    const auto& row = current_row();
    editable_table();
    const auto position = column(name);
    if (editing_ == Editing::None) {
        edited_row_ = row;
        editing_ = Editing::Current;
    }
    const auto& field = result_.columns[position];
    edited_row_[position] = value;
    const auto set = std::find(change_.columns.begin(), change_.columns.end(), field);
    if (set != change_.columns.end()) {
        change_.values[static_cast<std::size_t>(set - change_.columns.begin())] = std::move(value);
        return;
    }
    change_.columns.push_back(field);
    change_.values.push_back(std::move(value));
}

void Recordset::AddNew()
{
    Update();
    drop_deleted_row();
    if (!fetched_ && !described_) {
        result_ = connection_.describe(sql_);
        described_ = true;
    }
    editable_table();
    edited_row_.assign(result_.columns.size(), Value{});
    editing_ = Editing::New;
}

void Recordset::Update()
{
    require_open();
    require_connection();
    // A change that the database refuses is given up, or the next move would try it again.
    const auto editing = std::exchange(editing_, Editing::None);
    const auto change = std::exchange(change_, {});
    auto edited = std::exchange(edited_row_, {});
    if (editing == Editing::Current) {
        connection_.update_row(editable_table(), result_.keys[row_], change);
        result_.rows[row_] = std::move(edited);
    } else if (editing == Editing::New) {
        const auto& table = editable_table();
        if (!fetched_) { // the first fetch finds it in the database
            connection_.add_row(table, change);
            return;
        }
        show_added(std::move(edited), connection_.insert_row(table, change));
    }
}

void Recordset::Delete()
{
    abandon_edit();
    current_row();
    const auto& table = editable_table(); // before the keys, which rows without a table do not have
    connection_.delete_row(table, result_.keys[row_]);
    row_deleted_ = true;
}

void Recordset::require_open() const
{
    if (!open_) {
        throw EngineError(
            kObjectClosed, kRecordsetSource, "Operation is not allowed when the object is closed.");
    }
}

void Recordset::require_connection() const
{
    if (connection_.State() == ConnectionState::Closed) {
        throw database_error(DatabaseError::NoConnection,
            "The connection cannot be used to perform this operation. "
            "It is either closed or invalid in this context.");
    }
}

void Recordset::fetch()
{
    require_open();
    if (!fetched_) {
        require_connection();
        result_ = connection_.query(sql_);
        fetched_ = true;
        row_ = 0;
    }
}

std::size_t Recordset::column(std::string_view name)
{
    return finder_.find(result_.columns, name);
}

const std::vector<Value>& Recordset::current_row()
{
    if (editing_ != Editing::None) {
        return edited_row_;
    }
    fetch();
    if (row_ >= result_.rows.size() || row_deleted_) {
        throw no_current_row();
    }
    return result_.rows[row_];
}

const Table& Recordset::editable_table() const
{
    if (result_.table == nullptr) {
        throw database_error(DatabaseError::ReadOnlyRecordset,
            "Current Recordset does not support updating. This may be a limitation of the provider, "
            "or of the selected locktype.");
    }
    return *result_.table;
}

void Recordset::leave_row()
{
    fetch();
    Update();
    drop_deleted_row();
}

void Recordset::drop_deleted_row()
{
    if (row_deleted_) {
        const auto offset = static_cast<std::ptrdiff_t>(row_);
        result_.rows.erase(result_.rows.begin() + offset);
        result_.keys.erase(result_.keys.begin() + offset);
        row_deleted_ = false;
    }
}

void Recordset::show_added(std::vector<Value> row, std::int64_t key)
{
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (same_column_name(result_.columns[i], result_.table->key)) {
            row[i] = key;
        }
    }
    result_.rows.push_back(std::move(row));
    result_.keys.push_back(key);
    row_ = result_.rows.size() - 1;
}

void Recordset::abandon_edit()
{
    editing_ = Editing::None;
    change_ = {};
    edited_row_.clear();
}

} // namespace qz::platform
