// Reads a script's text line by line, along a table of the verbs and their arguments.
//
// Sections: the verb table; single arguments; expectations; lines; the whole script.
#include "parser.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <span>

#include "hex_text.h"
#include "open_string.h"
#include "tokens.h"
#include "xa_names.h"

namespace {

// One letter an argument: see take_argument.
struct VerbForm {
  std::string_view word;
  Verb verb;
  ResultKind kind;
  std::string_view arguments;
  std::string_view form;
};

// clang-format off
constexpr VerbForm verb_forms[] = {
  // word        verb              result                    args    form
  {"open",      Verb::open,       ResultKind::xa_code,      "rsf",  "open RMID \"OPEN STRING\"|null [FLAGS]"},
  {"close",     Verb::close,      ResultKind::xa_code,      "rSf",  "close RMID [\"CLOSE STRING\"] [FLAGS]"},
  {"start",     Verb::start,      ResultKind::xa_code,      "rxf",  "start RMID XID [FLAGS]"},
  {"end",       Verb::end,        ResultKind::xa_code,      "rxF",  "end RMID XID FLAGS"},
  {"prepare",   Verb::prepare,    ResultKind::xa_code,      "rxf",  "prepare RMID XID [FLAGS]"},
  {"commit",    Verb::commit,     ResultKind::xa_code,      "rxf",  "commit RMID XID [FLAGS]"},
  {"rollback",  Verb::rollback,   ResultKind::xa_code,      "rxf",  "rollback RMID XID [FLAGS]"},
  {"forget",    Verb::forget,     ResultKind::xa_code,      "rxf",  "forget RMID XID [FLAGS]"},
  {"recover",   Verb::recover,    ResultKind::xid_count,    "rnF",  "recover RMID COUNT FLAGS"},
  {"complete",  Verb::complete,   ResultKind::xa_code,      "rf",   "complete RMID [FLAGS]"},
  {"sql",       Verb::sql,        ResultKind::sql,          "rq",   "sql RMID \"SQL\""},
  {"statement", Verb::statement,  ResultKind::number,       "r",    "statement RMID"},
  {"server",    Verb::server,     ResultKind::answer,       "w",    "server NAME"},
  {"user",      Verb::user,       ResultKind::answer,       "wwwR", "user SERVER USER PASSWORD [nodtm]"},
  {"dtm",       Verb::dtm,        ResultKind::answer,       "wo",   "dtm SERVER on|off"},
  {"force",     Verb::force,      ResultKind::answer,       "wxwc", "force SERVER XID LRM commit|rollback"},
  {"break",     Verb::disconnect, ResultKind::number,       "wW",   "break SERVER [USER]"},
  {"state",     Verb::state,      ResultKind::branch_state, "wxw",  "state SERVER XID LRM"},
  {"env",       Verb::env,        ResultKind::nothing,      "ww",   "env NAME VALUE"},
  {"sleep",     Verb::sleep,      ResultKind::nothing,      "t",    "sleep SECONDS"},
  {"echo",      Verb::echo,       ResultKind::nothing,      "*",    "echo TEXT"},
  {"wait",      Verb::wait,       ResultKind::nothing,      "w",    "wait THREAD"},
  {"flavour",   Verb::flavour,    ResultKind::nothing,      "w",    "flavour mts|tux|txs"},
  {"xid",       Verb::xid,        ResultKind::nothing,      "wibb", "xid NAME FORMATID GTRID BQUAL"},
};
// clang-format on

constexpr int32_t most_xids = 100000;
constexpr double longest_sleep = 3600;

bool is_library_call(Verb verb) {
  return verb <= Verb::statement;
}

const VerbForm &form_of(const Token &token) {
  for (const VerbForm &form : verb_forms) {
    if (token.is(form.word)) {
      return form;
    }
  }
  throw ScriptError(quoted(token.text) + " is no verb; --help lists them");
}

}  // namespace

// Single arguments.

namespace {

// The words of a line that have not been read yet.
class Rest {
 public:
  explicit Rest(std::span<const Token> tokens) : tokens_(tokens) {}

  bool empty() const { return tokens_.empty(); }
  const Token &peek() const { return tokens_.front(); }
  const Token &take(const char *missing) {
    if (tokens_.empty()) {
      throw ScriptError(std::string(missing) + " is missing");
    }
    const Token &token = tokens_.front();
    tokens_ = tokens_.subspan(1);
    return token;
  }

