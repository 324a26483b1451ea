// Hashing by the system's crypt functions.
#include "disk/passwords.h"

#include <crypt.h>

#include <memory>
#include <stdexcept>

namespace zdb {
namespace {

constexpr const char *method = "$6$";

// Hashing takes longer for longer ones, and anybody may send one.
constexpr std::size_t password_max = 64;

// Empty when there is none: the hash of a password with a zero byte would be that of what stands before it.
std::string hashed(const std::string &password, const std::string &setting) {
  if (password.find('\0') != std::string::npos) {
    return {};
  }
  const auto work = std::make_unique<crypt_data>();
  const char *hash = crypt_r(password.c_str(), setting.c_str(), work.get());
  return hash == nullptr || *hash == '*' ? std::string() : std::string(hash);
}

bool same_in_constant_time(const std::string &left, const std::string &right) {
  if (left.size() != right.size()) {
    return false;
  }
  unsigned difference = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    difference |= static_cast<unsigned char>(left[i]) ^ static_cast<unsigned char>(right[i]);
  }
  return difference == 0;
}

}  // namespace

std::string hash_password(const std::string &password) {
  if (password.size() > password_max) {
    throw std::runtime_error("a password may have " + std::to_string(password_max) + " bytes");
  }
  char setting[CRYPT_GENSALT_OUTPUT_SIZE];
  if (crypt_gensalt_rn(method, 0, nullptr, 0, setting, sizeof setting) == nullptr) {
    throw std::runtime_error("the system gives no salt for a password");
  }
  std::string hash = hashed(password, setting);
  if (hash.empty()) {
    throw std::runtime_error("the system cannot hash this password");
  }
  return hash;
}

bool is_password(const std::string &password, const std::string &hash) {
  const bool usable = password.size() <= password_max && password.find('\0') == std::string::npos;
  const std::string computed = hashed(usable ? password : std::string(), hash);
  return usable && !computed.empty() && same_in_constant_time(computed, hash);
}

// Its last letter stands for two bits, so no hash ends in this one; what is no letter at all would not be hashed.
const std::string &nobodys_hash() {
  static const std::string hash = [] {
    std::string made = hash_password("");
    made.back() = 'z';
    return made;
  }();
  return hash;
}

}  // namespace zdb
