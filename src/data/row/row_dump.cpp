// The listing of a row system's fixed data, counters and auto-increment values.
#include "data/row/data_systems.h"
#include "frame/dump.h"

namespace tovik {

namespace {

void line(const char *format, int64_t value) {
  print_line(format, static_cast<long>(value));
}

void dump_counters(const RowCounters &counters, int level) {
  print_line("  --  level : %d -- ", level);
  line("  row page top    : %ld", counters.page_top);
  line("  row page last   : %ld", counters.page_last);
  line("  row page count  : %ld", counters.page_count);
  line("  row free list   : %ld", counters.free_list);
  line("  row new offset  : %ld", counters.new_offset);
  line("  row total count : %ld", counters.total_count);
  line("  row free count  : %ld", counters.free_count);
  line("  row active count: %ld", int64_t{counters.total_count} - counters.free_count);
}

}  // namespace

void row_system_dump(RowSystem &rows, const char *title) {
  const LockGuard guard(rows.sm->lock);  // another thread's levels come and go
  const int levels = data_systems(*rows.sm).open_levels;
  if (title != nullptr) print_line("%s", title);
  print_line("[fixed information]");
  line("  row type        : %ld", 0);
  line("  row use type    : %ld", static_cast<int64_t>(rows.kind));
  line("  row size        : %ld", rows.row_size);
  print_line("[counter information]");
  for (int level = 0; level <= levels; ++level)
    dump_counters(rows.counters[rows.state.level_of(level)], level);
  if (row_kind_auto(rows.kind)) {
    print_line("[auto increment]");
    for (int level = 0; level <= levels; ++level) {
      print_line("  --  auto inc level : %d -- ", level);
      const AutoIncrement &values = rows.autoinc[rows.state.level_of(level)];
      line("  auto inc init    : %ld", values.init);
      line("  auto inc step    : %ld", values.step);
      line("  auto inc next    : %ld", values.next);
    }
  }
  print_line("%s", "");
  print_line("[dynamic information]");
  line("  row rno         : %ld", rows.number);
}

}  // namespace tovik
