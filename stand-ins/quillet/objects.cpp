// The object registry: connections, cursors, statements and mapping tables under keys of four parts and
// a type.
//
// A key part is unused, exact bytes or, in lookups and clears, a wildcard. An unused part only equals an unused one; a
// wildcard matches both. The registry has a mutex of its own, a leaf. It keeps handles but does not own them; dropping
// a connection takes the entries that point to it out.
#include "objects.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <string>
#include <vector>

#include "arguments.h"
#include "handles.h"
#include "operation.h"

namespace quillet {
namespace {

constexpr int32_t bytes_max = 4096;

struct KeyPart {
  enum class Form : uint8_t { unused, exact, wildcard } form = Form::unused;
  std::string bytes;

  bool matches(const KeyPart &entry) const {
    return form == Form::wildcard || (form == entry.form && bytes == entry.bytes);
  }
};

struct Key {
  int32_t type = 0;
  std::array<KeyPart, 4> parts;  // last name, first name, scope, thread

  bool matches(const Key &entry) const {
    return type == entry.type &&
           std::equal(parts.begin(), parts.end(), entry.parts.begin(),
                      [](const KeyPart &own, const KeyPart &other) { return own.matches(other); });
  }
  bool is_exact() const {
    return std::none_of(parts.begin(), parts.end(),
                        [](const KeyPart &part) { return part.form == KeyPart::Form::wildcard; });
  }
};

struct Entry {
  Key key;
  QLT_CONNECTION *connection = nullptr;
  QLT_COMMAND *command = nullptr;
  bool has_bytes = false;
  std::string bytes;
};

struct Registry {
  std::mutex mutex;
  std::vector<Entry> entries;  // oldest first
};

Registry &registry() {
  static auto &instance = *new Registry;
  return instance;
}

std::optional<KeyPart> key_part(const void *bytes, int32_t length, int32_t max) {
  if (length == QLT_UNUSED) {
    return KeyPart{};
  }
  if (length == QLT_WILDCARD) {
    return KeyPart{KeyPart::Form::wildcard, {}};
  }
  auto text = text_argument(static_cast<const char *>(bytes), length, max);
  if (!text) {
    return std::nullopt;
  }
  return KeyPart{KeyPart::Form::exact, std::move(*text)};
}

std::optional<Key> key_of(const QLT_OBJECT_NAME &name) {
  auto last = key_part(name.last_name, name.lnlen, QLT_MAX_NAME);
  auto first = key_part(name.first_name, name.fnlen, QLT_MAX_NAME);
  auto scope = key_part(name.scope, name.scopelen, bytes_max);
  auto thread = key_part(name.thread, name.threadlen, bytes_max);
  if (!last || !first || !scope || !thread) {
    return std::nullopt;
  }
  return Key{name.obj_type, {std::move(*last), std::move(*first), std::move(*scope), std::move(*thread)}};
}

std::vector<Entry>::iterator find_entry(Registry &all, const Key &key) {
  return std::find_if(all.entries.begin(), all.entries.end(),
                      [&](const Entry &entry) { return key.matches(entry.key); });
}

int32_t insert(Registry &all, Key key, const QLT_OBJECT_DATA &data) {
  if (!key.is_exact() || (data.buflen != QLT_UNUSED && (data.buflen < 0 || data.buffer == nullptr))) {
    return CS_FAIL;
  }
  Entry made{std::move(key), data.connection, data.command, data.buflen != QLT_UNUSED, {}};
  if (made.has_bytes) {
    made.bytes.assign(static_cast<const char *>(data.buffer), static_cast<std::size_t>(data.buflen));
  }
  const auto found = find_entry(all, made.key);
  if (found == all.entries.end()) {
    all.entries.push_back(std::move(made));
  } else {
    *found = std::move(made);
  }
  return CS_SUCCEED;
}

void look_up(Registry &all, const Key &key, QLT_OBJECT_DATA &data) {
  const auto found = find_entry(all, key);
  const bool exists = found != all.entries.end();
  data.actuallyexists = exists ? 1 : 0;
  data.connection = exists ? found->connection : nullptr;
  data.command = exists ? found->command : nullptr;
  if (!exists) {
    return;
  }
  if (data.buffer != nullptr && data.buflen > 0) {
    const std::size_t size = std::min(found->bytes.size(), static_cast<std::size_t>(data.buflen));
    std::memcpy(data.buffer, found->bytes.data(), size);
  }
  data.buflen = found->has_bytes ? static_cast<int32_t>(found->bytes.size()) : QLT_UNUSED;
}

}  // namespace

int32_t live_objects() {
  Registry &all = registry();
  const std::lock_guard<std::mutex> lock(all.mutex);
  return static_cast<int32_t>(all.entries.size());
}

int32_t access_objects(int32_t action, const QLT_OBJECT_NAME &name, QLT_OBJECT_DATA *data) {
  auto key = key_of(name);
  if (!key || (data == nullptr && action != QLT_CLEAR)) {
    return CS_FAIL;
  }
  Registry &all = registry();
  const std::lock_guard<std::mutex> lock(all.mutex);
  switch (action) {
    case CS_SET:
      return insert(all, std::move(*key), *data);
    case CS_GET:
      look_up(all, *key, *data);
      return CS_SUCCEED;
    case QLT_CLEAR: {
      const auto removed = std::erase_if(all.entries, [&](const Entry &entry) { return key->matches(entry.key); });
      return removed == 0 && name.think_exists == 1 ? CS_FAIL : CS_SUCCEED;
    }
    default:
      return CS_FAIL;
  }
}

void forget_objects_of(const QLT_CONNECTION *connection) {
  Registry &all = registry();
  const std::lock_guard<std::mutex> lock(all.mutex);
  std::erase_if(all.entries, [&](const Entry &entry) { return entry.connection == connection; });
}

}  // namespace quillet

int32_t cs_objects(CS_CONTEXT *context, int32_t action, QLT_OBJECT_NAME *name, QLT_OBJECT_DATA *data) {
  return quillet::operation("cs_objects", [&]() -> int32_t {
    if (!quillet::is_context(context) || name == nullptr) {
      return CS_FAIL;
    }
    return quillet::access_objects(action, *name, data);
  });
}
