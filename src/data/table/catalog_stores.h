// What the catalog of a database is kept in: the three management ROWs and the two name indices. For the
// database object, which owns them.
#pragma once

#include "data/table/table.h"

namespace tovik {

// Makes them in a new storage, 40003 to 40007; finds them in one that was made before, 40009 to 40013, 40015.
// What a failure leaves open is for catalog_close.
[[nodiscard]] bool catalog_create(Catalog &catalog);
[[nodiscard]] bool catalog_open(Catalog &catalog);

// Closes them, and every table definition.
void catalog_close(Catalog &catalog);

}  // namespace tovik
