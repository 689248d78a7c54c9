// The diagnostic listing of an index.
#include "data/index/btree_tree.h"
#include "frame/dump.h"

namespace tovik {

namespace {

void dump_definition(const Btree &index) {
  const BtreeDefinition &definition = index.definition;
  print_line(" --- name ---");
  print_line(" tname :[%s]", btree_table_name(index));
  print_line(" iname :[%s]", definition.index_name);
  print_line(" --- no ---");
  print_line(" rno   :[%d]", static_cast<int>(index.number));
  print_line(" gno   :[0]");
  print_line(" --- paramater ---");
  print_line(" type  :[%d]", static_cast<int>(definition.flags));
  print_line(" icnt  :[%d]", definition.part_count);
  print_line(" mcnt  :[%d]", definition.master_count);
  print_line(" vsz   :[%d]", definition.value_size);
  print_line(" root  :[%d]", static_cast<int>(index.root));
  print_line(" cpos  :[%d]", static_cast<int>(index.counter_row));
  print_line(" trno  :[%d]", static_cast<int>(definition.table_id));
  for (int i = 0; i < definition.part_count; ++i) {
    const BtreeKeyPart &part = definition.parts[i];
    print_line(" [%d] ktype:[%d] ksize:[%d] kano:[%d]", i, part.type, part.size, part.column);
  }
}

void dump_pages(const Btree &index) {
  print_line(" ---  page counter ---");
  for (int level = 0; level <= tran_level_limit; ++level) {
    const BtreePages &pages = index.pages[index.state.level_of(level)];
    print_line(" [%d] ptop:[%d] plst:[%d] pcnt:[%d]", level, static_cast<int>(pages.first),
               static_cast<int>(pages.last), static_cast<int>(pages.count));
  }
}

void dump_kind(const char *title, const BtreeItemKind &kind) {
  print_line(" --- %s size ---", title);
  print_line(" isz:[%d] ksz:[%d] vszt:[%d] mcnt[%d]", kind.item_size, kind.key_size, kind.value_size,
             kind.per_page);
}

void dump_traverse(Btree &index) {
  print_line(" --- traverse ---");
  BtreeCursor cursor;
  if (!btree_cursor_open(cursor, index, {})) {
    print_line(" cursor open error.");
    return;
  }
  uint8_t key[btree_key_limit];
  int count = 0;
  Found fetched;
  while ((fetched = btree_cursor_fetch(cursor, key, nullptr)) == Found::yes) ++count;
  if (fetched == Found::failed)
    print_line(" cursor fetch error [%d]", count);
  else
    print_line(" item count :[%d]", count);
}

}  // namespace

void btree_dump(Btree &index, const char *title) {
  if (title != nullptr) print_line("%s", title);
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
