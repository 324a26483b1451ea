// The first byte chooses the flavour, the others are an open string. The parser's outputs are
// fields as the registry has them.
#include <array>
#include <cctype>
#include <cstring>
#include <string>

#include "config/xal_config.h"
#include "config/xal_open_string.h"
#include "fake_client.h"
#include "fuzz.h"
#include "library_state.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "registry/xal_registry.h"

namespace {

constexpr std::size_t fields = 5;
constexpr std::array<char, fields> letters = {'N', 'U', 'P', 'K', 'S'};  // in the order of the parser's parameters
constexpr std::size_t name_field = 0;
constexpr std::size_t key_field = 3;

// Each value is a block of its own, filled with what is no zero.
struct Values {
  std::array<std::vector<char>, fields> of;

  Values() { of.fill(std::vector<char>(XAL_FIELD_SIZE, 'x')); }

  std::string text(std::size_t field) const {
    const std::size_t length = strnlen(of[field].data(), of[field].size());
    fuzz::require(length < of[field].size(), "an output is terminated within its field");
    return {of[field].data(), length};
  }
};

int32_t parse(const char *info, Values &values) {
  auto &of = values.of;
  return xacmn_parse_open_info(info, of[0].data(), of[1].data(), of[2].data(), of[3].data(), of[4].data());
}

void check_value(const std::string &value, std::size_t field, const std::string &info) {
  for (const char c : value) {
    fuzz::require(isspace(static_cast<unsigned char>(c)) == 0, "a value holds no white space");
  }
  const char letter = letters[field];
  const bool from_info = info.find(std::string("-") + letter + value) != std::string::npos ||
                         info.find(std::string("-") + static_cast<char>(tolower(letter)) + value) != std::string::npos;
  fuzz::require(value.empty() || from_info, "a value stands behind its letter");
}

void check_values(const std::string &info, const Values &values, int32_t result) {
  std::string again = "-V11 ";
  for (std::size_t i = 0; i < fields; ++i) {
    check_value(values.text(i), i, info);
    if (i != key_field || personality_has(XAPF_LOOKUP_KEY)) {
      again.append("-").append(1, letters[i]).append(values.text(i)).append("\t");
    }
  }
  if (result != XA_OK) {
    fuzz::require(result == XAER_INVAL, "an open string is accepted or refused");
    return;
  }
  fuzz::require(!values.text(name_field).empty(), "an accepted open string names an LRM");
  fuzz::require(!personality_has(XAPF_LOOKUP_KEY) || !values.text(key_field).empty(), "and has the key it must have");
  Values reread;
  fuzz::require(parse(fuzz::terminated(again).data(), reread) == XA_OK, "an open string of its values is accepted");
  for (std::size_t i = 0; i < fields; ++i) {
    fuzz::require(reread.text(i) == values.text(i), "and gives the same values");
  }
}

}  // namespace

void fuzz::open_string(std::string_view input) {
  use_library_without_log();
  static constexpr std::array<const XA_PERSONALITY *, 3> flavours = {&trvxal_tux_threaded_personality,
                                                                     &trvxal_mts_personality, &trvxal_txs_personality};
  const unsigned choice = take_choice(input);
  trvxal_tm_personality.store(flavours[choice % flavours.size()]);
  const std::vector<char> info = terminated(input);

  Values values;
  const int32_t result = parse(info.data(), values);
  check_values(info.data(), values, result);
  // The log is open already, so that the option's path is only read. The client library keeps a record of its calls.
  require(xalog_init(info.data(), "stderr") == 1, "a log that is open stays open");
  fake::library().reset();
  xacmn_log_flags_set(info.data());
  xacmn_log_tracing.store(0);
}
