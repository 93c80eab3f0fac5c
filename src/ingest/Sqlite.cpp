#include "Sqlite.h"

#include <utility>

#include "ingest/ImportedHealthDatabase.h"

namespace velk::ingest::sqlite {

Statement::Statement(sqlite3* connection, std::string_view sql) {
  if (sqlite3_prepare_v2(connection, sql.data(), static_cast<int>(sql.size()), &statement_,
                         nullptr) != SQLITE_OK) {
    sqlite3_finalize(statement_);
    statement_ = nullptr;
  }
}

Statement::~Statement() {
  sqlite3_finalize(statement_);
}

Statement::Statement(Statement&& other) noexcept
    : statement_(std::exchange(other.statement_, nullptr)) {}

Statement& Statement::operator=(Statement&& other) noexcept {
  if (this != &other) {
    sqlite3_finalize(statement_);
    statement_ = std::exchange(other.statement_, nullptr);
  }
  return *this;
}

std::string Statement::columnText(int column) const {
  const auto* text = sqlite3_column_text(statement_, column);
  const int size = sqlite3_column_bytes(statement_, column);
  if (text == nullptr || size <= 0) {
    return {};
  }
  return std::string(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
}

std::string_view Statement::columnBlob(int column) const {
  const void* data = sqlite3_column_blob(statement_, column);
  const int size = sqlite3_column_bytes(statement_, column);
  if (data == nullptr || size <= 0) {
    return {};
  }
  return std::string_view(static_cast<const char*>(data), static_cast<std::size_t>(size));
}

Result<Connection> Connection::open(const std::filesystem::path& path, Mode mode) {
  sqlite3* connection = nullptr;
  const int flags =
      (mode == Mode::readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) |
      SQLITE_OPEN_NOMUTEX;
  const int status = sqlite3_open_v2(path.c_str(), &connection, flags, nullptr);
  if (status != SQLITE_OK) {
    std::string why = connection != nullptr ? sqlite3_errmsg(connection) : sqlite3_errstr(status);
    sqlite3_close_v2(connection);
    return Result<Connection>::failure(
        databaseError(DatabaseErrorCode::cannotOpen, path.string() + ": cannot open: " + why));
  }
  return Result<Connection>::success(Connection(connection));
}

Connection::~Connection() {
  sqlite3_close_v2(connection_);
}

Connection::Connection(Connection&& other) noexcept
    : connection_(std::exchange(other.connection_, nullptr)) {}

Connection& Connection::operator=(Connection&& other) noexcept {
  if (this != &other) {
    sqlite3_close_v2(connection_);
    connection_ = std::exchange(other.connection_, nullptr);
  }
  return *this;
}

std::string Connection::lastMessage() const {
  return connection_ != nullptr ? sqlite3_errmsg(connection_) : "no connection";
}

Status Connection::execute(std::string_view sql) {
  const std::string text(sql);
  if (sqlite3_exec(connection_, text.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    return Status::failure(
        databaseError(DatabaseErrorCode::sqliteFailed, lastMessage() + " (in: " + text + ")"));
  }
  return Status::success();
}

Result<Statement> Connection::prepare(std::string_view sql) {
  Statement statement(connection_, sql);
  if (!statement.prepared()) {
    return Result<Statement>::failure(databaseError(
        DatabaseErrorCode::sqliteFailed, lastMessage() + " (in: " + std::string(sql) + ")"));
  }
  return Result<Statement>::success(std::move(statement));
}

bool Connection::close() {
  const bool closed = sqlite3_close(connection_) == SQLITE_OK;
  if (closed) {
    connection_ = nullptr;
  }
  return closed;
}

}  // namespace velk::ingest::sqlite
