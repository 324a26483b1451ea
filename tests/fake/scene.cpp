// The personality, records, log capture and closing checks behind the unit tests.
#include "scene.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <utility>

#include "common_control.h"
#include "config/xal_config.h"
#include "connections/xal_conn.h"
#include "connections/xal_context.h"
#include "log/xal_log.h"
#include "personality/xal_threads.h"
#include "record/xal_record.h"
#include "verbs/xal_verbs.h"

namespace fake {

XID make_xid(int32_t format, const std::string &gtrid, const std::string &bqual) {
  XID xid{};
  xid.formatID = format;
  xid.gtrid_length = static_cast<int32_t>(gtrid.size());
  xid.bqual_length = static_cast<int32_t>(bqual.size());
  memcpy(xid.data, (gtrid + bqual).data(), gtrid.size() + bqual.size());
  return xid;
}
XID branch() {
  return make_xid(0x1234, "\x01\x02\x03", "\x04\x05");
}
XID other_branch() {
  return make_xid(2, "\x06");
}
XID none() {
  return make_xid(-1, "");
}

// Removes the files of file_with, and what stands in their place, at the process's end.
struct TemporaryFiles {
  Lines paths;
  ~TemporaryFiles() {
    for (const std::string &path : paths) {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  }
};

std::string file_with(const std::string &content) {
  static TemporaryFiles made;
  std::string path = testing::TempDir().append("xadtm_XXXXXX");
  const int file = mkstemp(path.data());
  EXPECT_GE(file, 0);
  close(file);
  std::ofstream(path) << content;
  made.paths.push_back(path);
  return path;
}

namespace {

bool opened_log = false;

}  // namespace

bool log_is_open() {
  return opened_log;
}

std::string log_path() {
  static const std::string path = [] {
    std::string made = file_with("");
    opened_log = true;
    EXPECT_EQ(xalog_open_file(made.c_str()), 1);
    return made;
  }();
  return path;
}

Lines take_log() {
  static std::streamoff read_to = 0;
  static const std::regex prefix("^\\S+ \\S+: 0x[0-9a-f]+,[^:]*: \\[(.*)/-?[0-9]+\\] ");
  std::ifstream file(log_path());
  file.seekg(read_to);
  Lines lines;
  for (std::string line; std::getline(file, line);) {
    read_to += static_cast<std::streamoff>(line.size()) + 1;
    lines.push_back(std::regex_replace(line, prefix, "[$1] "));
  }
  return lines;
}

bool in_own_process(const std::function<bool()> &body) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(body() && !testing::Test::HasFailure() ? 0 : 1);
  }
  int ended = 1;
  waitpid(child, &ended, 0);
  return ended == 0;
}

namespace {

std::map<std::string, int32_t> operation_results;

int32_t record(const char *operation, const xa_connection *conn) {
  library().note(std::string(operation).append("(").append(conn->xc_conn->name).append(")"));
  const auto forced = operation_results.find(operation);
  return forced != operation_results.end() ? forced->second : CS_SUCCEED;
}

int32_t identity_of_scene(XA_THRDID *identity) {
  const std::string &bytes = library().identity;
  *identity = XA_THRDID{};
  identity->tid_len = bytes.empty() ? QLT_UNUSED : static_cast<int32_t>(bytes.size());
  memcpy(identity->tid_bytes, bytes.data(), bytes.size());
  return library().identity_claim < 0 ? 0 : 1;
}

XA_PERSONALITY make_personality(int32_t tm_type, uint32_t tm_flags) {
  XA_PERSONALITY made{};
  made.tm_type = tm_type;
  made.tm_flags = tm_flags;
  made.get_thrdid = identity_of_scene;
  made.lock_global = made.unlock_global = [] { return CS_SUCCEED; };
  made.create_mutex = [] { return library().create_mutex(); };
  made.delete_mutex = [](int32_t) { return CS_SUCCEED; };
  made.release_mutex = [](int32_t handle) { return library().release_mutex(handle); };
  made.take_mutex = [](int32_t handle) { return library().take_mutex(handle); };
  made.cs_obj_insert = [](xa_connection *conn) { return record("cs_obj_insert", conn); };
  made.cs_obj_clear = [](xa_connection *conn) { return record("cs_obj_clear", conn); };
  made.xa_conn_init = [](xa_connection *conn) { return record("xa_conn_init", conn); };
  made.xa_conn_free = [](xa_connection *conn) { return record("xa_conn_free", conn); };
  return made;
}

}  // namespace

Scene::Scene() {
  take_log();
  xal_sleep = [](uint32_t seconds) { library().note(text("sleep(%u)", seconds)); };
  _xa_txs_serialize.store(library().create_mutex());
  library().take_mutex(_xa_txs_serialize.load());
  memcpy(lrm.lrm_name, "L1", 3);
  memcpy(lrm.lrm_server, "bank", 5);
  memcpy(lrm.lrm_user, "sa", 3);
  memcpy(lrm.lrm_password, "pw", 3);
  lrm.lrm_mutex = XAL_PLACEHOLDER;
  lrm.lrm_conns = {&lrm.lrm_conns, &lrm.lrm_conns};
  blocks_at_start = common_blocks_outstanding();
  fresh();
}

