// DESCRIBE: the tables of a database, and the columns, indices and counters of a table.
#include <cinttypes>

#include "frame/error.h"
#include "sql/parse/shapes.h"
#include "sql/statement/executors.h"

namespace tovik {

namespace {

void print_attribute(const Column &column) {
  const TypeRow &type = *type_row(column.type);
  system_driver.print("    %-34s%s", column.name, type.name);
  switch (type.parameter_count) {
    case 1:
      system_driver.print("(%d)", column.p1);
      break;
    case 2:
      system_driver.print("(%d,%d)", column.p1, column.p2);
      break;
    case 3:
      system_driver.print("(%d,%d,%d)", column.p1, column.p2, column.p3);
      break;
    default:
      break;
  }
  system_driver.print("%s%s%s", column.not_null ? "  Not Null" : "",
                      column.auto_increment ? "  Auto Increment" : "", "\n");
}

void print_attributes(const Table &table) {
  for (int i = 0; i < table.column_count; ++i) print_attribute(table.columns[i]);
}

void print_index(const Table &table, const Btree &index) {
  const char *kind = (index.definition.flags & btree_timeseries) != 0 ? "TIMESERIES" : "BTREE";
  if (btree_is_unique(index)) {
    system_driver.print("UNIQUE %s ", kind);
  } else {
    system_driver.print("NORMAL (%d) %s ", index.definition.master_count, kind);
  }
  system_driver.print("%s ON (", index.definition.index_name);
  for (int i = 0; i < index.definition.part_count; ++i) {
    const int column = index.definition.parts[i].column;
    system_driver.print("%s%s", i == 0 ? "" : ", ", table.columns[column - 1].name);
  }
  system_driver.print(")%s", "\n");
}

void print_details(Table &table) {
  if (table.index_count > 0) system_driver.print("%s  Indices:     ", "\n");
  for (int i = 0; i < table.index_count; ++i) {
    if (i > 0) system_driver.print("%15s", "");
    print_index(table, *table.indices[i]);
  }
  system_driver.print("%s  Table row no:      %d%s", "\n", static_cast<int>(table.id), "\n");
  system_driver.print("  Records     :      %d%s", static_cast<int>(row_active_count(*table.rows)), "\n");
  system_driver.print("  Record size :      %d%s", table.record_size, "\n");
  if (table.auto_column == 0) return;
  const AutoIncrement counter = row_autoinc_get(*table.rows);
  system_driver.print("  Auto incremnet next :      %" PRId64 "%s", counter.next, "\n");
  system_driver.print("  Auto incremnet init :      %" PRId64 "%s", counter.init, "\n");
  system_driver.print("  Auto incremnet step :      %d%s", counter.step, "\n");
}

struct Walk {
  Database &db;
  bool all;
  bool first = true;
  bool failed = false;
};

bool describe_one(void *context, const char *name) {
  Walk &walk = *static_cast<Walk *>(context);
  if (!walk.all) {
    system_driver.print("%s%s", name, "\n");
    return true;
  }
  const TableHold table(table_open(walk.db, name));
  walk.failed = table.get() == nullptr;
  if (walk.failed) return false;
  system_driver.print("%s***  Table: %s  ***%s%s", walk.first ? "" : "\n", name, "\n", "\n");
  walk.first = false;
  print_attributes(*table.get());
  return true;
}

}  // namespace

bool exec_describe_db(Statement &statement) {
  Database &db = *statement.db;
  system_driver.print("****  Database: %s  ****%s%s", db.params->name, "\n", "\n");
  Walk walk{db, DescribeTree::of(*statement.root).all};
  return table_walk(db, describe_one, &walk) && !walk.failed;
}

bool exec_describe_table(Statement &statement) {
  const DescribeTree tree = DescribeTree::of(*statement.root);
  const TableHold hold(table_open(*statement.db, node_name(*tree.table)));
  if (hold.get() == nullptr) return false;
  system_driver.print("***  Table: %s  ***%s%s", hold.get()->name, "\n", "\n");
  system_driver.print("  Attributes:%s", "\n");
  print_attributes(*hold.get());
  if (tree.all) print_details(*hold.get());
  return true;
}

}  // namespace tovik
