// The registry of open resource managers.
//
// Owns _xal_all_threads. Everything runs under the serialisation mutex; the list's and the records' own
// handles are placeholders. Before a flavour is active there is no identity to look under, so lookups find nothing.
// THREAD_LIST nodes are never freed; an XA_LRMINFO lives from xal_addlrm to xal_freelrm.
// Sections: identities and lists; the registry.
#include <cstdio>
#include <cstring>

#include "common_routines.h"
#include "config/xal_config.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "personality/xal_threads.h"
#include "registry/xal_registry.h"

#include "config/xal_open_string.h"
#include "quillet.h"

namespace {

constexpr int32_t values_text_size = 4 * XAL_FIELD_SIZE + 64;

struct ThreadListHead {
  TL_LINKS links;
  int32_t mutex;
};

// Linked to itself from the start, so that a lookup before xl_init finds nothing. xl_init leaves it alone: when it is
// tried again, there may be threads in it already.
constinit ThreadListHead _xal_all_threads = {{&_xal_all_threads.links, &_xal_all_threads.links}, XAL_PLACEHOLDER};

// ---- Identities and lists -------------------------------------------------------------------------------------------

// The calling thread's identity; false when there is none, which is then an identity without entries.
bool own_identity(XA_THRDID &identity) {
  identity = XA_THRDID{};
  const auto operation = active_personality().get_thrdid;
  return operation != nullptr && operation(&identity) == 1;
}

bool same_identity(const XA_THRDID &left, const XA_THRDID &right) {
  if (left.tid_tag != right.tid_tag || left.tid_len != right.tid_len) {
    return false;
  }
  if (left.tid_len == QLT_UNUSED || left.tid_len == 0) {
    return true;
  }
  return left.tid_len > 0 && left.tid_len <= static_cast<int32_t>(sizeof left.tid_bytes) &&
         memcmp(left.tid_bytes, right.tid_bytes, static_cast<size_t>(left.tid_len)) == 0;
}

THREAD_LIST *find_thread(const XA_THRDID &identity) {
  for (TL_LINKS *at = _xal_all_threads.links.tl_next; at != &_xal_all_threads.links; at = at->tl_next) {
    auto *node = static_cast<THREAD_LIST *>(at);
    if (same_identity(node->tl_thrdid, identity)) {
      return node;
    }
  }
  return nullptr;
}

RMID_LIST *find_rmid(THREAD_LIST *node, int32_t rmid) {
  for (RL_LINKS *at = node->tl_rmids.rl_next; at != &node->tl_rmids; at = at->rl_next) {
    auto *entry = static_cast<RMID_LIST *>(at);
    if (entry->rmid == rmid) {
      return entry;
    }
  }
  return nullptr;
}

XA_LRMINFO *find_lrm(const XA_THRDID &identity, int32_t rmid) {
  THREAD_LIST *node = find_thread(identity);
  const RMID_LIST *entry = node != nullptr ? find_rmid(node, rmid) : nullptr;
  return entry != nullptr ? entry->rl_lrminfo : nullptr;
}

// Holds the list's placeholder mutex.
class ListScope {
 public:
  ListScope() { _trvxadummy_take_mutex(_xal_all_threads.mutex); }
  ~ListScope() { _trvxadummy_release_mutex(_xal_all_threads.mutex); }
  ListScope(const ListScope &) = delete;
  ListScope &operator=(const ListScope &) = delete;
};

// ---- The registry ---------------------------------------------------------------------------------------------------

// The values of an open string, completed by the configuration.
struct LrmValues {
  char name[XAL_FIELD_SIZE];
  char user[XAL_FIELD_SIZE];
  char password[XAL_FIELD_SIZE];
  char key[XAL_FIELD_SIZE];
  char server[XAL_FIELD_SIZE];
};

// Reads the open string and lets the configuration supply the server where it names none. The parser's own result is
// not asked: what is wrong shows in the values, and the lookup of an LRM without a name fails.
bool read_values(const char *open_string, LrmValues &values) {
  xacmn_parse_open_info(open_string, values.name, values.user, values.password, values.key, values.server);
  char *server = values.server[0] == '\0' ? values.server : nullptr;
  return xal_lrm_lookup(values.name, server, nullptr, nullptr, nullptr) == 1;
}

bool same_values(const XA_LRMINFO &lrm, const LrmValues &values) {
  return com_unsignstrcmp(lrm.lrm_name, values.name) == 0 && com_unsignstrcmp(lrm.lrm_server, values.server) == 0 &&
         com_unsignstrcmp(lrm.lrm_user, values.user) == 0 && com_unsignstrcmp(lrm.lrm_password, values.password) == 0 &&
         com_unsignstrcmp(lrm.lrm_key, values.key) == 0;
}

void format_values(char (&out)[values_text_size], const char *name, const char *server, const char *user,
                   const char *key) {
  snprintf(out, sizeof out, "LRM %s, SERVER %s, USER %s, Key %s", name, server, user, key);
}

void report_mismatch(const TraceScope &trace, const XA_LRMINFO &lrm, const LrmValues &values) {
  char opened[values_text_size];
  char wanted[values_text_size];
  format_values(opened, lrm.lrm_name, lrm.lrm_server, lrm.lrm_user, lrm.lrm_key);
  format_values(wanted, values.name, values.server, values.user, values.key);
  trace.error()("Mismatched LRM, opened: %s\n\t\t new: %s\n", opened, wanted);
}

// The record that is there already, its mutex taken, or null when it was opened with other values.
XA_LRMINFO *reuse_record(const TraceScope &trace, XA_LRMINFO *lrm, const LrmValues &values) {
  if (!same_values(*lrm, values)) {
    _trvxadummy_release_mutex(lrm->lrm_mutex);
    report_mismatch(trace, *lrm, values);
    return nullptr;
  }
  trace.verbose()("Found LRM %s, SERVER %s, USER %s, Key %s", lrm->lrm_name, lrm->lrm_server, lrm->lrm_user,
                  lrm->lrm_key);
  return lrm;
}

THREAD_LIST *add_thread(const TraceScope &trace, const XA_THRDID &identity) {
  auto *node = static_cast<THREAD_LIST *>(comn_malloc(sizeof(THREAD_LIST)));
  if (node == nullptr) {
    trace.error()("Unable to allocate space for thread id");
    return nullptr;
  }
  node->tl_rmids.rl_next = &node->tl_rmids;
  node->tl_rmids.rl_prev = &node->tl_rmids;
  node->tl_thrdid = identity;
  TL_LINKS &head = _xal_all_threads.links;
  node->tl_next = head.tl_next;
  node->tl_prev = &head;
  node->tl_next->tl_prev = node;
  head.tl_next = node;
  return node;
}

// A record with the values filled in; null, after the message, when memory is short.
XA_LRMINFO *new_lrm(const TraceScope &trace, const char *open_string, const LrmValues &values) {
  auto *lrm = static_cast<XA_LRMINFO *>(comn_malloc(sizeof(XA_LRMINFO)));
  if (lrm == nullptr) {
    trace.error()("malloc() failed for XA_LRMINFO");
    return nullptr;
  }
  *lrm = XA_LRMINFO{};
  const size_t size = strlen(open_string) + 1;
  lrm->open_info = static_cast<char *>(comn_malloc(size));
  if (lrm->open_info == nullptr) {
    trace.error()("malloc() failed for the open_info");
    comn_free(lrm);
    return nullptr;
  }
  memcpy(lrm->open_info, open_string, size);
  lrm->lrm_next = lrm;
  lrm->lrm_prev = lrm;
  lrm->lrm_conns.xc_next = &lrm->lrm_conns;
  lrm->lrm_conns.xc_prev = &lrm->lrm_conns;
  memcpy(lrm->lrm_name, values.name, sizeof lrm->lrm_name);
  memcpy(lrm->lrm_server, values.server, sizeof lrm->lrm_server);
  memcpy(lrm->lrm_user, values.user, sizeof lrm->lrm_user);
  memcpy(lrm->lrm_password, values.password, sizeof lrm->lrm_password);
  memcpy(lrm->lrm_key, values.key, sizeof lrm->lrm_key);
  return lrm;
}

void link_rmid(THREAD_LIST *node, RMID_LIST *entry) {
  entry->rl_next = node->tl_rmids.rl_next;
  entry->rl_prev = &node->tl_rmids;
  entry->rl_next->rl_prev = entry;
  node->tl_rmids.rl_next = entry;
}

void unlink_rmid(RMID_LIST *entry) {
  entry->rl_prev->rl_next = entry->rl_next;
  entry->rl_next->rl_prev = entry->rl_prev;
  entry->rl_next = entry;
  entry->rl_prev = entry;
}

// Registers a new rmid; the record's mutex is taken. Null, after the message, when memory is short.
XA_LRMINFO *add_record(const TraceScope &trace, THREAD_LIST *node, int32_t rmid, const char *open_string,
                       const LrmValues &values) {
  auto *entry = static_cast<RMID_LIST *>(comn_malloc(sizeof(RMID_LIST)));
  if (entry == nullptr) {
    trace.error()("malloc() failed for RMID_LIST");
    return nullptr;
  }
  *entry = RMID_LIST{};
  entry->rmid = rmid;
  trace.misc()("ADDLRM, Added RMID %d @ 0x%lx", rmid, reinterpret_cast<unsigned long>(entry));
  XA_LRMINFO *lrm = new_lrm(trace, open_string, values);
  if (lrm == nullptr) {
    comn_free(entry);
    return nullptr;
  }
  entry->rl_lrminfo = lrm;
  link_rmid(node, entry);
  lrm->lrm_mutex = _trvxadummy_create_mutex();
  _trvxadummy_take_mutex(lrm->lrm_mutex);
  return lrm;
}

// The record of rmid, found or made, its mutex taken; null on failure.
XA_LRMINFO *find_or_add(const TraceScope &trace, const XA_THRDID &identity, int32_t rmid, const char *open_string,
                        const LrmValues &values) {
  const ListScope scope;
  THREAD_LIST *node = find_thread(identity);
  if (node == nullptr) {
    node = add_thread(trace, identity);
    if (node == nullptr) {
      return nullptr;
    }
  }
  const RMID_LIST *entry = find_rmid(node, rmid);
  if (entry != nullptr) {
    _trvxadummy_take_mutex(entry->rl_lrminfo->lrm_mutex);
    return reuse_record(trace, entry->rl_lrminfo, values);
  }
  XA_LRMINFO *lrm = add_record(trace, node, rmid, open_string, values);
  if (lrm != nullptr) {
    trace.misc()("New LRM %s, SERVER %s, USER %s, Key %s ", lrm->lrm_name, lrm->lrm_server, lrm->lrm_user,
                 lrm->lrm_key);
  }
  return lrm;
}

void free_lrm(XA_LRMINFO *lrm) {
  _trvxadummy_delete_mutex(lrm->lrm_mutex);
  comn_free(lrm->open_info);
  comn_free(lrm);
}

}  // namespace

