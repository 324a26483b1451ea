// Encodes and decodes the contents of frames.
//
// A decoder never trusts a length or count: it is held against the bytes that are left before anything is allocated for
// it. Every element of a list takes a few bytes at least, a null as many as an empty text, so the object in memory
// stays within twenty times the payload.
#include "wire/frame.h"

#include <array>
#include <bit>
#include <concepts>
#include <utility>

namespace zdb {
namespace {

constexpr int32_t error_severity = 16;

// The fewest bytes that an element of a list takes.
constexpr std::size_t code_size = 4;
constexpr std::size_t text_size = 4;
constexpr std::size_t value_size = 1 + text_size;
constexpr std::size_t parameter_size = text_size + value_size;
constexpr std::size_t column_size = text_size + 1 + 4;
constexpr std::size_t row_size = 4;
constexpr std::size_t result_size = 1 + 4 + 4 + 8;
constexpr std::size_t message_size = 4 + 4 + text_size;

enum class ValueTag : uint8_t { null, integer, real, text, binary };

std::size_t payload_limit(FrameKind kind) {
  switch (kind) {
    case FrameKind::login:
      return login_limit;
    case FrameKind::accepted:
      return 0;
    case FrameKind::refused:
      return refusal_limit;
    case FrameKind::request:
      return request_limit;
    case FrameKind::reply:
      return reply_limit;
  }
  return 0;
}

std::string over_limit_text(FrameKind kind, const std::string &length) {
  std::string text = frame_kind_name(kind);
  return text.append(" of ")
      .append(length)
      .append(" bytes: ")
      .append(std::to_string(payload_limit(kind)))
      .append(" are allowed at most");
}

template <std::unsigned_integral Number>
std::array<char, sizeof(Number)> little_endian(Number number) {
  std::array<char, sizeof(Number)> bytes{};
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    bytes[i] = static_cast<char>((number >> (8 * i)) & 0xff);
  }
  return bytes;
}

// Puts a frame together. The limit is watched as it grows, so that an endless object never takes endless memory.
class Writer {
 public:
  explicit Writer(FrameKind kind) : kind_(kind), frame_(frame_header_size, '\0') {
    frame_.back() = static_cast<char>(kind);
  }

  template <std::unsigned_integral Number>
  void number(Number value) {
    const auto bytes = little_endian(value);
    append({bytes.data(), bytes.size()});
  }
  void int32(int32_t value) { number(static_cast<uint32_t>(value)); }
  void int64(int64_t value) { number(static_cast<uint64_t>(value)); }
  // What does not fit into 32 bits is over the limit anyway.
  void count(std::size_t value) { number(static_cast<uint32_t>(value)); }
  void flag(bool value) { number(static_cast<uint8_t>(value ? 1 : 0)); }
  template <typename Enum>
  void code(Enum value) {
    number(static_cast<uint8_t>(value));
  }
  void text(std::string_view value) {
    count(value.size());
    append(value);
  }

  std::string finish() {
    const auto length = little_endian(static_cast<uint32_t>(frame_.size() - frame_header_size));
    frame_.replace(0, length.size(), length.data(), length.size());
    return std::move(frame_);
  }

 private:
  void append(std::string_view bytes) {
    const std::size_t length = frame_.size() - frame_header_size;
    if (bytes.size() > payload_limit(kind_) - length) {
      throw FrameError(over_limit_text(kind_, "at least " + std::to_string(length + bytes.size())));
    }
    frame_.append(bytes);
  }

  FrameKind kind_;
  std::string frame_;
};

class Reader {
 public:
  explicit Reader(std::string_view payload) : rest_(payload) {}

