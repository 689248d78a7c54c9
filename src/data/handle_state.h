// What the open handles of the data layer (row systems, B-trees, table definitions) share: a reference count,
// and the transaction levels at which the thing was created and dropped. A handle created in the open
// transaction is seen by the transaction's owner only; one dropped in it is seen by everybody else only,
// until the outermost level ends.
#pragma once

#include <cstdint>

namespace tovik {

struct HandleState {
  int32_t references;
  int8_t created_level;  // 0: committed
  int8_t dropped_level;  // 0: not dropped

  bool visible(int level) const { return level == 0 ? created_level == 0 : dropped_level == 0; }
};

}  // namespace tovik