 private:
  std::span<const Token> tokens_;
};

int32_t integer_argument(const Token &token, const char *what) {
  const std::optional<int32_t> number = token.quoted ? std::nullopt : integer_of(token.text);
  if (!number) {
    throw ScriptError(std::string(what) + " must be a number of 32 bits, not " + quoted(token.text));
  }
  return *number;
}

int32_t flags_argument(const Token &token) {
  const std::optional<int32_t> flags = token.quoted ? std::nullopt : flags_of(token.text);
  if (!flags) {
    throw ScriptError(quoted(token.text) + " is no flag word; join TM... names with '|', or write 0x and hex digits");
  }
  return *flags;
}

std::string bytes_argument(const std::string &digits) {
  const std::optional<std::string> bytes = bytes_of_hex(digits);
  if (!bytes) {
    throw ScriptError(quoted(digits) + " is no row of hexadecimal digit pairs; put plain text in quotes");
  }
  return *bytes;
}

int32_t choice_argument(const Token &token, const char *yes, const char *no) {
  if (!token.is(yes) && !token.is(no)) {
    throw ScriptError("write " + std::string(yes) + " or " + no + " instead of " + quoted(token.text));
  }
  return token.is(yes) ? 1 : 0;
}

double seconds_argument(const Token &token) {
  double seconds = 0;
  const char *end = token.text.data() + token.text.size();
  const auto [stop, error] = std::from_chars(token.text.data(), end, seconds);
  if (error != std::errc{} || stop != end || !(seconds >= 0 && seconds <= longest_sleep)) {
    throw ScriptError("SECONDS must be a number from 0 to 3600, not " + quoted(token.text));
  }
  return seconds;
}

int32_t scan_places_argument(const Token &token) {
  const int32_t places = integer_argument(token, "COUNT");
  if (places > most_xids) {
    throw ScriptError("COUNT may be at most " + std::to_string(most_xids));
  }
  return places;
}

std::optional<std::string> info_argument(const Token &token) {
  if (token.is("null")) {
    return std::nullopt;
  }
  if (!token.quoted) {
    throw ScriptError("put the string " + token.text + " in double quotes (or write null)");
  }
  return token.text;
}

std::string sql_argument(const Token &token) {
  if (!token.quoted) {
    throw ScriptError("put the SQL " + token.text + " in double quotes");
  }
  return token.text;
}

std::optional<XID> xid_argument(const Token &token, XidBook &xids) {
  if (token.is("null")) {
    return std::nullopt;
  }
  return xids.get(token.text);
}

// Adds one word to the command as it is shown.
void show(Command &command, const std::string &word) {
  command.shown += ' ';
  command.shown += word;
}

std::string spelt(const Token &token) {
  return token.quoted ? quoted(token.text) : token.text;
}

// Only the bytes of an XID may be anything; other texts end at a null byte when they are passed on.
void check_text(char letter, const Token &token) {
  if (letter != 'b' && token.text.find('\0') != std::string::npos) {
    throw ScriptError(quoted(token.text) + " holds a null byte; take it out");
  }
}

void take_optional(char letter, Rest &rest, Command &command) {
  switch (letter) {
    case 'f':  // flags, none by default
      command.flags = rest.empty() ? TMNOFLAGS : flags_argument(rest.take("FLAGS"));
      show(command, flags_text(command.flags));
      return;
    case 'S':  // a close string, empty by default
      command.info = "";
      if (!rest.empty() && (rest.peek().quoted || rest.peek().is("null"))) {
        const Token &token = rest.take("the string");
        check_text(letter, token);
        command.info = info_argument(token);
        show(command, spelt(token));
      }
      return;
    case 'R':  // the mark of a login without the DTM role
      command.number = rest.empty() ? 1 : choice_argument(rest.take("nodtm"), "dtm", "nodtm");
      command.shown += command.number == 0 ? " nodtm" : "";
      return;
    case 'W':  // one more name
      if (!rest.empty()) {
        command.words.push_back(rest.take("the name").text);
        show(command, command.words.back());
      }
      return;
    default:  // '*': all that is left
      while (!rest.empty()) {
        const Token &token = rest.take("the text");
        command.words.push_back(token.text);
        show(command, spelt(token));
      }
  }
}

void take_required(char letter, const Token &token, Command &command, XidBook &xids) {
  check_text(letter, token);
  switch (letter) {
    case 'r':
      command.rmid = integer_argument(token, "RMID");
      break;
    case 's':
      command.info = info_argument(token);
      break;
    case 'q':
      command.info = sql_argument(token);
      break;
    case 'x':
      command.xid = xid_argument(token, xids);
      break;
    case 'F':
      command.flags = flags_argument(token);
      show(command, flags_text(command.flags));
      return;
    case 'n':
      command.number = scan_places_argument(token);
      break;
    case 'o':
      command.number = choice_argument(token, "on", "off");
      break;
    case 'c':
      command.number = choice_argument(token, "commit", "rollback");
      break;
    case 't':
      command.seconds = seconds_argument(token);
      break;
    case 'i':
      command.number = integer_argument(token, "FORMATID");
      break;
    case 'b':
      command.words.push_back(token.quoted ? token.text : bytes_argument(token.text));
      break;
    default:  // 'w'
      command.words.push_back(token.text);
  }
  show(command, spelt(token));
}

void take_argument(char letter, Rest &rest, Command &command, XidBook &xids) {
  static constexpr std::string_view optional_letters = "fSRW*";
  if (optional_letters.find(letter) != std::string_view::npos) {
    take_optional(letter, rest, command);
  } else {
    take_required(letter, rest.take("an argument"), command, xids);
  }
}

}  // namespace

