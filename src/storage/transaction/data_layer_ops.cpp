#include "storage/transaction/data_layer_ops.h"

namespace tovik {

namespace {

bool succeed(StorageManager &) {
  return true;
}

const DataLayerOps no_data_layer = {succeed,
                                    succeed,
                                    succeed,
                                    succeed,
                                    [](StorageManager &) {},
                                    succeed,
                                    [](StorageManager &, int) {},
                                    [](StorageManager &, int) {},
                                    [](StorageManager &, int) {}};

DataLayerOps data_layer = no_data_layer;

}  // namespace

void sm_register_data_layer(const DataLayerOps &ops) {
  data_layer = ops;
}

const DataLayerOps &sm_data_layer() {
  return data_layer;
}

}  // namespace tovik