  template <std::unsigned_integral Number>
  Number number() {
    const std::string_view bytes = take(sizeof(Number));
    Number value = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
      value = static_cast<Number>(value | Number{static_cast<unsigned char>(bytes[i])} << (8 * i));
    }
    return value;
  }
  int32_t int32() { return static_cast<int32_t>(number<uint32_t>()); }
  int64_t int64() { return static_cast<int64_t>(number<uint64_t>()); }
  bool flag() { return code<uint8_t>(1, "flag") == 1; }
  // An enumerator, all of which from 0 to last are known.
  template <typename Enum>
  Enum code(Enum last, const char *what) {
    const auto value = number<uint8_t>();
    if (value > static_cast<uint8_t>(last)) {
      throw FrameError(std::string("unknown ") + what + " " + std::to_string(value));
    }
    return static_cast<Enum>(value);
  }
  std::string text() { return std::string(take(number<uint32_t>())); }
  std::size_t count(std::size_t element_size) {
    const std::size_t value = number<uint32_t>();
    if (value > rest_.size() / element_size) {
      throw FrameError("a list of " + std::to_string(value) + " elements is announced, but only " +
                       std::to_string(rest_.size()) + " bytes follow");
    }
    return value;
  }
  void finish() const {
    if (!rest_.empty()) {
      throw FrameError(std::to_string(rest_.size()) + " bytes too many at the end");
    }
  }

 private:
  std::string_view take(std::size_t size) {
    if (size > rest_.size()) {
      throw FrameError(std::to_string(size) + " bytes are due where only " + std::to_string(rest_.size()) +
                       " are left");
    }
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return taken;
  }

  std::string_view rest_;
};

template <typename Element>
void write_list(Writer &out, const std::vector<Element> &list, void (*write)(Writer &, const Element &)) {
  out.count(list.size());
  for (const Element &element : list) {
    write(out, element);
  }
}

template <typename Element>
std::vector<Element> read_list(Reader &in, std::size_t element_size, Element (*read)(Reader &)) {
  const std::size_t count = in.count(element_size);
  std::vector<Element> list;
  list.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    list.push_back(read(in));
  }
  return list;
}

struct ValueWriter {
  Writer &out;

  void operator()(std::monostate) const {
    out.code(ValueTag::null);
    out.count(0);
  }
  void operator()(int64_t value) const {
    out.code(ValueTag::integer);
    out.int64(value);
  }
  void operator()(double value) const {
    out.code(ValueTag::real);
    out.number(std::bit_cast<uint64_t>(value));
  }
  void operator()(const std::string &value) const {
    out.code(ValueTag::text);
    out.text(value);
  }
  void operator()(const Binary &value) const {
    out.code(ValueTag::binary);
    out.text(value.bytes);
  }
};

void write_value(Writer &out, const Value &value) {
  std::visit(ValueWriter{out}, value);
}

Value read_null(Reader &in) {
  if (in.number<uint32_t>() != 0) {
    throw FrameError("a null with a length");
  }
  return std::monostate{};
}

Value read_value(Reader &in) {
  switch (in.code(ValueTag::binary, "type of value")) {
    case ValueTag::null:
      return read_null(in);
    case ValueTag::integer:
      return in.int64();
    case ValueTag::real:
      return std::bit_cast<double>(in.number<uint64_t>());
    case ValueTag::text:
      return in.text();
    case ValueTag::binary:
      return Binary{in.text()};
  }
  return {};
}

void write_parameter(Writer &out, const Parameter &parameter) {
  out.text(parameter.name);
  write_value(out, parameter.value);
}

// Braces evaluate from left to right, so the members of an object may be read within them.
Parameter read_parameter(Reader &in) {
  return {in.text(), read_value(in)};
}

void write_column(Writer &out, const Column &column) {
  out.text(column.name);
  out.code(column.type);
  out.int32(column.max_length);
}

Column read_column(Reader &in) {
  return {in.text(), in.code(ColumnType::binary, "type of column"), in.int32()};
}

void write_row(Writer &out, const std::vector<Value> &row) {
  write_list(out, row, write_value);
}

std::vector<Value> read_row(Reader &in) {
  return read_list(in, value_size, read_value);
}

void write_result(Writer &out, const Result &result) {
  out.code(result.kind);
  write_list(out, result.columns, write_column);
  write_list(out, result.rows, write_row);
  out.int64(result.row_count);
}

Result read_result(Reader &in) {
  return {in.code(ResultKind::failed, "kind of result"), read_list(in, column_size, read_column),
          read_list(in, row_size, read_row), in.int64()};
}

void write_message(Writer &out, const Message &message) {
  out.int32(message.number);
  out.int32(message.severity);
  out.text(message.text);
}

Message read_message(Reader &in) {
  return {in.int32(), in.int32(), in.text()};
}

