// Logins, the catalog's queries, SQL outside branches, and the taking up of branches at the start.
#include "disk/disk_store.h"

#include "disk/passwords.h"
#include "disk/sql_text.h"
#include "dtm/dtm_protocol.h"

namespace zdb {
namespace {

constexpr const char *server_stops = "The server stops, or the session has ended.";

}  // namespace

DiskStore::DiskStore(const std::string &folder)
    : lock_(folder),
      catalog_(catalog_path(folder)),
      data_(data_path(folder)),
      lister_([] { return std::vector<BranchRow>(); }),
      queries_(catalog_path(folder), lister_) {
  put_on_disk();
  const int64_t mark = data_.mark();
  if (catalog_.is_old()) {
    require_settled(mark);
    catalog_.bring_up();
  }
  catalog_.give_ids_above(mark);
  for (const JournalRow &row : catalog_.journal()) {
    take_up(row, mark);
  }
}

DiskStore::~DiskStore() {
  kept_.clear();
  try {
    catalog_.settle();
    data_.settle();
  } catch (const std::exception &) {
    return;  // only a convenience for the next start
  }
}

// What the logs hold need not be on the disk: a process that ended at a failed sync has left it in memory, where later
// syncs pass it over. Nobody may go by it before it is written into the files, and those are synced.
void DiskStore::put_on_disk() {
  catalog_.settle();
  finish_writing();
  data_.settle();
}

// Before anybody reads the data: what the server was putting into them when it went away is put in again.
void DiskStore::finish_writing() {
  for (const JournalRow &row : catalog_.journal()) {
    if (!row.writing) {
      continue;
    }
    try {
      data_.put_in_again(decoded_images(catalog_.pages_of(row.id)));
    } catch (const std::exception &error) {
      throw std::runtime_error("the commit of branch '" + row.branch + "' was broken off and cannot be finished (" +
                               error.what() + "). Put the folder's backup in its place");
    }
    if (row.state == DTM_STATE_PREPARED) {
      catalog_.remove(row.id);
    } else {
      catalog_.clear_pages(row.id);
    }
  }
}

// The first version kept what cannot be made again with certainty.
void DiskStore::require_settled(int64_t mark) {
  for (const JournalRow &row : catalog_.journal()) {
    if (row.has_pages && row.id != mark && row.state != DTM_STATE_HEUR_ROLLEDBACK) {
      throw std::runtime_error("branch '" + row.branch +
                               "' was prepared by an older zdbd, which alone can settle it. Start that one, commit or "
                               "roll back what is prepared, stop it, and start this one again");
    }
  }
}

// Goes on where the branch stood when the server went away.
void DiskStore::take_up(const JournalRow &row, int64_t mark) {
  const bool committed = row.id == mark;
  if (row.state == DTM_STATE_PREPARED && committed) {
    catalog_.remove_later(row.id);
    return;
  }
  const bool has_pages = row.has_pages && !committed && row.state != DTM_STATE_HEUR_ROLLEDBACK;
  if (row.has_pages && !has_pages) {
    catalog_.clear_pages_later(row.id);
  }
  const auto work = std::make_shared<DiskWork>(parts(), row.branch);
  work->take_up(row.id, has_pages);
  if (row.state == DTM_STATE_HEUR_COMMITTED && has_pages) {
    work->settle(true);
  }
  kept_.push_back({{row.branch, row.state, row.since, false, false}, work});
}

DiskParts DiskStore::parts() {
  return {catalog_, data_, at_work_, [this](const std::string &sql) { return queries_.run(sql, stopping_); }};
}

// ---- Logins ---------------------------------------------------------------------------------------------------------

void DiskStore::add_user(const std::string &user, const std::string &password, bool dtm_role) {
  catalog_.set_login(user, {hash_password(password), dtm_role});
}

// Takes as long for a user that does not exist.
bool DiskStore::admits(const std::string &user, const std::string &password) {
  const std::optional<Catalog::Login> login = catalog_.login(user);
  const std::string &nobody = nobodys_hash();  // made at the first login, known or not
  return is_password(password, login ? login->hash : nobody) && login.has_value();
}

bool DiskStore::has_dtm_role(const std::string &user) {
  const std::optional<Catalog::Login> login = catalog_.login(user);
  return login && login->dtm_role;
}

// ---- Work and SQL ---------------------------------------------------------------------------------------------------

std::shared_ptr<Work> DiskStore::make_work(const std::string &branch) {
  return std::make_shared<DiskWork>(parts(), branch);
}

SqlOutcome DiskStore::run(const std::string &sql, bool branch_lost, SqlCounts &counts, const std::atomic<bool> &gone) {
  const CatalogText text = catalog_text(sql);
  if (text.names_catalog) {
    return queries_.run(text.sql, gone);
  }
  if (branch_lost) {
    return sql_failure(message_branch_lost, "The session's branch was rolled back. End it before other work.");
  }
  return run_alone(text.sql, counts, gone);
}

void DiskStore::stop() {
  stopping_ = true;
  data_.write_lock().wake();
}

// Each statement commits by itself, as SQLite does it; one that changes something waits its turn.
SqlOutcome DiskStore::run_alone(const std::string &sql, SqlCounts &counts, const std::atomic<bool> &gone) {
  DataTurn turn(data_);
  WriteHold hold(data_.write_lock());
  TimeLimit time;
  const auto before = [&](bool writes) {
    const std::chrono::milliseconds limit(catalog_.setting(lock_timeout_setting).value_or(0));
    const auto answer = writes ? hold.take(limit, gone) : WriteLock::Answer::taken;
    if (answer == WriteLock::Answer::given_up) {
      throw StoreError(message_shut_down, server_stops);
    }
    if (answer == WriteLock::Answer::timed_out) {
      throw StoreError(message_lock_timeout, "A transaction holds the server's data for too long. Try again later.");
    }
    time.begin(catalog_.setting(statement_timeout_setting).value_or(0));
  };
  const auto after = [&] {
    time.end();
    hold.release();
  };
  const auto stop = [&]() -> const char * {
    if (stopping_ || gone) {
      return server_stops;
    }
    return data_.must_stop() ? "The statement was interrupted, since a commit waits for it." : time.reason();
  };
  return turn.connection().run(Place::alone, sql, {before, after, stop, &counts});
}

}  // namespace zdb
