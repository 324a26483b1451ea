// Texts for the log: trace keywords, the decoders of flags, codes and XIDs, and the entry lines of the XA calls.
//
// Every result buffer is the calling thread's, so a text stays valid until that thread's next call with the same
// buffer. Of what threads share, only the trace mask is written, by OR.
#include <pthread.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/xal_lookup_results.h"
#include "base/xal_xa_names.h"
#include "base/xal_xid.h"
#include "log/xal_log.h"
#include "log/xal_trace_keywords.h"
#include "quillet.h"

namespace {

struct NamedCode {
  const char *name;
  int32_t code;
};

// clang-format off
// What a lookup answers beside XA codes.
constexpr NamedCode lookup_result_names[] = {
    // name                                          code
    {"XCRET_MATCH -- Found matching XID",            XCRET_MATCH},
    {"XCRET_CONN -- Found unused connection",        XCRET_CONN},
    {"XCRET_ASSOC -- Found associated connection",   XCRET_ASSOC},
    {"XCRET_SUSPEND -- Found suspended connection",  XCRET_SUSPEND},
    {"XCRET_RECOVER -- Found recovery connection",   XCRET_RECOVER},
    {"XCRET_NOCONN -- No connection found",          XCRET_NOCONN},
    {"XCRET_NOLRM -- No open resource found",        XCRET_NOLRM},
    {nullptr,                                        0},
};

constexpr NamedCode xacmn_log_csrc_tbl[] = {
    // name               code
    {"CS_SUCCEED",        CS_SUCCEED},
    {"CS_FAIL",           CS_FAIL},
    {"CS_MEM_ERROR",      CS_MEM_ERROR},
    {"CS_PENDING",        CS_PENDING},
    {"CS_QUIET",          CS_QUIET},
    {"CS_BUSY",           CS_BUSY},
    {"CS_INTERRUPT",      CS_INTERRUPT},
    {"CS_BLK_HAS_TEXT",   CS_BLK_HAS_TEXT},
    {"CS_CONTINUE",       CS_CONTINUE},
    {"CS_CANCELED",       CS_CANCELED},
    {"CS_ROW_FAIL",       CS_ROW_FAIL},
    {"CS_END_DATA",       CS_END_DATA},
    {"CS_END_RESULTS",    CS_END_RESULTS},
    {"CS_END_ITEM",       CS_END_ITEM},
    {"CS_NOMSG",          CS_NOMSG},
    {"CS_TIMED_OUT",      CS_TIMED_OUT},
    {"CS_PASSTHRU_EOM",   CS_PASSTHRU_EOM},
    {"CS_PASSTHRU_MORE",  CS_PASSTHRU_MORE},
    {"CS_TRYING",         CS_TRYING},
    {"CS_EBADPARAM",      CS_EBADPARAM},
    {"CS_EBADLEN",        CS_EBADLEN},
    {"CS_ENOCNVRT",       CS_ENOCNVRT},
    {"CS_EOVERFLOW",      CS_EOVERFLOW},
    {"CS_EUNDERFLOW",     CS_EUNDERFLOW},
    {"CS_EPRECISION",     CS_EPRECISION},
    {"CS_ESCALE",         CS_ESCALE},
    {"CS_ESYNTAX",        CS_ESYNTAX},
    {"CS_EFORMAT",        CS_EFORMAT},
    {"CS_EDOMAIN",        CS_EDOMAIN},
    {"CS_EDIVZERO",       CS_EDIVZERO},
    {"CS_ERESOURC",       CS_ERESOURC},
    {"CS_ENULLNOIND",     CS_ENULLNOIND},
    {"CS_ETRUNCNOIND",    CS_ETRUNCNOIND},
    {"CS_ENOBIND",        CS_ENOBIND},
    {"CS_TRUNCATED",      CS_TRUNCATED},
    {"CS_ESTYLE",         CS_ESTYLE},
    {"CS_EBADXLT",        CS_EBADXLT},
    {"CS_ENOXLT",         CS_ENOXLT},
    {nullptr,             0},
};
// clang-format on

constexpr int32_t text_size = 1024;
constexpr int32_t longest_hex = 64;  // bytes shown of a value

// The texts that decoders and entry lines hand out, one set for each thread that has asked for one. A key instead of
// thread-local variables: when there is no memory for those, the loader ends the process.
struct ThreadTexts {
  using Text = char[text_size];
  Text xalog_ent_buf;
  Text xacmn_log_retbuf;
  Text xacmn_log_dump_xarc_buf;
  Text xacmn_log_dump_csrc_buf;
  Text xacmn_log_dump_xaflags_buf;
  Text xacmn_log_dump_xid_buf;
};

constexpr char no_room[] = "<no memory>";  // stands for any text of a thread that could get no set

constinit pthread_once_t texts_once = PTHREAD_ONCE_INIT;
constinit pthread_key_t texts_key{};
constinit bool texts_have_key = false;

void make_texts_key() {
  texts_have_key = pthread_key_create(&texts_key, free) == 0;
}

// The calling thread's texts, null when there is no memory for them. They come from malloc, since they go with the
// thread, when the common routines may be gone.
ThreadTexts *texts_of_thread() {
  pthread_once(&texts_once, make_texts_key);
  if (!texts_have_key) {
    return nullptr;
  }
  void *texts = pthread_getspecific(texts_key);
  if (texts == nullptr) {
    texts = calloc(1, sizeof(ThreadTexts));
    if (texts != nullptr && pthread_setspecific(texts_key, texts) != 0) {
      free(texts);
      texts = nullptr;
    }
  }
  return static_cast<ThreadTexts *>(texts);
}

// Formats into one of the thread's texts.
[[gnu::format(printf, 2, 3)]] const char *formatted(ThreadTexts::Text ThreadTexts::*text, const char *format, ...) {
  ThreadTexts *texts = texts_of_thread();
  if (texts == nullptr) {
    return no_room;
  }
  va_list values;
  va_start(values, format);
  vsnprintf(texts->*text, text_size, format, values);
  va_end(values);
  return texts->*text;
}

const char *name_of(const NamedCode *table, int32_t code) {
  for (const NamedCode *row = table; row->name != nullptr; ++row) {
    if (row->code == code) {
      return row->name;
    }
  }
  return "";
}

}  // namespace

