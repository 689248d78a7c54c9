// Cost per row: one copy for every run of columns that lie side by side in both records, one row write; per
// large value beyond its record one read and one write of its chunk row.
#include "data/table/table_copy.h"

#include "data/table/large_value.h"
#include "frame/error.h"

namespace tovik {

namespace {

// Bytes that lie together in the records of both tables.
struct Run {
  int32_t from, to, size;
};

struct LargePair {
  const Column *from, *to;
};

class RowCopy {
 public:
  RowCopy(const Table &from, Table &to) : from_(from), to_(to) {}
  ~RowCopy() { mem_free(tail_.data); }
  RowCopy(const RowCopy &) = delete;
  RowCopy &operator=(const RowCopy &) = delete;

  [[nodiscard]] bool prepare() {
    if (!source_.resize(from_.record_size) || !target_.resize(to_.record_size) || !match_columns())
      return fail(status::out_of_memory);
    record_fill_null(to_, target_.data());
    return true;
  }

  [[nodiscard]] bool copy_all() {
    RowScan scan;
    row_scan_start(scan, *from_.rows);
    return each_row([&] { return fetch(scan); }, [&] { return copy_row(); });
  }

 private:
  bool match_columns() {
    for (int i = 0; i < to_.column_count; ++i) {
      const Column &to = to_.columns[i];
      const Column *from = table_find_column(from_, to.name);
      if (from == nullptr) {
        if (to.auto_increment) numbers_ = true;
      } else if (!match(*from, to)) {
        return false;
      }
    }
    return true;
  }

  bool match(const Column &from, const Column &to) {
    assert(from.type == to.type && from.stored_size == to.stored_size);
    if (column_is_large(to) && !large_.push({&from, &to})) return false;
    if (!runs_.empty()) {
      Run &last = runs_.back();
      if (last.from + last.size == from.offset && last.to + last.size == to.offset) {
        last.size += to.stored_size;
        return true;
      }
    }
    return runs_.push({from.offset, to.offset, to.stored_size});
  }

  Found fetch(RowScan &scan) {
    RowNo row;
    const Found fetched = row_scan_next(scan, source_.data(), from_.record_size, &row);
    if (fetched == Found::failed) err_set(status::record_read);
    return fetched;
  }

  bool copy_row() {
    uint8_t *record = target_.data();
    for (const Run &run : runs_)
      memcpy(record + run.to, source_.data() + run.from, static_cast<size_t>(run.size));
    for (const LargePair &pair : large_)
      if (!copy_tail(pair)) return fail(status::record_large_insert);
    if (numbers_ && !record_number(to_, record)) return false;
    RowNo row;
    return row_insert(*to_.rows, record, to_.record_size, &row) || fail(status::record_row_insert);
  }

  bool copy_tail(const LargePair &pair) {
    return large_tail_copy(*pair.to, *from_.large_rows[pair.from->large_ordinal - 1],
                           *to_.large_rows[pair.to->large_ordinal - 1], target_.data() + pair.to->offset,
                           tail_);
  }

  const Table &from_;
  Table &to_;
  Array<uint8_t> source_, target_;  // records
  Array<Run> runs_;
  Array<LargePair> large_;
  bool numbers_ = false;  // to's auto-increment column is new
  LargeBuffer tail_ = {};
};

}  // namespace

bool table_copy(const Table &from, Table &to) {
  RowCopy copy(from, to);
  return copy.prepare() && copy.copy_all();
}

}  // namespace tovik
