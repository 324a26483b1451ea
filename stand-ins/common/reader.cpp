// The intl_* calls: hands a parsed configuration file out section by section, entry by entry.
//
// The file is read whole when it is opened, at most 1 MiB of it, and the state hangs on the caller's INTL_READER. A
// section that holds a malformed line comes with a read error, so that a misspelt file is noticed before its settings
// are used. Owns the reader fault plan and the count of open readers. A reader belongs to one thread at a time.
#include <atomic>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "common_control.h"
#include "common_routines.h"
#include "config_text.h"
#include "fault_plan.h"

namespace {

constexpr size_t largest_file = size_t{1} << 20;
constexpr int32_t reader_done = 1;
constexpr int32_t reader_failed = 0;
constexpr int32_t read_fine = 0;
constexpr int32_t read_error = -1;

// Each position counts the items handed out; the current one is the item before it.
struct ReaderState {
  std::vector<ConfigSection> sections;
  size_t next_section = 0;
  size_t next_entry = 0;
  size_t next_value = 0;
  char no_name[1] = {};
};

struct CloseFile {
  void operator()(std::FILE *file) const { (void)std::fclose(file); /* opened for reading: nothing can be lost */ }
};

constinit FaultPlan reader_faults;
constinit std::atomic<int32_t> open_readers{0};

ReaderState *state_of(INTL_READER *reader) {
  return reader == nullptr ? nullptr : static_cast<ReaderState *>(reader->reader_state);
}

char *report(int32_t *status, int32_t code, char *text) {
  if (status != nullptr) {
    *status = code;
  }
  return text;
}

// The file's whole text; nothing when it cannot be read (a directory opens but does not read) or is too large.
std::optional<std::string> text_of_file(const char *path) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path, "re"));
  if (file == nullptr) {
    return std::nullopt;
  }
  std::string text(largest_file + 1, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  if (std::ferror(file.get()) != 0 || text.size() > largest_file) {
    return std::nullopt;
  }
  return text;
}

}  // namespace

int32_t intl_open(const char *path, INTL_READER *reader) {
  const bool fault = reader_faults.strikes();
  if (reader == nullptr) {
    return reader_failed;
  }
  *reader = {};
  if (path == nullptr || fault) {
    return reader_failed;
  }
  try {
    const std::optional<std::string> text = text_of_file(path);
    if (!text) {
      return reader_failed;
    }
    auto state = std::make_unique<ReaderState>();
    state->sections = parse_config_text(*text);
    reader->reader_state = state.release();
  } catch (const std::bad_alloc &) {
    return reader_failed;
  }
  ++open_readers;
  return reader_done;
}

char *intl_nextsection(INTL_READER *reader, int32_t *status) {
  const bool fault = reader_faults.strikes();
  ReaderState *state = state_of(reader);
  if (state == nullptr) {
    return report(status, read_error, nullptr);
  }
  if (state->next_section == state->sections.size()) {
    return fault ? report(status, read_error, state->no_name) : report(status, read_fine, nullptr);
  }
  ConfigSection &section = state->sections[state->next_section++];
  state->next_entry = 0;
  state->next_value = 0;
  return report(status, fault || section.malformed ? read_error : read_fine, section.name.data());
}

char *intl_nextentry(INTL_READER *reader, int32_t *status) {
  const bool fault = reader_faults.strikes();
  ReaderState *state = state_of(reader);
  if (state == nullptr || fault) {
    return report(status, read_error, nullptr);
  }
  if (state->next_section == 0) {
    return report(status, read_fine, nullptr);
  }
  ConfigSection &section = state->sections[state->next_section - 1];
  state->next_value = 0;
  if (state->next_entry >= section.entries.size()) {
    state->next_entry = section.entries.size() + 1;  // past the last entry: it has no more values to give
    return report(status, read_fine, nullptr);
  }
  ConfigEntry &entry = section.entries[state->next_entry++];
  return report(status, entry.malformed ? read_error : read_fine, entry.name.data());
}

char *intl_nextvalue(INTL_READER *reader, int32_t *status) {
  const bool fault = reader_faults.strikes();
  ReaderState *state = state_of(reader);
  if (state == nullptr || fault) {
    return report(status, read_error, nullptr);
  }
  if (state->next_section == 0 || state->next_entry == 0) {
    return report(status, read_fine, nullptr);
  }
  ConfigSection &section = state->sections[state->next_section - 1];
  if (state->next_entry > section.entries.size()) {
    return report(status, read_fine, nullptr);
  }
  ConfigEntry &entry = section.entries[state->next_entry - 1];
  if (state->next_value == entry.values.size()) {
    return report(status, read_fine, nullptr);
  }
  return report(status, read_fine, entry.values[state->next_value++].data());
}

int32_t intl_close(INTL_READER *reader) {
  const bool fault = reader_faults.strikes();
  ReaderState *state = state_of(reader);
  if (state == nullptr) {
    return reader_failed;
  }
  delete state;
  reader->reader_state = nullptr;
  --open_readers;
  return fault ? reader_failed : reader_done;
}

void common_fail_reader(int32_t nth, int32_t and_all_later) {
  reader_faults.arm(nth, and_all_later != 0);
}

int32_t common_reader_calls_made(void) {
  return reader_faults.calls();
}

int32_t common_readers_open(void) {
  return open_readers;
}