void write_code(Writer &out, const int32_t &code) {
  out.int32(code);
}

int32_t read_code(Reader &in) {
  return in.int32();
}

void write_reply(Writer &out, const Reply &reply) {
  out.flag(reply.broken_off);
  write_list(out, reply.messages, write_message);
  write_list(out, reply.results, write_result);
  write_list(out, reply.fetch_codes, write_code);
}

Login read_login(Reader &in) {
  return {in.text(), in.text(), in.text(), in.flag()};
}

Request read_request(Reader &in) {
  return {in.code(RequestKind::administer, "kind of request"), in.text(),
          read_list(in, parameter_size, read_parameter)};
}

Reply read_reply(Reader &in) {
  return {in.flag(), read_list(in, message_size, read_message), read_list(in, result_size, read_result),
          read_list(in, code_size, read_code)};
}

// The only object of a payload; the error says what the payload was to be.
template <typename Object>
Object decode(std::string_view payload, FrameKind kind, Object (*read)(Reader &)) {
  try {
    Reader in(payload);
    Object object = read(in);
    in.finish();
    return object;
  } catch (const FrameError &error) {
    throw FrameError(std::string("malformed ") + frame_kind_name(kind) + ": " + error.what());
  }
}

Reply too_large_reply() {
  Reply reply;
  reply.messages.push_back({message_reply_too_large, error_severity,
                            "The result is too large to be sent: a reply holds at most " + std::to_string(reply_limit) +
                                " bytes. Ask for fewer rows or columns at a time."});
  reply.results.push_back({ResultKind::failed, {}, {}});
  reply.results.push_back({ResultKind::done, {}, {}});
  return reply;
}

std::string encode_fitting_reply(const Reply &reply) {
  Writer out(FrameKind::reply);
  write_reply(out, reply);
  return out.finish();
}

}  // namespace

const char *frame_kind_name(FrameKind kind) {
  switch (kind) {
    case FrameKind::login:
      return "login";
    case FrameKind::accepted:
      return "acceptance";
    case FrameKind::refused:
      return "refusal";
    case FrameKind::request:
      return "request";
    case FrameKind::reply:
      return "reply";
  }
  return "unknown";
}

FrameHeader decode_header(std::string_view bytes) {
  Reader in(bytes);
  const std::size_t length = in.number<uint32_t>();
  const auto code = in.number<uint8_t>();
  if (code < static_cast<uint8_t>(FrameKind::login) || code > static_cast<uint8_t>(FrameKind::reply)) {
    throw FrameError("a frame of the unknown kind " + std::to_string(code));
  }
  const FrameHeader header = {length, static_cast<FrameKind>(code)};
  if (length > payload_limit(header.kind)) {
    throw FrameError(over_limit_text(header.kind, std::to_string(length)));
  }
  return header;
}

std::string encode_login(const Login &login) {
  Writer out(FrameKind::login);
  out.text(login.user);
  out.text(login.password);
  out.text(login.application);
  out.flag(login.failover);
  return out.finish();
}

std::string encode_accepted() {
  return Writer(FrameKind::accepted).finish();
}

std::string encode_refusal(const Message &refusal) {
  Writer out(FrameKind::refused);
  write_message(out, {refusal.number, refusal.severity, refusal.text.substr(0, refusal_limit - message_size)});
  return out.finish();
}

std::string encode_request(const Request &request) {
  Writer out(FrameKind::request);
  out.code(request.kind);
  out.text(request.text);
  write_list(out, request.parameters, write_parameter);
  return out.finish();
}

std::string encode_reply(const Reply &reply) {
  try {
    return encode_fitting_reply(reply);
  } catch (const FrameError &) {
    return encode_fitting_reply(too_large_reply());
  }
}

Login decode_login(std::string_view payload) {
  return decode(payload, FrameKind::login, read_login);
}

Message decode_refusal(std::string_view payload) {
  return decode(payload, FrameKind::refused, read_message);
}

Request decode_request(std::string_view payload) {
  return decode(payload, FrameKind::request, read_request);
}

Reply decode_reply(std::string_view payload) {
  return decode(payload, FrameKind::reply, read_reply);
}

}  // namespace zdb
