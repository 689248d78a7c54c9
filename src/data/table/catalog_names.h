// The names under which the catalog finds tables and indices.
#pragma once

#include "data/table/table.h"
#include "frame/status.h"

namespace tovik {

// yes: *id, *descriptor are set. failed: what the search recorded stands.
Found table_name_find(Catalog &catalog, const char *name, RowNo *id);
Found index_name_find(Catalog &catalog, const char *name, RowNo *descriptor);

// What a name index answered about a name that must not be there.
[[nodiscard]] bool name_absent(Found found, StatusCode search_failed, StatusCode present);

// 41006, 41007; 41014.
[[nodiscard]] bool table_name_insert(Catalog &catalog, const char *name, RowNo id);
[[nodiscard]] bool table_name_delete(Catalog &catalog, const char *name, RowNo id);

// 45006; 45011, also when the entry is another index's.
[[nodiscard]] bool index_name_insert(Catalog &catalog, const Btree &index);
[[nodiscard]] bool index_name_delete(Catalog &catalog, const Btree &index);

// The name of the index that a table with an auto-increment column gets at its creation.
void auto_index_name(RowNo table_id, char *name);

}  // namespace tovik
