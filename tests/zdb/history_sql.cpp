/* history_sql.cpp - see the header. */
#include "history_sql.h"

#include <sstream>

namespace {

struct Kind {
  const char *definition;
  std::vector<std::string> columns; /* to be written to */
};

const std::vector<Kind> &kinds() {
  static const std::vector<Kind> all = {
      {"(id integer primary key, a, b text)", {"id", "a", "b"}},
      {"(id integer primary key autoincrement, a int, b real default 1.5)", {"a", "b"}},
      {"(a, b, c blob)", {"a", "b", "c"}},
      {"(a text collate nocase primary key, b, c)", {"a", "b", "c"}},
      {"(r real, k primary key, v) without rowid", {"r", "k", "v"}},
      {"(k real primary key, a, b)", {"k", "a", "b"}},
      {"(k blob primary key, a numeric)", {"k", "a"}},
      {"(k any, a, unique (k, a))", {"k", "a"}},
      {"(a int, b int, c, primary key (b, a)) without rowid", {"a", "b", "c"}},
      {"(id integer primary key, a int check (a < 50), g as (a * 2) stored, h as (a || 'x'))", {"id", "a"}},
      {"(id integer primary key desc, a unique, b unique on conflict replace)", {"id", "a", "b"}},
      {"(a text, b, primary key (a), foreign key (b) references t0 (id) on delete cascade)", {"a", "b"}},
      {"(a any, b any, c) strict", {"a", "b"}},
      {"(a any, b text not null default 'd', c int) strict", {"a", "b", "c"}},
  };
  return all;
}

std::string joined(const std::vector<std::string> &texts) {
  std::string all;
  for (const std::string &text : texts) {
    all.append(all.empty() ? "" : ", ").append(text);
  }
  return all;
}

std::string numbered(const char *text, int number) {
  return text + std::to_string(number);
}

}  // namespace

std::string HistorySql::value() {
  static const std::vector<std::string> values = {
      "null", "0",     "1",   "1.0", "'1'", "2",     "-9223372036854775808",     "4000000000000",  "'A'", "'a'",
      "''",   "x'01'", "x''", "2.5", "1e9", "'0x1'", "printf('%.*c', 900, 'y')", "zeroblob(6000)", "7",   "'b'"};
  return below(3) == 0 ? std::to_string(below(20)) : any(values);
}

std::string HistorySql::create(const std::string &name) {
  const Kind &kind = kinds()[static_cast<std::size_t>(below(static_cast<int>(kinds().size())))];
  tables_.push_back({name, kind.columns});
  return "create table " + name + " " + kind.definition;
}

std::vector<std::string> HistorySql::tables() {
  std::vector<std::string> made;
  const int count = 2 + below(3);
  for (int table = 0; table < count; ++table) {
    made.push_back(create(numbered("t", table)));
  }
  for (int row = 0; row < 8; ++row) {
    made.push_back(insert("insert or ignore"));
  }
  return made;
}

std::string HistorySql::where(const Table &table) {
  if (below(6) == 0) {
    return "";
  }
  static const std::vector<std::string> comparisons = {" = ", " < ", " >= ", " is "};
  return " where " + any(table.columns) + any(comparisons) + value();
}

std::string HistorySql::insert(const std::string &verb) {
  const Table &table = any_table();
  std::string sql = verb + " into " + table.name + " (" + joined(table.columns) + ") ";
  if (below(6) == 0) {
    const Table &from = any_table();
    std::vector<std::string> taken;
    for (std::size_t column = 0; column < table.columns.size(); ++column) {
      taken.push_back(any(from.columns));
    }
    return sql + "select " + joined(taken) + " from " + from.name + where(from) + " limit 30";
  }
  const int rows = 1 + below(below(4) == 0 ? 40 : 3);
  for (int row = 0; row < rows; ++row) {
    std::vector<std::string> values;
    for (std::size_t column = 0; column < table.columns.size(); ++column) {
      values.push_back(value());
    }
    sql.append(row == 0 ? "values (" : ", (").append(joined(values)).append(")");
  }
  const std::string &column = any(table.columns);
  static const std::vector<std::string> ends = {"", "", " on conflict do nothing", " returning 1"};
  return below(5) == 0 ? sql + " on conflict do update set " + column + " = excluded." + column : sql + any(ends);
}

std::string HistorySql::update() {
  static const std::vector<std::string> verbs = {"update ", "update ", "update or ignore ", "update or replace ",
                                                 "update or fail "};
  const Table &table = any_table();
  const std::string &column = any(table.columns);
  const std::string begin = any(verbs) + table.name + " set " + column + " = ";
  switch (below(4)) {
    case 0:
      return begin + any(table.columns) + where(table);
    case 1: {
      const Table &from = any_table();
      return begin + "f." + any(from.columns) + " from " + from.name + " as f where f." + any(from.columns) + " = " +
             table.name + "." + any(table.columns);
    }
    default:
      return begin + value() + where(table);
  }
}

