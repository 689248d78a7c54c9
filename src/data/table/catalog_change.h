// How the catalog makes a change: as a whole, and a change of a table on a copy of its definition.
#pragma once

#include "data/table/table_definition.h"

namespace tovik {

// Inside the calling thread's transaction: changes of several steps that take effect as a whole or not at
// all. begin opens a level of their own, and end merges it into the transaction or, unless done, rolls it
// back; level is 0 where there is none, outside a transaction and inside the innermost level. end gives done,
// or false when the level could not be merged. 22003, 22006, 22021.
[[nodiscard]] bool catalog_whole_begin(Catalog &catalog, int *level);
[[nodiscard]] bool catalog_whole_end(Catalog &catalog, int level, bool done);

template <class Change>
[[nodiscard]] bool catalog_as_a_whole(Catalog &catalog, Change change) {
  int level;
  return catalog_whole_begin(catalog, &level) && catalog_whole_end(catalog, level, change());
}

// Changes a table: change, a bool(Table &), works on a copy of the definition, which then takes old's place
// for the calling thread. All of it as a whole; a failure leaves old where it is.
template <class Change>
[[nodiscard]] bool definition_edit(Table &old, Change change) {
  Catalog &catalog = *old.catalog;
  return catalog_as_a_whole(catalog, [&] {
    Table *made = definition_copy(old);
    if (made == nullptr) return false;
    if (!change(*made)) {
      definition_free(made);
      return false;
    }
    tables_replace(catalog, &old, made);
    table_close(made);
    return true;
  });
}

}  // namespace tovik