// Expectations.

namespace {

std::optional<int32_t> expected_code(ResultKind kind, const std::string &text) {
  switch (kind) {
    case ResultKind::answer:
      return number_of(Vocabulary::answers, text);
    case ResultKind::branch_state:
      return number_of(Vocabulary::branch_states, text);
    case ResultKind::sql:
      return number_of(Vocabulary::sql_results, text);
    default:
      break;
  }
  const std::optional<int32_t> code = number_of(Vocabulary::xa_codes, text);
  return code ? code : integer_of(text);
}

std::string results_of(ResultKind kind) {
  switch (kind) {
    case ResultKind::answer:
      return "done or refused";
    case ResultKind::branch_state:
      return names_of(Vocabulary::branch_states);
    case ResultKind::sql:
      return "ok (and perhaps rows in double quotes), failed or none";
    case ResultKind::xa_code:
      return "an XA code such as XA_OK or XAER_NOTA";
    default:
      return "a number or an XA code such as XAER_PROTO";
  }
}

// The names of the XIDs that a scan is to return: all or none.
void take_xids(Rest &rest, Expectation &expected, XidBook &xids) {
  const std::string count = expected.text;
  while (!rest.empty()) {
    const std::string &name = rest.take("an XID").text;
    xids.get(name);
    expected.xids.push_back(name);
    expected.text += ' ';
    expected.text += name;
  }
  if (!expected.xids.empty() && expected.xids.size() != static_cast<size_t>(std::max(expected.code, 0))) {
    throw ScriptError("the result names " + std::to_string(expected.xids.size()) + " XIDs but counts " + count +
                      "; name all of them or none");
  }
  std::sort(expected.xids.begin(), expected.xids.end());
}

void take_rows(Rest &rest, Expectation &expected) {
  while (!rest.empty()) {
    const Token &token = rest.take("a row");
    if (!token.quoted) {
      throw ScriptError("put the row " + token.text + " in double quotes");
    }
    expected.rows.push_back(token.text);
    expected.text += ' ';
    expected.text += quoted(token.text);
  }
}

// The expectation behind "=>".
Expectation take_expectation(ResultKind kind, Rest &rest, XidBook &xids) {
  const Token &result = rest.take("the result after =>");
  const std::optional<int32_t> code = expected_code(kind, result.text);
  if (!code) {
    throw ScriptError(quoted(result.text) + " is no result; write " + results_of(kind));
  }
  Expectation expected{*code, {}, {}, result.text};
  if (kind == ResultKind::xid_count) {
    take_xids(rest, expected, xids);
  } else if (kind == ResultKind::sql && *code == sql_ok) {
    take_rows(rest, expected);
  }
  return expected;
}

void take_result(Rest &rest, Command &command, XidBook &xids) {
  if (command.kind == ResultKind::answer) {
    command.expected = Expectation{1, {}, {}, "done"};
  }
  if (rest.empty()) {
    return;
  }
  rest.take("=>");
  if (command.kind == ResultKind::nothing) {
    throw ScriptError("take => and what follows away; this line has no result");
  }
  command.expected = take_expectation(command.kind, rest, xids);
  if (!rest.empty()) {
    throw ScriptError("take " + quoted(rest.peek().text) + " away; one result is enough");
  }
}

}  // namespace

// Lines.

namespace {

class ScriptParser {
 public:
  explicit ScriptParser(Script &script) : script_(script) {}

  void parse_line(int number, std::string_view line);

 private:
  void take_thread(Rest &rest, Command &command);
  void take_arguments(const VerbForm &form, std::span<const Token> arguments, Command &command);
  void settle(Command command);
  void settle_open(const Command &command);
  void settle_sql(Command &command) const;

  Script &script_;
  std::map<int32_t, std::string> open_strings_;  // by rmid, the last that names an LRM
  std::set<std::string> threads_;
  bool opened_ = false;
  bool called_ = false;
};

}  // namespace

