// A server's catalog database: configuration, logins, and the journal of branches that are prepared or have
// a heuristic outcome.
//
// Configuration and logins are few and read with every request, so they are kept in memory too; nobody else writes to
// the file. All functions may be called from any thread, and throw StoreError when the file cannot be written.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "disk/sqlite.h"
#include "store/store.h"

namespace zdb {

// A row of the journal.
struct JournalRow {
  int64_t id = 0;  // grows; never used again
  std::string branch;
  int32_t state = 0;
  Clock::time_point since;
  bool has_pages = false;  // it has changes, which were not committed, for all that the journal knows
  bool writing = false;    // its pages were being put into the data: the data may be half written
};

class Catalog {
 public:
  // Makes the tables of a new catalog.
  static void create(const std::string &file);
  // Throws std::runtime_error when the catalog is of a version that this one does not know.
  explicit Catalog(const std::string &file);
  // Brings a catalog of an older version up to this one's. The journal must hold no changes of the older form.
  bool is_old() const { return old_; }
  void bring_up();

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

  // In the order of preparation.
  std::vector<JournalRow> journal();
  // The encoded page images of the branch with the id.
  std::string pages_of(int64_t id);
  // Ids that are higher than the given one, and than all that there were.
  void give_ids_above(int64_t id);
  int64_t new_id();
  // Enters a prepared branch; it is on the disk when this returns.
  void enter(int64_t id, const std::string &branch, const std::string &pages);
  // From now on, also after a crash, only putting in the branch's pages makes the data whole.
  void begin_writing(int64_t id);
  // The branch stays, with its outcome; what begin_writing has said is over.
  void clear_pages(int64_t id);
  void set_state(int64_t id, int32_t state);
  void remove(int64_t id);
  // Has the row removed together with the next change of the catalog, for a branch whose commit shows in the data
  // anyway; until then it may be met again at the next start.
  void remove_later(int64_t id);
  // The same for the pages of a branch that stays, with its outcome.
  void clear_pages_later(int64_t id);
  // Does what was to be done later, and makes the file itself whole.
  void settle();

 private:
  template <typename Action>
  auto write(Action action);
  void clear_leftovers();

  std::mutex mutex_;  // guards what follows up to old_, also while the file is synced
  Database database_;
  struct Leftover {
    int64_t id;
    bool row_goes;
  };
  std::vector<Leftover> leftovers_;
  int64_t last_id_ = 0;
  bool old_ = false;

  mutable std::mutex memory_mutex_;  // guards what follows, which is to be had while the file is synced
  std::map<std::string, Login> logins_;
  std::map<std::string, int64_t> settings_;
};

}  // namespace zdb