void Scene::drop_handles() {
  for (QLT_COMMAND **command : {&conn.xc_cmd, &conn.xc_recov_cmd}) {
    library().drop(std::exchange(*command, nullptr));
  }
  library().drop(std::exchange(conn.xc_conn, nullptr));
}

void Scene::fresh() {
  drop_handles();
  library().reset();
  operation_results.clear();
  common_fail_allocation(0, 0);
  xacmn_log_tracing.store(0);
  take_log();
  behave_as(XATM_TUX, 0);
  xl_context = &library().context;
  conn = XA_CONNECTION{};
  conn.xc_lrm = &lrm;
  conn.xc_mutex = XAL_PLACEHOLDER;
  conn.xc_xid.formatID = -1;
  conn.xc_conn = library().new_connection();
  conn.xc_cmd = library().new_command(conn.xc_conn);
}

Scene::~Scene() {
  EXPECT_TRUE(library().serialised()) << "the serialisation mutex was given up for good";
  EXPECT_EQ(common_blocks_outstanding(), blocks_at_start) << "memory was not given back";
  common_fail_allocation(0, 0);
  common_fail_reader(0, 0);
  drop_handles();
  EXPECT_EQ(library().live_connections(), 0) << "connection handles were leaked";
  EXPECT_EQ(library().live_commands(), 0) << "command handles were leaked";
  library().release_mutex(_xa_txs_serialize.load());
  _xa_txs_serialize.store(0);
  trvxal_tm_personality.store(&trvxal_nil_personality);
  xa_config_file[0] = '\0';
}

XA_PERSONALITY &Scene::behave_as(int32_t tm_type, uint32_t tm_flags) {
  personality = make_personality(tm_type, tm_flags);
  trvxal_tm_personality.store(&personality);
  return personality;
}

void Scene::fail_operation(const std::string &operation, int32_t code) {
  operation_results[operation] = code;
}

OpenScene::OpenScene() {
  // The record of the thread identity stays for the life of the process.
  behave_as(XATM_TUX, XAPF_CFG_OPTIONAL);
  EXPECT_NE(xal_addlrm(99, open_string), nullptr);
  EXPECT_EQ(xal_freelrm(99), 1);
  blocks_at_start = common_blocks_outstanding();
  reopen();
}

OpenScene::~OpenScene() {
  close_everything();
}

void OpenScene::close_everything() {
  common_fail_allocation(0, 0);
  while (XA_CONNECTION *left = connection()) {
    left->xc_state = left->xc_conn != nullptr ? XCS_UNUSED : XCS_CLOSED;  // a closed one goes with the next lookup
    left->xc_holds = 0;
    XA_CONNECTION *got = nullptr;
    if (xc_get(1, nullptr, &got, XCF_ANY) == XCRET_CONN) {
      xc_close(got);
    }
  }
  xal_freelrm(1);
  xal_freelrm(2);
}

void OpenScene::reopen(int32_t tm_type, uint32_t tm_flags) {
  close_everything();
  fresh();
  drop_handles();
  library().reset();
  behave_as(tm_type, tm_flags | XAPF_CFG_OPTIONAL);
  XA_LRMINFO *record = xal_addlrm(1, open_string);
  ASSERT_NE(record, nullptr);
  open_connection();
  library().take_calls();
  library().take_requests();
  take_log();
}

XA_CONNECTION *OpenScene::open_connection(int32_t state) {
  XA_LRMINFO *record = xal_getlrm(1);
  XA_CONNECTION *opened = nullptr;
  EXPECT_EQ(xc_open(record, &opened), XA_OK);
  opened->xc_state = state;
  xc_release(opened);
  return opened;
}

XA_CONNECTION *OpenScene::set(int32_t state, const XID &xid, size_t index) {
  XA_CONNECTION *changed = connection(index);
  changed->xc_state = state;
  changed->xc_xid = xid;
  return changed;
}

Lines OpenScene::sent() {
  Lines lines = library().take_requests();
  std::erase_if(lines, [](const std::string &line) {
    return line.rfind("select value", 0) == 0 || line.rfind("status ffffffff_00_00_", 0) == 0;
  });
  return lines;
}

XA_CONNECTION *OpenScene::connection(size_t index) {
  XA_LRMINFO *record = xal_getlrm(1);
  if (record == nullptr) {
    return nullptr;
  }
  XC_LINKS *at = record->lrm_conns.xc_next;
  for (; index > 0 && at != &record->lrm_conns; --index) {
    at = at->xc_next;
  }
  return at != &record->lrm_conns ? static_cast<XA_CONNECTION *>(at) : nullptr;
}

Lines OpenScene::connections() {
  Lines lines;
  for (size_t index = 0; const XA_CONNECTION *at = connection(index); ++index) {
    const std::string handle = at->xc_conn != nullptr ? at->xc_conn->name : "none";
    lines.push_back(text("%s %d %x%s", handle.c_str(), at->xc_state, static_cast<uint32_t>(at->xc_xid.formatID),
                         at->xc_holds != 0 ? " held" : ""));
  }
  return lines;
}

}  // namespace fake