XA_LRMINFO *xal_peeklrm(int32_t rmid) {
  XA_THRDID identity;
  return own_identity(identity) ? find_lrm(identity, rmid) : nullptr;
}

XA_LRMINFO *xal_getlrm(int32_t rmid) {
  const TraceScope trace("xal_getlrm", TRACE_RM);
  XA_THRDID identity;
  if (!own_identity(identity)) {
    return nullptr;
  }
  const ListScope scope;
  XA_LRMINFO *lrm = find_lrm(identity, rmid);
  if (lrm != nullptr) {
    _trvxadummy_take_mutex(lrm->lrm_mutex);
  }
  return lrm;
}

XA_LRMINFO *xal_addlrm(int32_t rmid, const char *open_string) {
  const TraceScope trace("xal_addlrm", TRACE_RM);
  trace.misc()("ADDLRM, Adding RMID %d", rmid);
  LrmValues values{};
  if (!read_values(open_string, values)) {
    return nullptr;
  }
  XA_THRDID identity;
  if (!own_identity(identity)) {
    return nullptr;
  }
  return find_or_add(trace, identity, rmid, open_string, values);
}

int32_t xal_freelrm(int32_t rmid) {
  const TraceScope trace("xal_freelrm", TRACE_RM);
  XA_THRDID identity;
  const bool identified = own_identity(identity);
  XA_LRMINFO *lrm = nullptr;
  {
    const ListScope scope;
    THREAD_LIST *node = identified ? find_thread(identity) : nullptr;
    if (node == nullptr) {
      trace.error()("No rmid open in thread");
      return trace.cs(0);
    }
    RMID_LIST *entry = find_rmid(node, rmid);
    if (entry == nullptr) {
      trace.misc()("rmid not open in thread");
      return trace.cs(1);
    }
    lrm = entry->rl_lrminfo;
    _trvxadummy_take_mutex(lrm->lrm_mutex);
    const bool in_use = lrm->lrm_conns.xc_next != &lrm->lrm_conns || lrm->lrm_opens > 0;
    if (!in_use) {
      unlink_rmid(entry);
    }
    _trvxadummy_release_mutex(lrm->lrm_mutex);
    if (in_use) {
      return trace.cs(XAER_NOTA);
    }
    comn_free(entry);
  }
  free_lrm(lrm);
  return trace.cs(1);
}
