// Values that are set, read and cleared by code: properties, options, capabilities and date items. Which
// codes there are, of what kind and in what range, is said by a constant table for each use.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace quillet {

enum class SettingKind : int32_t { integer, text };

enum SettingLimits : int32_t { no_limits = 0, write_only = 1, before_login = 2 };

struct Setting {
  int32_t code;
  SettingKind kind;
  int32_t low;
  int32_t high;
  int32_t initial;
  int32_t limits;
};

extern const std::span<const Setting> context_settings;
extern const std::span<const Setting> connection_settings;
extern const std::span<const Setting> option_settings;
extern const std::span<const Setting> capability_settings;
extern const std::span<const Setting> date_settings;

class SettingValues {
 public:
  explicit SettingValues(std::span<const Setting> known) : known_(known) {}

  // One CS_GET, CS_SET or QLT_CLEAR: CS_SUCCEED, or CS_FAIL when the code, the length or the value is not allowed.
  int32_t access(int32_t action, int32_t code, void *buffer, int32_t length, int32_t *outlen, bool logged_in);
  int32_t integer(int32_t code) const;
  std::string text(int32_t code) const;
  // Takes over the integers that were set in other, where this knows their codes. Texts stay with their owner.
  void inherit(const SettingValues &other);

 private:
  int32_t set(const Setting &setting, const void *buffer, int32_t length);
  int32_t get(const Setting &setting, void *buffer, int32_t length, int32_t *outlen) const;
  const Setting *find(int32_t code) const;

  std::span<const Setting> known_;
  std::map<int32_t, int32_t> integers_;
  std::map<int32_t, std::string> texts_;
};

// Copies text out as a CS_GET does: the buffer must hold it all; outlen is its length.
int32_t copy_text(const std::string &text, void *buffer, int32_t length, int32_t *outlen);
int32_t copy_integer(int32_t value, void *buffer, int32_t length, int32_t *outlen);

}  // namespace quillet
