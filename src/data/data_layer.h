// The events of a storage manager, passed on to the row systems and to the B-trees: what the storage layer is
// told of the data layer.
#pragma once

namespace tovik {

// Registers the operations of the data layer; once per process, before the first database is created or
// opened.
void data_layer_register();

}  // namespace tovik
