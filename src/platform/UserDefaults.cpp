#include "platform/UserDefaults.h"
#include "velk/DebugOutput.h"

#include <sqlite3.h>

#include <cstdio>
#include <system_error>
#include <utility>

namespace velk::platform {

// One row per key. `type` says how to read `value`: "date" (seconds since the reference moment,
// stored as a real number) or "string" (text). Readers asking for one type ignore the other.
namespace {

constexpr const char* kMemoryPath = ":memory:";
constexpr int kBusyTimeoutMilliseconds = 5000;

constexpr const char* kDateType = "date";
constexpr const char* kStringType = "string";

constexpr const char* kCreateTable =
    "CREATE TABLE IF NOT EXISTS defaults ("
    "  key TEXT PRIMARY KEY NOT NULL,"
    "  type TEXT NOT NULL,"
    "  value)";
constexpr const char* kSelect = "SELECT type, value FROM defaults WHERE key = ?1";
constexpr const char* kUpsert =
    "INSERT INTO defaults (key, type, value) VALUES (?1, ?2, ?3) "
    "ON CONFLICT (key) DO UPDATE SET type = excluded.type, value = excluded.value";
constexpr const char* kDelete = "DELETE FROM defaults WHERE key = ?1";

// Resets a kept statement when the call that steps it ends, however it ends: a statement left
// mid-step would hold its read transaction open, and this connection would go on seeing the file as
// it was then, blind to other processes' writes, and hold back the folding of the journal.
class StatementUse {
 public:
  explicit StatementUse(sqlite3_stmt* statement) : statement_(statement) {}
  ~StatementUse() { sqlite3_reset(statement_); }
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;

