// The libraries that a script needs, loaded as an application server would load them.
#pragma once

#include <filesystem>
#include <string>

#include "common_routines.h"
#include "interface/zdb_control.h"
#include "quillet.h"
#include "xadtm.h"

// What application code calls in the client library.
struct ClientCalls {
  decltype(&::cs_ctx_global) ctx_global = nullptr;
  decltype(&::cs_config) config = nullptr;
  decltype(&::cs_objects) objects = nullptr;
  decltype(&::ct_callback) callback = nullptr;
  decltype(&::ct_cmd_alloc) cmd_alloc = nullptr;
  decltype(&::ct_cmd_drop) cmd_drop = nullptr;
  decltype(&::ct_command) command = nullptr;
  decltype(&::ct_send) send = nullptr;
  decltype(&::ct_results) results = nullptr;
  decltype(&::ct_res_info) res_info = nullptr;
  decltype(&::ct_describe) describe = nullptr;
  decltype(&::ct_bind) bind = nullptr;
  decltype(&::ct_fetch) fetch = nullptr;
};

// What is called in the libraries; they stay loaded for the life of the process.
struct Libraries {
  const struct xa_switch_t *xa = nullptr;  // null when no flavour was asked for
  std::string flavour;                     // whose switch it is; empty without one
  decltype(&::TrvXA_GetStatementNr) statement_number = nullptr;
  ClientCalls client;

  decltype(&::zdb_create_server) create_server = nullptr;
  decltype(&::zdb_add_user) add_user = nullptr;
  decltype(&::zdb_set_dtm) set_dtm = nullptr;
  decltype(&::zdb_force) force = nullptr;
  decltype(&::zdb_branch_state) branch_state = nullptr;
  decltype(&::zdb_break_sessions) break_sessions = nullptr;

  decltype(&::intl_open) reader_open = nullptr;
  decltype(&::intl_nextsection) reader_section = nullptr;
  decltype(&::intl_nextentry) reader_entry = nullptr;
  decltype(&::intl_nextvalue) reader_value = nullptr;
  decltype(&::intl_close) reader_close = nullptr;
};

// Loads all of them, with the switch of the flavour (none when empty), from the folder, or from where the loader finds
// them when the folder is empty. Throws std::runtime_error naming what failed.
Libraries load_libraries(const std::filesystem::path &folder, const std::string &flavour);
