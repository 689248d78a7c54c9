#include "data/index/btree_format.h"

#include "data/index/btree_tree.h"

namespace tovik {

namespace {

namespace field {
inline constexpr int flags = 0, part_count = 4, master_count = 6, value_size = 8, types = 12, sizes = 16,
                     columns = 20, root = 24, counter_row = 28, table_id = 32, table_name = 36,
                     index_name = 68;
}
static_assert(field::index_name + sizeof(BtreeDefinition::index_name) == btree_descriptor_size);

constexpr uint32_t known_flags = btree_unique | btree_timeseries | btree_payload;

// Two items at least, so that each half of a split page keeps one.
bool derive_kind(int value_size, int key_size, int block_size, BtreeItemKind &kind) {
  kind.value_size = value_size;
  kind.key_size = key_size;
  kind.item_size = value_size + key_size;
  kind.per_page = (block_size - bpage::items) / kind.item_size;
  return kind.per_page >= 2;
}

bool derive_parts(Btree &index, int *key_size) {
  const BtreeDefinition &definition = index.definition;
  *key_size = 0;
  for (int i = 0; i < definition.part_count; ++i) {
    const BtreeKeyPart &part = definition.parts[i];
    index.compare[i] = type_row(part.type) == nullptr ? nullptr : stored_compare_of(part.type);
    if (index.compare[i] == nullptr || part.size == 0) return false;
    if (type_stored_size({part.type, static_cast<int16_t>(part.size)}) != part.size) return false;
    *key_size += part.size;
  }
  return *key_size <= btree_key_limit;
}

bool definition_sound(const BtreeDefinition &definition) {
  if ((definition.flags & ~known_flags) != 0) return false;
  if (definition.part_count < 1 || definition.part_count > btree_part_limit) return false;
  const bool unique = (definition.flags & btree_unique) != 0;
  const bool payload = (definition.flags & btree_payload) != 0;
  if (unique ? definition.master_count != 1 : payload || definition.master_count > btree_slot_limit)
    return false;
  return definition.value_size >= 1 && (payload || definition.value_size <= btree_row_value_limit);
}

}  // namespace

bool btree_derive(Btree &index, int block_size) {
  const BtreeDefinition &definition = index.definition;
  int key_size;
  if (!definition_sound(definition) || !derive_parts(index, &key_size)) return false;
  const int values = btree_is_unique(index)
                         ? definition.value_size
                         : bvalues::slots + definition.master_count * definition.value_size;
  btree_choose_search(index);
  return derive_kind(values, key_size, block_size, index.master_leaf) &&
         derive_kind(4, key_size, block_size, index.master_node) &&
         derive_kind(0, definition.value_size, block_size, index.overflow_leaf) &&
         derive_kind(4, definition.value_size, block_size, index.overflow_node);
}

void btree_descriptor_encode(const Btree &index, const char *table_name, uint8_t *at) {
  const BtreeDefinition &definition = index.definition;
  memset(at, 0, btree_descriptor_size);
  store_u32(at + field::flags, definition.flags);
  store_u16(at + field::part_count, static_cast<uint16_t>(definition.part_count));
  store_u16(at + field::master_count, static_cast<uint16_t>(definition.master_count));
  store_u16(at + field::value_size, static_cast<uint16_t>(definition.value_size));
  for (int i = 0; i < definition.part_count; ++i) {
    store_u16(at + field::types + 2 * i, definition.parts[i].type);
    store_u16(at + field::sizes + 2 * i, definition.parts[i].size);
    store_u16(at + field::columns + 2 * i, definition.parts[i].column);
  }
  store_u32(at + field::root, index.root);
  store_u32(at + field::counter_row, index.counter_row);
  store_u32(at + field::table_id, definition.table_id);
  strncpy(reinterpret_cast<char *>(at + field::table_name), table_name, btree_name_size - 1);
  memcpy(at + field::index_name, definition.index_name, sizeof(definition.index_name));
}

bool btree_descriptor_decode(const uint8_t *at, int block_size, Btree &index) {
  BtreeDefinition &definition = index.definition;
  definition = {};
  definition.flags = load_u32(at + field::flags);
  definition.part_count = load_u16(at + field::part_count);
  definition.master_count = load_u16(at + field::master_count);
  definition.value_size = load_u16(at + field::value_size);
  for (int i = 0; i < btree_part_limit; ++i) {
    definition.parts[i].type = load_u16(at + field::types + 2 * i);
    definition.parts[i].size = load_u16(at + field::sizes + 2 * i);
    definition.parts[i].column = load_u16(at + field::columns + 2 * i);
  }
  index.root = load_u32(at + field::root);
  index.counter_row = load_u32(at + field::counter_row);
  definition.table_id = load_u32(at + field::table_id);
  memcpy(index.table_names[0].text, at + field::table_name, btree_name_size - 1);
  memcpy(definition.index_name, at + field::index_name, sizeof(definition.index_name) - 1);
  return index.root != 0 && index.counter_row != 0 && btree_derive(index, block_size);
}

}  // namespace tovik