 private:
  sqlite3_stmt* statement_;
};

void bindText(sqlite3_stmt* statement, int index, const std::string& text) {
  sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

Error openError(const std::string& path, int code, const std::string& why) {
  return Error(UserDefaults::kErrorDomain, code,
               "cannot open the user defaults at " + path + ": " + why);
}

// Makes the folder of a store file; an error when the path is a folder itself or its folder
// cannot be made.
std::optional<Error> prepareFolder(const std::filesystem::path& path) {
  const std::string name = path.string();
  if (std::error_code ignored; std::filesystem::is_directory(path, ignored)) {
    return openError(name, SQLITE_CANTOPEN, "it is a directory; give a file");
  }
  if (path.has_parent_path()) {
    std::error_code failure;
    std::filesystem::create_directories(path.parent_path(), failure);
    if (failure) {
      return openError(name, SQLITE_CANTOPEN, failure.message());
    }
  }
  return std::nullopt;
}

}  // namespace

struct UserDefaults::Stored {
  std::string type;
  int storage = SQLITE_NULL;  // SQLite's storage class of `value`
  double number = 0;
  std::string text;
};

Result<std::shared_ptr<UserDefaults>> UserDefaults::open(const std::filesystem::path& path) {
  const std::string name = path.string();
  using Opened = Result<std::shared_ptr<UserDefaults>>;
  if (name != kMemoryPath) {
    if (auto refused = prepareFolder(path)) {
      return Opened::failure(*refused);
    }
  }

  sqlite3* connection = nullptr;
  const int opened = sqlite3_open_v2(name.c_str(), &connection,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  // From here on the instance owns the connection and closes it, also when setting up fails.
  std::shared_ptr<UserDefaults> defaults(new UserDefaults(connection, name));
  if (opened != SQLITE_OK) {
    const std::string why = connection != nullptr ? sqlite3_errmsg(connection) : "out of memory";
    return Opened::failure(openError(name, opened, why));
  }
  sqlite3_busy_timeout(connection, kBusyTimeoutMilliseconds);
  // SQLite quietly opens a write-protected file read-only; a store that cannot keep what it is
  // given is no store, so that is an error here rather than a lost write later.
  if (sqlite3_db_readonly(connection, "main") == 1) {
    return Opened::failure(openError(name, SQLITE_READONLY, "the file is not writable"));
  }
  // The first read of the file is where a file that is not a database shows itself. A database
  // made by something else may have its own table of this name; it is left as it was found.
  for (const char* sql : {"SELECT count(*) FROM sqlite_schema", kCreateTable}) {
    const int status = sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
    if (status != SQLITE_OK) {
      return Opened::failure(openError(name, status, sqlite3_errmsg(connection)));
    }
  }
  // The statements are prepared once and kept. A table of the same name with other columns fails
  // here.
  for (const auto& [sql, statement] :
       {std::pair{kSelect, &defaults->select_}, std::pair{kUpsert, &defaults->upsert_},
        std::pair{kDelete, &defaults->delete_}}) {
    const int status =
        sqlite3_prepare_v3(connection, sql, -1, SQLITE_PREPARE_PERSISTENT, statement, nullptr);
    if (status != SQLITE_OK) {
      return Opened::failure(openError(name, status, sqlite3_errmsg(connection)));
    }
  }
  // WAL lets readers in other processes go on while one writes. With synchronous = NORMAL a commit
  // is in the journal file, where a crash of the process cannot take it, but reaches the disk only
  // when the journal is folded into the file: the platform's promise, without a flush per value.
  if (const int status =
          sqlite3_exec(connection, "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL",
                       nullptr, nullptr, nullptr);
      status != SQLITE_OK) {
    return Opened::failure(openError(name, status, sqlite3_errmsg(connection)));
  }
  return Opened::success(std::move(defaults));
}

std::shared_ptr<UserDefaults> UserDefaults::inMemory() {
  auto opened = open(kMemoryPath);
  if (!opened.isSuccess()) {
    fatalError(opened.error().message());
  }
  return std::move(opened).value();
}

UserDefaults::UserDefaults(sqlite3* connection, std::string path)
    : connection_(connection), path_(std::move(path)) {}

UserDefaults::~UserDefaults() {
  for (sqlite3_stmt* statement : {select_, upsert_, delete_}) {
    sqlite3_finalize(statement);
  }
  // With no statement left the connection closes at once; the last one over the file folds the
  // journal into it and flushes it to the disk.
  sqlite3_close_v2(connection_);
}

std::optional<UserDefaults::Stored> UserDefaults::read(const std::string& key) const {
  std::lock_guard lock(mutex_);
  const StatementUse use(select_);
  bindText(select_, 1, key);
  const int status = sqlite3_step(select_);
  if (status == SQLITE_DONE) {
    return std::nullopt;
  }
  if (status != SQLITE_ROW) {
    std::fprintf(stderr, "velk: user defaults at %s could not read \"%s\": %s\n", path_.c_str(),
                 key.c_str(), sqlite3_errmsg(connection_));
    return std::nullopt;
  }
  Stored stored;
  const auto* type = sqlite3_column_text(select_, 0);
  stored.type = type != nullptr ? reinterpret_cast<const char*>(type) : "";
  stored.storage = sqlite3_column_type(select_, 1);
  if (stored.storage == SQLITE_FLOAT || stored.storage == SQLITE_INTEGER) {
    stored.number = sqlite3_column_double(select_, 1);
  } else if (stored.storage == SQLITE_TEXT) {
    const auto* text = sqlite3_column_text(select_, 1);
    const int size = sqlite3_column_bytes(select_, 1);
    stored.text.assign(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
  }
  return stored;
}

std::optional<Date> UserDefaults::date(const std::string& key) const {
  const auto stored = read(key);
  if (!stored || stored->type != kDateType ||
      (stored->storage != SQLITE_FLOAT && stored->storage != SQLITE_INTEGER)) {
    return std::nullopt;
  }
  return Date::fromReferenceSeconds(stored->number);
}

std::optional<std::string> UserDefaults::string(const std::string& key) const {
  auto stored = read(key);
  if (!stored || stored->type != kStringType || stored->storage != SQLITE_TEXT) {
    return std::nullopt;
  }
  return std::move(stored->text);
}

bool UserDefaults::contains(const std::string& key) const {
  return read(key).has_value();
}

void UserDefaults::write(const char* action, const std::string& key, sqlite3_stmt* statement,
                         const std::function<void(sqlite3_stmt*)>& bind) {
  std::lock_guard lock(mutex_);
  const StatementUse use(statement);
  bind(statement);
  if (sqlite3_step(statement) != SQLITE_DONE) {
    std::fprintf(stderr, "velk: user defaults at %s could not %s \"%s\": %s\n", path_.c_str(),
                 action, key.c_str(), sqlite3_errmsg(connection_));
  }
}

void UserDefaults::setDate(const std::string& key, Date value) {
  write("store", key, upsert_, [&](sqlite3_stmt* statement) {
    bindText(statement, 1, key);
    bindText(statement, 2, kDateType);
    sqlite3_bind_double(statement, 3, value.timeIntervalSinceReferenceDate());
  });
}

void UserDefaults::setString(const std::string& key, const std::string& value) {
  write("store", key, upsert_, [&](sqlite3_stmt* statement) {
    bindText(statement, 1, key);
    bindText(statement, 2, kStringType);
    bindText(statement, 3, value);
  });
}

void UserDefaults::remove(const std::string& key) {
  write("remove", key, delete_, [&](sqlite3_stmt* statement) { bindText(statement, 1, key); });
}

}  // namespace velk::platform
