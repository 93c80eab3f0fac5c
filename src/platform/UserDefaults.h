// The standard user defaults: a small persistent key-value store whose values keep their type.
//
// Values live in an SQLite database at a path that the host chooses. Every instance over one path
// sees the same values, also across processes: reads go to the database each time, nothing is
// cached. Like the platform's defaults, the store never fails visibly once it is open: a value
// that is missing, or of another type than the one asked for, reads as absent, and a write that
// the database refuses is reported on stderr and otherwise dropped.
//
// A set is committed when it returns: a crash of the process loses nothing. Like the platform's
// defaults it is not flushed to the disk at once, but when the journal is next folded into the
// file (every thousand or so writes, and when the last instance closes); a power loss may lose the
// latest values, never the file.
//
// All operations are safe to call from any thread.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "velk/Date.h"
#include "velk/Result.h"

struct sqlite3;
struct sqlite3_stmt;

namespace velk::platform {

class UserDefaults {
 public:
  /// Error domain of open() failures; the code is SQLite's result code.
  static constexpr const char* kErrorDomain = "velk.UserDefaults";

  /// Opens (creating it and its parent folders if needed) the store at `path`. A file that is not
  /// a store of this kind, or one that cannot be written, gives an error and is left untouched.
  static Result<std::shared_ptr<UserDefaults>> open(const std::filesystem::path& path);

  /// A store that lives in memory only. Everyone who holds the returned object shares its values;
  /// a second call makes a separate, empty store.
  static std::shared_ptr<UserDefaults> inMemory();

  ~UserDefaults();
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  /// The value under `key` if it is a date; absent if there is none or it has another type.
  std::optional<Date> date(const std::string& key) const;
  /// The value under `key` if it is a string; absent if there is none or it has another type.
  std::optional<std::string> string(const std::string& key) const;
  /// True when any value is stored under `key`.
  bool contains(const std::string& key) const;

  /// Store a value under `key`, replacing whatever was there, of whatever type.
  void setDate(const std::string& key, Date value);
  void setString(const std::string& key, const std::string& value);
  void remove(const std::string& key);

  /// Where the store lives (":memory:" for an in-memory store).
  const std::string& path() const { return path_; }

 private:
  struct Stored;
  UserDefaults(sqlite3* connection, std::string path);
  std::optional<Stored> read(const std::string& key) const;
  void write(const char* action, const std::string& key, sqlite3_stmt* statement,
             const std::function<void(sqlite3_stmt*)>& bind);

  sqlite3* connection_;
  std::string path_;
  // Prepared once by open(), finalized before the connection closes.
  sqlite3_stmt* select_ = nullptr;
  sqlite3_stmt* upsert_ = nullptr;
  sqlite3_stmt* delete_ = nullptr;
  // One connection per instance, kept open for its life; it and its statements are used by one
  // thread at a time.
  mutable std::mutex mutex_;
};

}  // namespace velk::platform
