/*
 * catalog.h - a server's catalog database: configuration, logins, and the journal of branches that are prepared or have
 * a heuristic outcome.
 *
 * Configuration and logins are few and read with every request, so they are kept in memory too; nobody else writes to
 * the file. All functions may be called from any thread, and throw StoreError when the file cannot be written.
 */
#ifndef ZDB_DISK_CATALOG_H
#define ZDB_DISK_CATALOG_H

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "sqlite.h"
#include "store.h"

namespace zdb {

/* A row of the journal. */
struct JournalRow {
  int64_t id = 0; /* grows; never used again */
  std::string branch;
  int32_t state = 0;
  Clock::time_point since;
  std::string changes; /* a changeset; empty when there are none, or none any more */
};

class Catalog {
 public:
  /* Makes the tables of a new catalog. */
  static void create(const std::string &file);
  explicit Catalog(const std::string &file);

  struct Login {
    std::string hash;
    bool dtm_role = false;
  };
  void set_login(const std::string &user, const Login &login);
  bool drop_login(const std::string &user);
  std::optional<Login> login(const std::string &user) const;
  std::vector<User> users() const;

  std::optional<int64_t> setting(const std::string &name) const;
  void set_setting(const std::string &name, std::optional<int64_t> value);

  std::vector<JournalRow> journal();
  /* The changes of the branch with the id. */
  std::string changes_of(int64_t id);
  /* Enters a prepared branch; it is on the disk when this returns its id. */
  int64_t enter(const std::string &branch, const std::string &changes);
  void set_state(int64_t id, int32_t state);
  void remove(int64_t id);
  /*
   * Has the row removed together with the next change of the catalog, for a branch whose commit shows in the data
   * anyway; until then it may be met again at the next start.
   */
  void remove_later(int64_t id);
  /* The same for the changes of a branch that stays, with its outcome. */
  void clear_changes_later(int64_t id);
  /* Does what was to be done later, and makes the file itself whole. */
  void settle();

 private:
  template <typename Action>
  auto write(Action action);
  void clear_leftovers();

  std::mutex mutex_; /* guards the file's connection and the leftovers, also while it is synced */
  Database database_;
  struct Leftover {
    int64_t id;
    bool row_goes;
  };
  std::vector<Leftover> leftovers_;

  mutable std::mutex memory_mutex_; /* guards what follows, which is to be had while the file is synced */
  std::map<std::string, Login> logins_;
  std::map<std::string, int64_t> settings_;
};

}  // namespace zdb

#endif /* ZDB_DISK_CATALOG_H */
