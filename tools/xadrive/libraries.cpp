// Loads the common routines, the client library and then libxadtm, and looks their names up.
//
// libxadtm names no library but libc: its calls are bound to whatever the process has loaded for all by then, so the
// order matters and the first two are opened with RTLD_GLOBAL.
#include "libraries.h"

#include <dlfcn.h>

#include <stdexcept>

namespace {

std::runtime_error load_error() {
  const char *reason = dlerror();
  return std::runtime_error(reason == nullptr ? "unknown error of the loader" : reason);
}

void *load(const std::filesystem::path &path, int visibility) {
  void *library = dlopen(path.c_str(), RTLD_NOW | visibility);
  if (library == nullptr) {
    throw load_error();
  }
  return library;
}

template <typename Pointer>
void bind(void *library, const char *name, Pointer &pointer) {
  pointer = reinterpret_cast<Pointer>(dlsym(library, name));
  if (pointer == nullptr) {
    throw load_error();
  }
}

void bind_common(void *common, Libraries &libraries) {
  bind(common, "intl_open", libraries.reader_open);
  bind(common, "intl_nextsection", libraries.reader_section);
  bind(common, "intl_nextentry", libraries.reader_entry);
  bind(common, "intl_nextvalue", libraries.reader_value);
  bind(common, "intl_close", libraries.reader_close);
}

void bind_client(void *quillet, ClientCalls &client) {
  bind(quillet, "cs_ctx_global", client.ctx_global);
  bind(quillet, "cs_config", client.config);
  bind(quillet, "cs_objects", client.objects);
  bind(quillet, "ct_callback", client.callback);
  bind(quillet, "ct_cmd_alloc", client.cmd_alloc);
  bind(quillet, "ct_cmd_drop", client.cmd_drop);
  bind(quillet, "ct_command", client.command);
  bind(quillet, "ct_send", client.send);
  bind(quillet, "ct_results", client.results);
  bind(quillet, "ct_res_info", client.res_info);
  bind(quillet, "ct_describe", client.describe);
  bind(quillet, "ct_bind", client.bind);
  bind(quillet, "ct_fetch", client.fetch);
}

void bind_server(void *quillet, Libraries &libraries) {
  bind(quillet, "zdb_create_server", libraries.create_server);
  bind(quillet, "zdb_add_user", libraries.add_user);
  bind(quillet, "zdb_set_dtm", libraries.set_dtm);
  bind(quillet, "zdb_force", libraries.force);
  bind(quillet, "zdb_branch_state", libraries.branch_state);
  bind(quillet, "zdb_break_sessions", libraries.break_sessions);
}

const char *switch_name(const std::string &flavour) {
  if (flavour == "mts") {
    return "tarvex_MTS_xa_switch";
  }
  return flavour == "tux" ? "tarvex_TUX_xa_switch" : "tarvex_TXS_xa_switch";
}

}  // namespace

Libraries load_libraries(const std::filesystem::path &folder, const std::string &flavour) {
  Libraries libraries;
  bind_common(load(folder / "libtrvcommon.so", RTLD_GLOBAL), libraries);
  void *quillet = load(folder / "libquillet.so", RTLD_GLOBAL);
  bind_client(quillet, libraries.client);
  bind_server(quillet, libraries);
  void *xadtm = load(folder / "libxadtm.so", RTLD_LOCAL);
  bind(xadtm, "TrvXA_GetStatementNr", libraries.statement_number);
  if (!flavour.empty()) {
    bind(xadtm, switch_name(flavour), libraries.xa);
    libraries.flavour = flavour;
  }
  return libraries;
}
