// Tables of every layout, with indices of every kind, beside maps: rows come, change and go, levels open,
// merge and are given up, the storage fills up and the database is opened anew; and changes of which every
// call of the storage driver fails.
#include <map>

#include "database_support.h"

namespace tovik::test {
namespace {

using Numbers = std::vector<int64_t>;  // a row or a key: a number for each column
constexpr int64_t null_number = INT64_MIN;

struct Kind {
  std::vector<ColumnDefinition> columns;  // named a, b, c
  std::vector<int> domains;               // how many values of each column there are; 0: it counts
  std::vector<IndexDefinition> indices;
};

struct Content {
  std::map<RowNo, Numbers> rows = {};
  int64_t next = 1;  // of the column that counts
};

// A new row has neither number nor values before; a deleted one has none after.
struct Change {
  RowNo row;
  Numbers before, after;
};

class TableModel {
 public:
  TableModel(const Kind &kind, const std::string &options, Random &random)
      : kind_(kind), random_(random), store_(options) {
    EXPECT_TRUE(store_.create_table("t", kind.columns)) << errors();
    for (size_t i = kind.domains[0] == 0; i < kind.indices.size(); ++i)  // a column that counts has one
      EXPECT_TRUE(index_create(db(), "t", kind.indices[i])) << errors();
    full_ = options.find("SIZE_DAT=60B") != std::string::npos;
  }

  void run(int steps) {
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      random_.one_in(33) ? begin_or_end() : change(step * 6 / steps % 3 != 2);
      if (step % 500 == 499) check_all();
    }
    while (states_.size() > 1) end(random_.one_in(2));
    store_.reopen();
    drain();
    EXPECT_EQ(refused_ > 0, full_);
  }

  int run_failures(FaultDriver &driver, int steps) {
    int failures = 0;
    while (now().rows.size() < 60) change(true);
    store_.begin();
    for (int step = 0; (step < steps || !now().rows.empty()) && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      const Change wanted =
          step < steps ? any_change(step < steps / 2) : removal_of_first();  // pages become empty
      if (collides(wanted)) continue;
      RowNo row = 0;
      const auto look = [&](bool as_before) { as_before ? check(now(), wanted.row) : check_agreement(); };
      failures += fail_each_call(
          *db().storage, driver, [&] { return apply(wanted, &row); }, look);
      note(wanted, row);
    }
    store_.commit();
    drain();
    return failures;
  }

 private:
  Database &db() { return *store_.db; }
  Content &now() { return states_.back(); }

  // ---- values ----

  bool is_large(size_t column) const { return kind_.columns[column].type >= type::text; }
  // Texts of keys have several lengths and the order of their numbers; others fill pages.
  std::string text_of(size_t column, int64_t number) const {
    const ColumnDefinition &made = kind_.columns[column];
    if (number == null_number) return "NULL";
    if (made.type != type::character && !is_large(column)) return std::to_string(number);
    const size_t above = static_cast<size_t>(number + 10000);
    const std::string text = std::to_string(above / 3) + std::string(above % 3, 'b');
    if (!is_large(column) && made.p1 <= btree_key_limit) return text;
    std::string filled;
    for (size_t size = 1 + above * 37 % static_cast<size_t>(is_large(column) ? 3 * made.p3 : made.p1);
         filled.size() < size;)
      filled += text.substr(0, size - filled.size());
    return filled;
  }
  // The chunk rows that a value takes.
  uint32_t chunks_of(size_t column, int64_t number) const {
    const ColumnDefinition &made = kind_.columns[column];
    const int rest = static_cast<int>(text_of(column, number).size()) - made.p2, chunk = made.p3 - 4;
    return !is_large(column) || number == null_number || rest <= 0
               ? 0
               : static_cast<uint32_t>((rest + chunk - 1) / chunk);
  }
  int64_t random_number(size_t column) {
    const int domain = kind_.domains[column];
    if (domain == 0) return now().next;
    const bool null = !kind_.columns[column].not_null && random_.one_in(50);
    return null ? null_number : random_.below(domain) - domain / 2;
  }
  Numbers random_row() {
    Numbers row;
    for (size_t column = 0; column < kind_.columns.size(); ++column) row.push_back(random_number(column));
    return row;
  }
  Numbers key_of(size_t index, const Numbers &row) const {
    const IndexDefinition &made = kind_.indices[index];
    Numbers key;
    for (int i = 0; i < made.column_count; ++i)
      key.push_back(row[static_cast<size_t>(made.columns[i][0] - 'a')]);
    return key;
  }

