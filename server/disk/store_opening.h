// Opening a folder so that a failure tells which file it is about, and what to do.
#pragma once

#include <memory>
#include <string>

#include "store/store.h"

namespace zdb {

// The store in a folder. Throws std::runtime_error, and leaves the folder as it is, when that cannot be.
std::unique_ptr<Store> open_store(const std::string &folder);

}  // namespace zdb
