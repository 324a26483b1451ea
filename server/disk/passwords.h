// How passwords are kept: as salted hashes that take their time to compute.
#pragma once

#include <string>

namespace zdb {

// A hash to store, with a new random salt. Throws std::runtime_error when the system cannot make one.
std::string hash_password(const std::string &password);
// Takes the same time whether the hashes differ early, late or not at all.
bool is_password(const std::string &password, const std::string &hash);
// A hash that no password has, to spend the same time on users that do not exist.
const std::string &nobodys_hash();

}  // namespace zdb
