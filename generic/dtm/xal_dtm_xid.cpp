// Branch names: the text form in which the server knows a transaction branch, "formatID_gtrid_bqual_:LRM".
//
// formatID is hexadecimal; the byte strings are written in groups of six bits over an alphabet without the underscore,
// so that it can separate the fields. Names are compared with those already stored on servers: every character counts.
// Both directions work by table, twelve bits at a time on the way out, and nothing here allocates or can fail but the
// decoding of a text with a character outside the alphabet.
#include <bit>
#include <cstddef>
#include <cstring>

#include "base/xal_xid.h"
#include "config/xal_open_string.h"
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"

namespace {

constexpr char xa_dtm_convtbl[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ@#";
static_assert(sizeof xa_dtm_convtbl == 64 + 1);

struct CharPair {
  char chars[2];
};

// The two characters of every twelve-bit value.
struct PairTable {
  CharPair of[4096];
};
constexpr PairTable pairs_of_twelve_bits() {
  PairTable table{};
  for (size_t value = 0; value < sizeof table.of / sizeof table.of[0]; ++value) {
    table.of[value] = {{xa_dtm_convtbl[value >> 6], xa_dtm_convtbl[value & 63]}};
  }
  return table;
}
constexpr PairTable encode_pairs = pairs_of_twelve_bits();

// The value of every character of the alphabet, -1 for the others.
struct ValueTable {
  int8_t of[256];
};
constexpr ValueTable values_of_characters() {
  ValueTable table{};
  for (int8_t &value : table.of) {
    value = -1;
  }
  for (size_t value = 0; value < 64; ++value) {
    table.of[static_cast<unsigned char>(xa_dtm_convtbl[value])] = static_cast<int8_t>(value);
  }
  return table;
}
constexpr ValueTable decode_values = values_of_characters();

char *put_pair(char *out, uint32_t twelve_bits) {
  memcpy(out, encode_pairs.of[twelve_bits].chars, 2);
  return out + 2;
}

char *put_group(char *out, uint32_t twenty_four_bits) {
  return put_pair(put_pair(out, twenty_four_bits >> 12), twenty_four_bits & 0xFFF);
}

// Writes six bytes as eight characters, by one load that reads two bytes more.
void put_six(char *out, const unsigned char *bytes) {
  uint64_t word;
  memcpy(&word, bytes, sizeof word);
  word = std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
  put_pair(out, static_cast<uint32_t>(word >> 52));
  put_pair(out + 2, static_cast<uint32_t>(word >> 40) & 0xFFF);
  put_pair(out + 4, static_cast<uint32_t>(word >> 28) & 0xFFF);
  put_pair(out + 6, static_cast<uint32_t>(word >> 16) & 0xFFF);
}

char *put_text(char *out, const char *text, size_t length) {
  memcpy(out, text, length);
  return out + length;
}

int8_t value_of(char c) {
  return decode_values.of[static_cast<unsigned char>(c)];
}

// Packs the next four characters into twenty-four bits; false when there are no four of the alphabet. The text's end is
// no character of it, so nothing behind the end is read.
bool take_four(const char *text, uint32_t *group) {
  *group = 0;
  for (int32_t i = 0; i < 4; ++i) {
    const int8_t value = value_of(text[i]);
    if (value < 0) {
      return false;
    }
    *group = *group << 6 | static_cast<uint32_t>(value);
  }
  return true;
}

// Writes the first count of the group's three bytes.
char *put_bytes(char *out, uint32_t group, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    *out++ = static_cast<char>(group >> (16 - 8 * i));
  }
  return out;
}

// A number in lowercase hexadecimal without leading zeros.
char *put_hex(char *out, uint32_t value) {
  int32_t shift = 28;
  while (shift > 0 && (value >> shift) == 0) {
    shift -= 4;
  }
  for (; shift >= 0; shift -= 4) {
    *out++ = "0123456789abcdef"[(value >> shift) & 15];
  }
  return out;
}

// Writes the name and returns its end.
char *write_name(const XID &xid, const char *lrm_name, char *out) {
  const int32_t gtrid = xid_clamped(xid.gtrid_length);
  out = put_hex(out, static_cast<uint32_t>(xid.formatID));
  *out++ = '_';
  out += xa__dtm_encode(xid.data, gtrid, out);
  *out++ = '_';
  out += xa__dtm_encode(xid.data + gtrid, xid_clamped(xid.bqual_length), out);
  out = put_text(out, "_:", 2);
  out = put_text(out, lrm_name, strnlen(lrm_name, XAL_FIELD_SIZE - 1));
  *out = '\0';
  return out;
}

// True when the connection's name stands for this XID.
bool is_named(const XA_CONNECTION &conn, const XID &xid) {
  const XID &named = conn.xc_named_xid;
  return conn.xc_name_length != 0 && named.formatID == xid.formatID && named.gtrid_length == xid.gtrid_length &&
         named.bqual_length == xid.bqual_length &&
         memcmp(named.data, xid.data, static_cast<size_t>(conn.xc_named_data)) == 0;
}

void name_anew(XA_CONNECTION &conn, const XID &xid) {
  xid_copy(conn.xc_named_xid, xid);
  conn.xc_named_data = static_cast<int32_t>(xid_data_size(xid));
  conn.xc_name_length = static_cast<int32_t>(write_name(xid, conn.xc_lrm->lrm_name, conn.xc_name) - conn.xc_name);
}

}  // namespace

int32_t xa__dtm_encode(const void *bytes, int32_t count, char *out) {
  const auto *from = static_cast<const unsigned char *>(bytes);
  char *const start = out;
  for (; count >= 14; count -= 12, from += 12, out += 16) {
    put_six(out, from);
    put_six(out + 8, from + 6);
  }
  for (; count >= 3; count -= 3, from += 3) {
    out = put_group(out, static_cast<uint32_t>(from[0]) << 16 | static_cast<uint32_t>(from[1]) << 8 | from[2]);
  }
  if (count == 1) {
    out = put_pair(out, static_cast<uint32_t>(from[0]) << 4);
  } else if (count == 2) {
    const uint32_t group = static_cast<uint32_t>(from[0]) << 8 | from[1];
    out = put_pair(out, group >> 4);
    *out++ = xa_dtm_convtbl[(group << 2) & 63];
  }
  *out = '\0';
  return static_cast<int32_t>(out - start);
}

char *xa__dtm_encode_xid(const XID *xid, const char *lrm_name, char *out) {
  write_name(*xid, lrm_name, out);
  return out;
}

void dtm_name_branch(XA_CONNECTION *conn, const XID *xid) {
  if (!is_named(*conn, *xid)) {
    name_anew(*conn, *xid);
  }
}

int32_t xa__dtm_decode(const char *text, char *out) {
  char *const start = out;
  uint32_t group = 0;
  const char *rest = text;
  for (; take_four(rest, &group); rest += 4) {
    out = put_bytes(out, group, 3);
  }
  // What is left is the end of the text, or holds a character outside the alphabet.
  group = 0;
  int32_t left = 0;
  for (; *rest != '\0'; ++rest, ++left) {
    const int8_t value = value_of(*rest);
    if (value < 0) {
      LogLine("xa__dtm_decode", XALOG_WARNING, __LINE__)("Bad character in XID %c", *rest);
      return -1;
    }
    group |= static_cast<uint32_t>(value) << (18 - 6 * left);
  }
  // Two values give one more byte and three give two; a single one gives none.
  out = put_bytes(out, group, left > 1 ? left - 1 : 0);
  return static_cast<int32_t>(out - start);
}
