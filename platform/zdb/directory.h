/* directory.h - the servers of this process by name; used by the control functions and by open_session. */
#ifndef ZDB_DIRECTORY_H
#define ZDB_DIRECTORY_H

#include <memory>
#include <string>

#include "server.h"

namespace zdb {

/* False when the name is taken. */
bool add_server(const std::string &name);
/* Takes the server out and hands it over, null when there is none of that name. */
std::shared_ptr<Server> remove_server(const std::string &name);
std::shared_ptr<Server> find_server(const std::string &name);

}  // namespace zdb

#endif /* ZDB_DIRECTORY_H */
