// The catalog's names in SQL, as clients write them and as SQLite reads them.
#pragma once

#include <string>
#include <string_view>

namespace zdb {

struct CatalogText {
  std::string sql;             // with "master..t" and "master.dbo.t" as "master.t"
  bool names_catalog = false;  // it names something in "master"
};

// Names inside texts, quoted names and comments are left alone.
CatalogText catalog_text(std::string_view sql);

}  // namespace zdb