  // ---- changes ----

  Change any_change(bool growing) {
    const int choice = random_.below(100);
    if (now().rows.empty() || choice < (growing ? 55 : 15)) return {0, {}, random_row()};
    auto found = now().rows.lower_bound(static_cast<RowNo>(random_.next()) % now().rows.rbegin()->first);
    Change wanted = {found->first, found->second, {}};
    if (choice >= (growing ? 80 : 45)) return wanted;
    wanted.after = random_row();
    for (size_t i = 0; i < wanted.after.size(); ++i)
      if (random_.one_in(2) || kind_.domains[i] == 0) wanted.after[i] = wanted.before[i];
    return wanted;
  }
  Change removal_of_first() { return {now().rows.begin()->first, now().rows.begin()->second, {}}; }
  bool collides(const Change &wanted) {
    for (size_t i = 0; i < kind_.indices.size() && !wanted.after.empty(); ++i)
      for (const auto &[row, values] : now().rows)
        if (kind_.indices[i].unique && row != wanted.row && key_of(i, values) == key_of(i, wanted.after))
          return true;
    return false;
  }
  bool apply(const Change &wanted, RowNo *row) {
    Rows reader(db(), "t"), writer(db(), "t");
    *row = wanted.row;
    if (wanted.row != 0 && row_handle_read(*reader.handle, wanted.row) != Found::yes) return false;
    if (wanted.after.empty()) return row_handle_delete(*reader.handle);
    wanted.row == 0 ? row_handle_reset(*writer.handle) : row_handle_copy(*writer.handle, *reader.handle);
    for (size_t i = 0; i < kind_.columns.size(); ++i) {
      if (wanted.row != 0 && wanted.before[i] == wanted.after[i]) continue;
      if (!writer.set(kind_.columns[i].name, kind_.domains[i] == 0 ? "0" : text_of(i, wanted.after[i])))
        return false;
    }
    if (wanted.row != 0) return row_handle_update(*writer.handle);
    if (!row_handle_insert(*writer.handle)) return false;
    *row = writer.handle->row;
    return true;
  }
  void note(const Change &done, RowNo row) {
    Content &content = now();
    content.rows.erase(done.row);
    if (done.after.empty()) return;
    EXPECT_TRUE(content.rows.emplace(row, done.after).second) << "row number " << row << " is in use";
    content.next += done.row == 0;
  }
  void change(bool growing) {
    const bool direct = states_.size() == 1;
    ASSERT_TRUE(!direct || db_direct_begin(db(), current_thread()) == DbStart::started) << errors();
    const Change wanted = any_change(growing);
    RowNo row = 0;
    const bool collision = collides(wanted), done = apply(wanted, &row);
    const StatusCode failed = first_status();
    if (done)
      note(wanted, row);
    else if (full_ && failed == status::cache_argument && ++refused_)
      check(now(), wanted.row);
    else
      EXPECT_EQ(failed, collision ? status::unique_violation : -1);
    EXPECT_FALSE(done && collision);
    EXPECT_TRUE(!direct || db_direct_end(db(), current_thread())) << errors();
  }

  void begin_or_end() {
    if (states_.size() == 3 || (states_.size() > 1 && !random_.one_in(3))) return end(random_.one_in(2));
    if (states_.size() == 1 && random_.one_in(3)) store_.reopen();
    store_.begin();
    states_.push_back(now());
  }
  void end(bool commit) {
    commit ? store_.commit() : store_.rollback();
    if (commit) states_[states_.size() - 2] = now();
    states_.pop_back();
    check_all();
  }
  void drain() {
    check(now());
    while (!now().rows.empty() && !testing::Test::HasFailure()) {
      const Change removal = removal_of_first();
      RowNo removed;
      ASSERT_TRUE(apply(removal, &removed)) << errors();
      note(removal, removed);
    }
    check(now());
  }

  // ---- what is read ----