extern "C" {

// ---- Trace keywords -------------------------------------------------------------------------------------------------

const char *xacmn_log_trace_add(const char *text) {
  if (text == nullptr) {
    return nullptr;
  }
  if (const TraceKeyword *row = find_trace_keyword(text)) {
    xacmn_log_tracing.fetch_or(row->bits, std::memory_order_relaxed);
  }
  return text + trace_word_length(text);
}

// ---- Decoders -------------------------------------------------------------------------------------------------------

const char *xacmn_log_dump_xarc(int32_t code) {
  const char *name = name_of_xa_code(code);
  return formatted(&ThreadTexts::xacmn_log_dump_xarc_buf, "[%s]",
                   name != nullptr ? name : name_of(lookup_result_names, code));
}

const char *xacmn_log_dump_csrc(int32_t code) {
  return formatted(&ThreadTexts::xacmn_log_dump_csrc_buf, "[%s]", name_of(xacmn_log_csrc_tbl, code));
}

const char *xacmn_log_xareturn(int32_t code) {
  return formatted(&ThreadTexts::xacmn_log_retbuf, " retstat: %d (%s)", code, xacmn_log_dump_xarc(code));
}

const char *xacmn_log_csreturn(int32_t code) {
  return formatted(&ThreadTexts::xacmn_log_retbuf, "return, retstat: %d (%s)", code, xacmn_log_dump_csrc(code));
}

const char *xacmn_log_hexreturn(int32_t value) {
  if (value == 0) {
    return "value: <nil>";
  }
  return formatted(&ThreadTexts::xacmn_log_retbuf, "value: %lx ",
                   static_cast<unsigned long>(static_cast<uint32_t>(value)));
}

const char *xacmn_log_dump_xaflags(int32_t flags) {
  ThreadTexts *texts = texts_of_thread();
  if (texts == nullptr) {
    return no_room;
  }
  char *out = texts->xacmn_log_dump_xaflags_buf;
  *out++ = '[';
  auto rest = static_cast<uint32_t>(flags);
  for (const XaName &flag : xa_flag_names) {
    const auto bit = static_cast<uint32_t>(flag.number);
    if ((rest & bit) == 0) {
      continue;
    }
    if (out[-1] != '[') {
      *out++ = '|';
    }
    const size_t length = strlen(flag.name);
    memcpy(out, flag.name, length);
    out += length;
    rest &= ~bit;
  }
  *out++ = ']';
  *out = '\0';
  return texts->xacmn_log_dump_xaflags_buf;
}

char *xacmn_log_hex_sprintf(char *out, const void *bytes, int32_t count) {
  static constexpr char digits[] = "0123456789ABCDEF";
  if (out == nullptr) {
    return nullptr;
  }
  const auto *from = static_cast<const unsigned char *>(bytes);
  for (int32_t i = 0; from != nullptr && i < count && i < longest_hex; ++i) {
    if (i > 0 && i % 4 == 0) {
      *out++ = '.';
    }
    *out++ = digits[from[i] >> 4];
    *out++ = digits[from[i] & 15];
  }
  *out = '\0';
  return out;
}

const char *xacmn_log_dump_xid(const XID *xid) {
  if (xid == nullptr) {
    return "<nil>";
  }
  ThreadTexts *texts = texts_of_thread();
  if (texts == nullptr) {
    return no_room;
  }
  const int32_t gtrid = xid_clamped(xid->gtrid_length);
  char *out = texts->xacmn_log_dump_xid_buf;
  out += snprintf(out, text_size, "\t%d.%d.%d\n\t", xid->formatID, xid->gtrid_length, xid->bqual_length);
  out = xacmn_log_hex_sprintf(out, xid->data, gtrid);
  *out++ = '\n';
  *out++ = '\t';
  out = xacmn_log_hex_sprintf(out, xid->data + gtrid, xid_clamped(xid->bqual_length));
  *out++ = '\n';
  *out = '\0';
  return texts->xacmn_log_dump_xid_buf;
}

// ---- Entry lines ----------------------------------------------------------------------------------------------------

const char *xalog_entr_dft(int32_t rmid, int32_t flags, const XID *xid) {
  return formatted(&ThreadTexts::xalog_ent_buf, "rmid: %d, flags:%s XID:%s", rmid, xacmn_log_dump_xaflags(flags),
                   xacmn_log_dump_xid(xid));
}

const char *xalog_entr_recover(int32_t rmid, int32_t flags, int32_t count) {
  return formatted(&ThreadTexts::xalog_ent_buf, "rmid: %d, flags:%s, count: %d", rmid, xacmn_log_dump_xaflags(flags),
                   count);
}

const char *xalog_entr_info(int32_t rmid, int32_t flags, const char *info) {
  return formatted(&ThreadTexts::xalog_ent_buf, "rmid: %d, flags:%s, info: %s", rmid, xacmn_log_dump_xaflags(flags),
                   info != nullptr ? info : "<nil>");
}

const char *xalog_xa_name(int32_t index) {
  static constexpr const char *names[] = {"xa_open",   "xa_close",    "xa_start",    "xa_end",    "xa_prepare",
                                          "xa_commit", "xa_rollback", "xa_complete", "xa_forget", "xa_recover"};
  constexpr auto count = static_cast<int32_t>(sizeof names / sizeof names[0]);
  return index >= 0 && index < count ? names[index] : "unknown";
}

}  // extern "C"
