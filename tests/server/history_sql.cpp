// See the header.
#include "history_sql.h"

namespace {

const std::vector<std::string> columns = {"k", "c", "v"};

std::string numbered(const char *text, int number) {
  return text + std::to_string(number);
}

}  // namespace

const std::vector<std::string> &table_kinds() {
  static const std::vector<std::string> all = {
      "create table T (k integer primary key, c, v unique)",
      "create table T (k integer primary key autoincrement, c, v)",
      "create table T (k text collate nocase primary key, c, v)",
      "create table T (k, c, v)",
      "create table T (k primary key, c, v)",
      "create table T (k real primary key, c real, v)",
      "create table T (k blob primary key, c, v any, check (rowid < 2000))",
      "create table T (v real, c, k primary key) without rowid",
      "create table T (c, k, v, primary key (c, k desc)) without rowid",
      "create table T (k integer primary key, c, v, g as (c || v), s not null default (1 + 1), check (k < 2000))",
      "create table T (k, c, v, g generated always as (k + 1) stored unique)",
      "create table T (k, c, v); create unique index T_i on T (k, v) where c is not null; create index T_e on T (c || "
      "v)",
      "create table T (k, c, v); create table T_log (e, k); create trigger T_i after insert on T begin "
      "insert into T_log values ('in', new.k); end; create trigger T_d before delete on T begin "
      "insert into T_log values ('out', old.k); insert into T_log values (changes(), last_insert_rowid()); end",
      "create table T (k, c, v references T_p on delete cascade); create table T_p (i primary key)",
      "create table T (k integer primary key desc, c unique, v unique on conflict replace)",
      "create table T (k any, c any not null default 'd', v any, unique (k, c)) strict",
  };
  return all;
}

std::string with_name(std::string text, const std::string &name) {
  for (std::size_t at = text.find('T'); at != std::string::npos; at = text.find('T', at + name.size())) {
    text.replace(at, 1, name);
  }
  return text;
}

std::string HistorySql::value() {
  static const std::vector<std::string> values = {
      "null", "0",     "1",   "1.0", "'1'", "2",     "-9223372036854775808",     "4000000000000",  "'A'", "'a'",
      "''",   "x'01'", "x''", "2.5", "1e9", "'0x1'", "printf('%.*c', 900, 'y')", "zeroblob(6000)", "7",   "'b'"};
  return below(3) == 0 ? std::to_string(below(20)) : any(values);
}

std::string HistorySql::create(const std::string &name) {
  return with_name(any(table_kinds()), name);
}

std::vector<std::string> HistorySql::tables() {
  std::vector<std::string> made;
  const int count = 2 + below(3);
  for (int table = 0; table < count; ++table) {
    tables_.push_back(numbered("t", table));
    made.push_back(create(tables_.back()));
  }
  for (int row = 0; row < 8; ++row) {
    made.push_back(insert("insert or ignore"));
  }
  return made;
}

std::string HistorySql::where() {
  if (below(6) == 0) {
    return "";
  }
  static const std::vector<std::string> comparisons = {" = ", " < ", " >= ", " is "};
  return " where " + any(columns) + any(comparisons) + value();
}

std::string HistorySql::insert(const std::string &verb) {
  std::string sql = verb + " into " + any_table() + " (k, c, v) ";
  if (below(6) == 0) {
    sql.append("select ").append(any(columns)).append(", ").append(any(columns)).append(", ").append(any(columns));
    return sql.append(" from ").append(any_table()).append(where()).append(" limit 30");
  }
  const int rows = 1 + below(below(4) == 0 ? 40 : 3);
  for (int row = 0; row < rows; ++row) {
    sql.append(row == 0 ? "values (" : ", (").append(value()).append(", ").append(value());
    sql.append(", ").append(value()).append(")");
  }
  const std::string &column = any(columns);
  static const std::vector<std::string> ends = {"", "", " on conflict do nothing", " returning 1"};
  return below(5) == 0 ? sql + " on conflict do update set " + column + " = excluded." + column : sql + any(ends);
}

std::string HistorySql::update() {
  static const std::vector<std::string> verbs = {"update ", "update ", "update or ignore ", "update or replace ",
                                                 "update or fail "};
  const std::string &table = any_table();
  const std::string &column = any(columns);
  const std::string begin = any(verbs) + table + " set " + column + " = ";
  switch (below(4)) {
    case 0:
      return begin + any(columns) + where();
    case 1: {
      const std::string &from = any_table();
      return begin + "f." + any(columns) + " from " + from + " as f where f." + any(columns) + " = " + table + "." +
             any(columns);
    }
    default:
      return begin + value() + where();
  }
}

std::string HistorySql::remove() {
  const std::string &table = any_table();
  return "delete from " + table + (below(4) == 0 ? "" : where()) + (below(6) == 0 ? " returning *" : "");
}

std::string HistorySql::change_tables() {
  const std::string &table = any_table();
  const std::string &other = any_table();
  const int number = below(3);
  switch (below(10)) {
    case 0:
      return create(numbered("n", number));
    case 1:
      return "drop table " + numbered("n", number);
    case 2:
      return "alter table " + table + " add column " + numbered("x", number) + " default 5";
    case 3:
      return "alter table " + table + " rename column " + numbered("x", number) + " to " + numbered("y", number);
    case 4:
      return "create index " + numbered("i", number) + " on " + table + " (" + any(columns) + ")";
    case 5:
      return "drop index " + numbered("i", number);
    case 6:
      return "create trigger " + numbered("g", number) + " after update on " + table + " begin insert or ignore into " +
             other + " (" + any(columns) + ") values (new." + any(columns) + "); end";
    case 7:
      return "create trigger " + numbered("g", number) + " before delete on " + table + " begin delete from " + other +
             " where " + any(columns) + " = old." + any(columns) + "; end";
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
      return "select * from " + any_table();
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

namespace {

// Values with their types; "failed" when there is no such thing.
std::string rows_of(const zdb::Database &database, const std::string &sql) {
  std::string rows;
  try {
    zdb::Statement statement(database, sql);
    while (statement.step()) {
      for (int column = 0; column < sqlite3_column_count(statement.handle()); ++column) {
        const int type = sqlite3_column_type(statement.handle(), column);
        rows.append(std::to_string(type)).append(":").append(statement.text(column)).append("|");
      }
      rows += '\n';
    }
    return rows;
  } catch (const zdb::SqliteError &) {
    return "failed";
  }
}

}  // namespace

std::string content(const zdb::Database &database) {
  std::string all = rows_of(
      database, "select type, name, tbl_name, sql from sqlite_schema where tbl_name <> 'zdb_mark' order by 1, 2");
  zdb::Statement names(database,
                       "select name from sqlite_schema where type = 'table' and name <> 'zdb_mark' and name "
                       "not like 'sqlite_stat%' order by 1");
  while (names.step()) {
    const std::string from = " from " + names.text(0);
    const std::string rows = rows_of(database, "select rowid, *" + from);
    all.append(from).append("\n").append(rows == "failed" ? rows_of(database, "select *" + from) : rows);
  }
  return all + rows_of(database, "select * from sqlite_stat1 order by 1, 2, 3");
}