  // What this thread sees, and what every other thread sees of the committed state.
  void check_all() {
    check(now());
    if (states_.size() == 1) return;
    on_other_thread([this] {
      EXPECT_EQ(db_direct_begin(db(), current_thread()), DbStart::failed);
      check(states_.front());
    });
  }
  // First the row, before other pages drive those out that a failed step changed.
  void check(const Content &content, RowNo first = 0) {
    Rows rows(db(), "t");
    const Table &table = *rows.handle->table;
    if (first != 0) check_row(rows, first, content.rows.at(first));
    std::vector<uint32_t> chunks(kind_.columns.size());
    for (const auto &[row, values] : content.rows) {
      check_row(rows, row, values);
      for (size_t i = 0; i < chunks.size(); ++i) chunks[i] += chunks_of(i, values[i]);
    }
    EXPECT_EQ(row_active_count(*table.rows), content.rows.size());
    for (size_t i = 0, large = 0; i < chunks.size(); ++i)
      EXPECT_EQ(is_large(i) ? row_active_count(*table.large_rows[large++]) : 0, chunks[i]);
    check_agreement();
  }
  void check_agreement() {
    EXPECT_EQ(table_fault(*Rows(db(), "t").handle->table), "");
    EXPECT_EQ(db().storage->dat->lock_count + db().storage->trn->lock_count, 0) << "no page stays held";
  }
  void check_row(Rows &rows, RowNo row, const Numbers &values) {
    ASSERT_EQ(row_handle_read(*rows.handle, row), Found::yes) << errors();
    for (size_t i = 0; i < values.size(); ++i)
      EXPECT_EQ(rows.get(kind_.columns[i].name), text_of(i, values[i])) << "row " << row;
  }

  const Kind &kind_;
  Random &random_;
  Engine engine_{"HVI_LOCK_DISABLE=true"};  // levels nest
  TestDatabase store_;
  std::vector<Content> states_ = {{}};
  bool full_;
  int refused_ = 0;
};

IndexDefinition timeseries(IndexDefinition made) {
  made.timeseries = true;
  return made;
}

const Kind kinds[] = {
    {{not_null(column("a", type::int32)), column("b", type::text, 1, 6, 8)},
     {4000, 40},
     {unique_on("u", {"a"})}},
    {{not_null(column("a", type::int32)), not_null(column("b", type::character, 120, 1))},
     {60, 60},
     {unique_on("u", {"a", "b"}), index_on("i", {"b"}, false, 3)}},
    {{column("a", type::smallint), column("b", type::blob, 1, 4, 900)},
     {300, 50},
     {timeseries(index_on("i", {"a"}, false, 0))}},
    {{column("a", type::character, 50, 1), column("b", type::character, 50, 1), column("c", type::cbigint)},
     {12, 12, 1},
     {index_on("i", {"a", "b"}, false, 16), index_on("j", {"c"}, false, 16)}},
    {{auto_increment(column("a", type::int32)), column("b", type::character, 3000, 1)},
     {0, 2000},
     {unique_on("u", {"a"})}},
};

TEST(TableModelTest, RandomWorkAgreesWithMaps) {
  Random random;
  const char *const options[] = {"BLOCK_SIZE=1024;CACHE_SIZE_DAT=300;CACHE_SIZE_TRN=300", "BLOCK_SIZE=1024",
                                 "BLOCK_SIZE=1024;CACHE_SIZE_DAT=8;CACHE_SIZE_TRN=6",
                                 "BLOCK_SIZE=4096;CACHE_SIZE_TRN=12;CACHE_IMM_WRITE=true",
                                 "BLOCK_SIZE=1024;CACHE_SIZE_DAT=30"};
  for (size_t i = 0; i < std::size(kinds); ++i) {
    SCOPED_TRACE(options[i]);
    TableModel(kinds[i], options[i], random).run(3000);
    if (HasFailure()) return;
  }
}

TEST(TableModelTest, WhatFailsLeavesTheLevelAsItWasOrTorn) {
  Random random;
  int failures = 0;
  for (const Kind &kind : kinds) {
    FaultDriver driver;
    TableModel model(kind, "DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=4;CACHE_SIZE_TRN=6;CACHE_RTS=0",
                     random);
    failures += model.run_failures(driver, 30);
    if (HasFailure()) return;
  }
  EXPECT_GT(failures, 500);
}

TEST(TableModelTest, WritesIntoAFullStorageTakeEverythingBack) {
  Random random;
  TableModel(kinds[3], "BLOCK_SIZE=1024;SIZE_DAT=60B", random).run(1500);
}

}  // namespace
}  // namespace tovik::test
