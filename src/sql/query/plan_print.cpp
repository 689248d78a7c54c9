#include "sql/query/plan_print.h"

namespace tovik {

namespace {

void print_table(const TableAccess &access) {
  system_driver.print("TABLE '%s':%s", access.handle->table->name, "\n");
}

void print_scans(const TableAccess *tables) {
  for (const TableAccess *access = tables; access != nullptr; access = access->next) {
    print_table(*access);
    system_driver.print("        Scan entire table%s", "\n");
  }
}

void print_rowid(const RowidCandidate &rowid) {
  print_table(*rowid.access);
  system_driver.print(rowid.row != 0 ? "        row id usable%s" : "        check row id%s", "\n");
}

void print_index_use(const Candidate &candidate) {
  const char *index = candidate.index->definition.index_name;
  const char *column = candidate.key.column->name;
  print_table(*candidate.access);
  system_driver.print("        Indices usable:%s", "\n");
  switch (candidate.kind) {
    case CandidateKind::pair:
      system_driver.print("        '%s' : '%s' '%s' composite %s", index, column,
                          candidate.second.column->name, "\n");
      break;
    case CandidateKind::range:
      system_driver.print("        '%s' : '%s' between %s", index, column, "\n");
      break;
    default:
      system_driver.print("        '%s' : '%s' %s", index, column, "\n");
  }
  if (candidate.kind == CandidateKind::comparison && candidate.second.column != nullptr)
    system_driver.print("        '%s' : '%s' bounded on both sides %s", index, column, "\n");
  system_driver.print("        Use records from indices%s", "\n");
}

void print_lookups(const TableAccess *tables, const JoinLookup *lookup) {
  for (; tables != nullptr; tables = tables->next, ++lookup) {
    if (lookup->access == nullptr) continue;
    system_driver.print("        '%s' by '%s' : '%s' for each row%s", tables->handle->table->name,
                        lookup->index->definition.index_name, lookup->column->name, "\n");
  }
}

}  // namespace

void plan_print(const TableAccess *tables, const RowidCandidate *rowid, const Candidate *indexed,
                const JoinLookup *lookups) {
  system_driver.print("---- QUERY PLAN ----%s", "\n");
  if (rowid != nullptr) {
    print_rowid(*rowid);
  } else if (indexed != nullptr) {
    print_index_use(*indexed);
  } else {
    print_scans(tables);
  }
  if (lookups != nullptr) print_lookups(tables, lookups);
  system_driver.print("--------------------%s", "\n");
}

}  // namespace tovik