// Takes "@NAME" or "@NAME&" when the line begins with it.
void ScriptParser::take_thread(Rest &rest, Command &command) {
  command.thread = main_thread;
  if (rest.peek().quoted || !rest.peek().text.starts_with('@')) {
    return;
  }
  std::string name = rest.take("the thread").text.substr(1);
  if (name.ends_with('&')) {
    name.pop_back();
    command.background = true;
  }
  if (name.empty()) {
    throw ScriptError("put the thread's name directly after @");
  }
  if (command.background && name == main_thread) {
    throw ScriptError("the main thread cannot run in the background; name another thread");
  }
  command.thread = name;
  threads_.insert(name);
}

void ScriptParser::take_arguments(const VerbForm &form, std::span<const Token> arguments, Command &command) {
  Rest rest(arguments);
  try {
    for (const char letter : form.arguments) {
      take_argument(letter, rest, command, script_.xids);
    }
    if (!rest.empty()) {
      throw ScriptError(quoted(rest.peek().text) + " is too much");
    }
  } catch (const ScriptError &error) {
    throw ScriptError(std::string(error.what()) + "; the line's form is: " + std::string(form.form));
  }
}

void ScriptParser::settle_open(const Command &command) {
  opened_ = true;
  if (command.info && !option_of(*command.info, 'N').empty()) {
    open_strings_[command.rmid] = *command.info;
  }
}

// The name under which the library publishes the resource manager's connection is known from its open string only.
void ScriptParser::settle_sql(Command &command) const {
  const auto opened = open_strings_.find(command.rmid);
  if (opened == open_strings_.end()) {
    throw ScriptError("no line above opens RMID " + std::to_string(command.rmid) +
                      " with an LRM name (-N), so there is no connection to look for; put the open line first");
  }
  command.lrm = option_of(opened->second, 'N');
  command.lookup_key = option_of(opened->second, 'K');
}

// The rules that look beyond one line; then the command is the script's.
void ScriptParser::settle(Command command) {
  const bool of_main = command.thread == main_thread;
  switch (command.verb) {
    case Verb::flavour:
      if (!is_flavour(command.words[0])) {
        throw ScriptError(quoted(command.words[0]) + " is no flavour; write mts, tux or txs");
      }
      if (called_ || !script_.flavour.empty()) {
        throw ScriptError("write one flavour line, before the first XA call");
      }
      script_.flavour = command.words[0];
      return;
    case Verb::xid:
      script_.xids.define(command.words[0], command.number, command.words[1], command.words[2]);
      return;
    case Verb::env:
      if (opened_ || !of_main) {
        throw ScriptError("env works on the main thread and before the first open; move the line up");
      }
      if (command.words[0].empty() || command.words[0].find('=') != std::string::npos) {
        throw ScriptError(quoted(command.words[0]) + " can be no variable's name; write env NAME VALUE");
      }
      break;
    case Verb::open:
      settle_open(command);
      break;
    case Verb::sql:
      settle_sql(command);
      break;
    case Verb::wait:
      if (!of_main || command.words[0] == main_thread || !threads_.contains(command.words[0])) {
        throw ScriptError("wait is for the main thread and names a thread that a line above uses");
      }
      break;
    case Verb::state:
    case Verb::force:
      if (!command.xid) {
        throw ScriptError("name an XID here instead of null");
      }
      break;
    default:
      break;
  }
  called_ = called_ || is_library_call(command.verb);
  script_.commands.push_back(std::move(command));
}

void ScriptParser::parse_line(int number, std::string_view line) {
  const std::vector<Token> tokens = tokens_of(line);
  if (tokens.empty()) {
    return;
  }
  Command command;
  command.line = number;
  Rest rest(tokens);
  take_thread(rest, command);
  const VerbForm &form = form_of(rest.take("the verb after the thread's name"));
  command.verb = form.verb;
  command.kind = form.kind;
  command.shown = form.word;

  std::vector<Token> arguments;
  while (!rest.empty() && (form.verb == Verb::echo || !rest.peek().is("=>"))) {
    arguments.push_back(rest.take("an argument"));
  }
  take_arguments(form, arguments, command);
  take_result(rest, command, script_.xids);
  settle(std::move(command));
}

// The whole script.

Script parse_script(const std::string &file, std::string_view text, std::vector<std::string> &errors) {
  Script script;
  script.file = file;
  ScriptParser parser(script);
  for (int number = 1; !text.empty(); ++number) {
    const size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    try {
      parser.parse_line(number, line);
    } catch (const ScriptError &error) {
      errors.push_back(std::to_string(number) + ": " + error.what());
    }
  }
  return script;
}

std::string script_forms() {
  std::string text;
  for (const VerbForm &form : verb_forms) {
    text += "  " + std::string(form.form) + "\n";
  }
  return text;
}

bool is_flavour(std::string_view name) {
  return name == "mts" || name == "tux" || name == "txs";
}
