// A thin RAII layer over the SQLite C API for the import database: a connection, prepared
// statements, and errors as values. Internal to velk_ingest.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "velk/Error.h"
#include "velk/Result.h"

namespace velk::ingest::sqlite {

class Statement {
 public:
  Statement() = default;
  Statement(sqlite3* connection, std::string_view sql);
  ~Statement();
  Statement(Statement&& other) noexcept;
  Statement& operator=(Statement&& other) noexcept;
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool prepared() const { return statement_ != nullptr; }
  sqlite3_stmt* get() const { return statement_; }

  void bind(int index, double value) { sqlite3_bind_double(statement_, index, value); }
  void bind(int index, std::int64_t value) { sqlite3_bind_int64(statement_, index, value); }
  void bind(int index, std::string_view text) {
    sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
  }
  void bindBlob(int index, const void* data, std::size_t size) {
    sqlite3_bind_blob64(statement_, index, data, size, SQLITE_STATIC);
  }
  void bindNull(int index) { sqlite3_bind_null(statement_, index); }

  /// SQLITE_ROW, SQLITE_DONE or an error code.
  int step() { return sqlite3_step(statement_); }
  /// Makes the statement ready to run again with new bindings.
  void reset() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }

  double columnDouble(int column) const { return sqlite3_column_double(statement_, column); }
  std::int64_t columnInt(int column) const { return sqlite3_column_int64(statement_, column); }
  bool columnIsNull(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
  }
  std::string columnText(int column) const;
  std::string_view columnBlob(int column) const;

 private:
  sqlite3_stmt* statement_ = nullptr;
};

class Connection {
 public:
  enum class Mode { readOnly, create };

  /// Opens the file; `create` makes it when missing. The connection itself may be used from one
  /// thread at a time (callers lock).
  static Result<Connection> open(const std::filesystem::path& path, Mode mode);

  Connection() = default;
  ~Connection();
  Connection(Connection&& other) noexcept;
  Connection& operator=(Connection&& other) noexcept;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  sqlite3* get() const { return connection_; }

  /// Runs SQL without results; the error message carries SQLite's explanation.
  Status execute(std::string_view sql);
  Result<Statement> prepare(std::string_view sql);
  std::string lastMessage() const;

  /// Closes now (the destructor does it otherwise); the result tells whether SQLite agreed.
  bool close();

 private:
  explicit Connection(sqlite3* connection) : connection_(connection) {}
  sqlite3* connection_ = nullptr;
};

}  // namespace velk::ingest::sqlite
