// The diagnostic listing of an index.
#include "data/index/btree_tree.h"
#include "frame/dump.h"

namespace tovik {

namespace {

void dump_definition(const Btree &index) {
  const BtreeDefinition &definition = index.definition;
  dump_line(nullptr, 0, " --- name ---");
  dump_line(nullptr, 0, " tname :[%s]", btree_table_name(index));
  dump_line(nullptr, 0, " iname :[%s]", definition.index_name);
  dump_line(nullptr, 0, " --- no ---");
  dump_line(nullptr, 0, " rno   :[%d]", static_cast<int>(index.number));
  dump_line(nullptr, 0, " gno   :[0]");
  dump_line(nullptr, 0, " --- paramater ---");
  dump_line(nullptr, 0, " type  :[%d]", static_cast<int>(definition.flags));
  dump_line(nullptr, 0, " icnt  :[%d]", definition.part_count);
  dump_line(nullptr, 0, " mcnt  :[%d]", definition.master_count);
  dump_line(nullptr, 0, " vsz   :[%d]", definition.value_size);
  dump_line(nullptr, 0, " root  :[%d]", static_cast<int>(index.root));
  dump_line(nullptr, 0, " cpos  :[%d]", static_cast<int>(index.counter_row));
  dump_line(nullptr, 0, " trno  :[%d]", static_cast<int>(definition.table_id));
  for (int i = 0; i < definition.part_count; ++i) {
    const BtreeKeyPart &part = definition.parts[i];
    dump_line(nullptr, 0, " [%d] ktype:[%d] ksize:[%d] kano:[%d]", i, part.type, part.size, part.column);
  }
}

void dump_pages(const Btree &index) {
  dump_line(nullptr, 0, " ---  page counter ---");
  for (int level = 0; level <= tran_level_limit; ++level) {
    const BtreePages &pages = index.pages[index.state.level_of(level)];
    dump_line(nullptr, 0, " [%d] ptop:[%d] plst:[%d] pcnt:[%d]", level, static_cast<int>(pages.first),
              static_cast<int>(pages.last), static_cast<int>(pages.count));
  }
}

void dump_kind(const char *title, const BtreeItemKind &kind) {
  dump_line(nullptr, 0, " --- %s size ---", title);
  dump_line(nullptr, 0, " isz:[%d] ksz:[%d] vszt:[%d] mcnt[%d]", kind.item_size, kind.key_size,
            kind.value_size, kind.per_page);
}

void dump_traverse(Btree &index) {
  dump_line(nullptr, 0, " --- traverse ---");
  BtreeCursor cursor;
  if (!btree_cursor_open(cursor, index, {})) {
    dump_line(nullptr, 0, " cursor open error.");
    return;
  }
  uint8_t key[btree_key_limit];
  int count = 0;
  BtreeFetch fetched;
  while ((fetched = btree_cursor_fetch(cursor, key, nullptr, nullptr)) == BtreeFetch::item) ++count;
  if (fetched == BtreeFetch::failed)
    dump_line(nullptr, 0, " cursor fetch error [%d]", count);
  else
    dump_line(nullptr, 0, " item count :[%d]", count);
}

}  // namespace

void btree_dump(Btree &index, const char *title) {
  if (title != nullptr) dump_line(nullptr, 0, "%s", title);
  {
    const LockGuard guard(index.sm->lock);  // another thread's levels come and go
    dump_definition(index);
    dump_pages(index);
  }
  dump_kind("master leaf", index.master_leaf);
  dump_kind("master node", index.master_node);
  dump_kind("overflow leaf", index.overflow_leaf);
  dump_kind("overflow node", index.overflow_node);
  dump_traverse(index);
}

}  // namespace tovik