std::string HistorySql::remove() {
  const Table &table = any_table();
  return "delete from " + table.name + (below(4) == 0 ? "" : where(table)) + (below(6) == 0 ? " returning *" : "");
}

std::string HistorySql::change_tables() {
  const Table &table = any_table();
  const Table &other = any_table();
  const int number = below(3);
  switch (below(10)) {
    case 0:
      return "create table " + numbered("n", number) + kinds()[static_cast<std::size_t>(below(12))].definition;
    case 1:
      return "drop table " + numbered("n", number);
    case 2:
      return "alter table " + table.name + " add column " + numbered("x", number) + " default 5";
    case 3:
      return "alter table " + table.name + " rename column " + numbered("x", number) + " to " + numbered("y", number);
    case 4:
      return "create index " + numbered("i", number) + " on " + table.name + " (" + any(table.columns) + ")";
    case 5:
      return "drop index " + numbered("i", number);
    case 6:
      return "create trigger " + numbered("g", number) + " after update on " + table.name +
             " begin insert or ignore into " + other.name + " (" + other.columns[0] + ") values (new." +
             any(table.columns) + "); end";
    case 7:
      return "create trigger " + numbered("g", number) + " before delete on " + table.name + " begin delete from " +
             other.name + " where " + any(other.columns) + " = old." + any(table.columns) + "; end";
    case 8:
      return "drop trigger " + numbered("g", number);
    default:
      return below(2) == 0 ? "analyze" : "reindex";
  }
}

std::string HistorySql::statement() {
  static const std::vector<std::string> verbs = {"insert",          "insert or ignore",  "insert or fail",
                                                 "insert or abort", "insert or replace", "replace"};
  switch (below(8)) {
    case 0:
    case 1:
    case 2:
      return insert(any(verbs));
    case 3:
    case 4:
      return update();
    case 5:
      return remove();
    case 6:
      return change_tables();
    default:
      return "select * from " + any_table().name;
  }
}

std::vector<std::string> HistorySql::statements() {
  std::vector<std::string> made;
  const int count = 1 + below(8);
  for (int place = 0; place < count; ++place) {
    made.push_back(statement());
  }
  return made;
}

// ---- Contents -------------------------------------------------------------------------------------------------------

std::string rows_of(const zdb::SqlOutcome &outcome) {
  std::ostringstream text;
  text << (outcome.failed ? "failed" : "");
  for (const zdb::Result &result : outcome.results) {
    for (const auto &row : result.rows) {
      for (const zdb::Value &value : row) {
        text << value.index() << ':';
        if (const auto *number = std::get_if<int64_t>(&value)) {
          text << *number;
        } else if (const auto *real = std::get_if<double>(&value)) {
          text << *real;
        } else if (const auto *binary = std::get_if<zdb::Binary>(&value)) {
          text << binary->bytes;
        } else if (const auto *string = std::get_if<std::string>(&value)) {
          text << *string;
        }
        text << '|';
      }
      text << '\n';
    }
  }
  return text.str();
}

std::string rows_of(const zdb::Database &database, const std::string &sql) {
  zdb::SqlOutcome outcome;
  outcome.results.emplace_back();
  try {
    zdb::Statement statement(database, sql);
    while (statement.step()) {
      std::vector<zdb::Value> row;
      for (int column = 0; column < sqlite3_column_count(statement.handle()); ++column) {
        switch (sqlite3_column_type(statement.handle(), column)) {
          case SQLITE_INTEGER:
            row.emplace_back(statement.integer(column));
            break;
          case SQLITE_FLOAT:
            row.emplace_back(sqlite3_column_double(statement.handle(), column));
            break;
          case SQLITE_TEXT:
            row.emplace_back(statement.text(column));
            break;
          case SQLITE_BLOB:
            row.emplace_back(zdb::Binary{statement.blob(column)});
            break;
          default:
            row.emplace_back();
        }
      }
      outcome.results[0].rows.push_back(std::move(row));
    }
  } catch (const zdb::SqliteError &) {
    outcome.failed = true;
  }
  return rows_of(outcome);
}

std::string content(const std::function<std::string(const std::string &sql)> &query) {
  std::string all =
      query("select type, name, tbl_name, sql from sqlite_schema where tbl_name <> 'zdb_mark' order by 1, 2");
  const std::vector<std::string> names = {"t0", "t1", "t2", "t3", "t4", "n0", "n1", "n2", "sqlite_sequence"};
  for (const std::string &name : names) {
    const std::string rows = query("select rowid, * from " + name);
    all.append(name).append("\n").append(rows.starts_with("failed") ? query("select * from " + name) : rows);
  }
  return all + query("select * from sqlite_stat1 order by 1, 2, 3");
}
