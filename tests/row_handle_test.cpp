#include "data/row_handle.h"

#include <map>

#include "database_support.h"

namespace tovik {
namespace {

using namespace test;

TEST(RowHandle, ValuesOfEveryType) {
  Engine engine;
  TestDatabase store;
  const std::vector<ColumnDefinition> columns = {
      column("tiny", type::tinyint),      column("small", type::smallint),
      column("i", type::int32),           column("big", type::bigint),
      column("ctiny", type::ctinyint),    column("csmall", type::csmallint),
      column("ci", type::cint),           column("cbig", type::cbigint),
      column("f", type::float32),         column("d", type::float64),
      column("dec", type::decimal, 8),    column("c", type::character, 4, 1),
      column("v", type::varchar, 4, 1),   column("t", type::text),
      column("tm", type::time),           column("dt", type::date),
      column("mt", type::microtimestamp), column("b", type::blob)};
  ASSERT_TRUE(store.create_table("t", columns)) << errors();
  const std::vector<std::string> inputs[] = {
      {"-127", "-32767", "-2147483647", "-9223372036854775807", "-128", "-32768", "-2147483648",
       "-9223372036854775808", "1.23456789", "-1e300", "12345678", "abcd", "abc",
       "long text of more than twenty", "20200229123456", "19700101", "99991231235959999999",
       std::string("\0\1\2", 3)},
      {"127", "32767", "2147483647", "9223372036854775807", "127", "32767", "2147483647",
       "9223372036854775807", "0", "0.1", "", "", "x", "y", "00010101000000", "00010101",
       "00010101000000000000", "z"},
      std::vector<std::string>(columns.size() - 1, "NULL")};
  const std::vector<std::string> outputs[] = {
      {"-127", "-32767", "-2147483647", "-9223372036854775807", "-128", "-32768", "-2147483648",
       "-9223372036854775808", "1.23457", "-1e+300", "12345678", "abcd", "abc",
       "long text of more than twenty", "2020-02-29 12:34:56.000000", "1970-01-01 00:00:00.000000",
       "9999-12-31 23:59:59.999999", std::string("\0\1\2", 3)},
      {"127", "32767", "2147483647", "9223372036854775807", "127", "32767", "2147483647",
       "9223372036854775807", "0", "0.1", "", "", "x", "y", "0001-01-01 00:00:00.000000",
       "0001-01-01 00:00:00.000000", "0001-01-01 00:00:00.000000", "z"},
      std::vector<std::string>(columns.size(), "NULL")};
  std::vector<std::string> last = inputs[2];
  last.push_back("only");
  Rows rows(*store.db, "t");
  std::vector<RowNo> numbers;
  for (const auto &input : {inputs[0], inputs[1], last}) {
    ASSERT_TRUE(rows.insert(input)) << errors();
    numbers.push_back(rows.handle->row);
  }
  for (size_t row = 0; row < 3; ++row) {
    ASSERT_EQ(row_handle_read(*rows.handle, numbers[row]), RowLoad::loaded);
    EXPECT_EQ(rows.get("rowid"), std::to_string(numbers[row]));
    for (size_t i = 0; i < columns.size(); ++i) {
      const std::string expected = row == 2 && i == columns.size() - 1 ? "only" : outputs[row][i];
      EXPECT_EQ(rows.get(columns[i].name), expected) << "row " << row << " " << columns[i].name;
    }
  }
  Value value;
  ASSERT_TRUE(row_handle_value(*rows.handle, rows.column("tm"), &value));
  EXPECT_EQ(value.declared, type::time);
}

TEST(RowHandle, SettingColumns) {
  Engine engine;
  TestDatabase store;
  ASSERT_TRUE(store.create_table("t", {column("a", type::tinyint), column("c", type::character, 3, 1),
                                       column("t", type::text), column("b", type::blob)}));
  Rows rows(*store.db, "t");
  struct {
    const char *column, *value;
    StatusCode expected;
  } const cases[] = {{"rowid", "1", status::rowid_not_assignable},
                     {"a", "128", status::input_number_range},
                     {"c", "four", status::input_text_length},
                     {"t", "", status::large_empty},
                     {"b", "", status::large_empty}};
  ASSERT_TRUE(rows.insert({"5", "abc"})) << errors();
  const RowNo row = rows.handle->row;
  for (const auto &test : cases) {
    EXPECT_FALSE(rows.set(test.column, test.value)) << test.column;
    EXPECT_EQ(first_status(), test.expected) << test.column;
  }
  // A column that could not be set counts as not set.
  ASSERT_TRUE(rows.insert({"1"}));
  row_handle_reset(*rows.handle);
  EXPECT_FALSE(rows.set("c", "four"));
  err_clear();
  ASSERT_TRUE(rows.set("a", "2"));
  ASSERT_TRUE(row_handle_insert(*rows.handle)) << errors();
  ASSERT_EQ(row_handle_read(*rows.handle, rows.handle->row), RowLoad::loaded);
  EXPECT_EQ(rows.get("c"), "NULL");
  Rows writer(*store.db, "t");
  ASSERT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
  row_handle_copy(*writer.handle, *rows.handle);
  EXPECT_FALSE(writer.set("c", "four"));
  err_clear();
  ASSERT_TRUE(row_handle_update(*writer.handle)) << errors();
  ASSERT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
  EXPECT_EQ(rows.get("c"), "abc");
}

TEST(RowHandle, InsertChecks) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  ASSERT_TRUE(store.create_table("t", {not_null(column("a", type::int32)), column("b", type::int32),
                                       column("c", type::int32), column("d", type::text)}));
  ASSERT_TRUE(index_create(db, "t", unique_on("first", {"b"})));
  ASSERT_TRUE(index_create(db, "t", index_on("all", {"a"})));
  ASSERT_TRUE(index_create(db, "t", unique_on("second", {"c", "b"})));
  Rows rows(db, "t");
  ASSERT_TRUE(rows.insert({"1", "1", "1"})) << errors();
  ASSERT_TRUE(rows.insert({"1", "2", "2", "text"})) << errors();
  struct {
    const char *what;
    std::vector<std::string> values;
    StatusCode expected;
  } const cases[] = {{"NULL in NOT NULL", {"NULL", "3", "3"}, status::not_null_violation},
                     {"NULL in a unique key", {"3", "NULL", "3"}, status::not_null_violation},
                     {"unset in a unique key", {"3", "3"}, status::not_null_violation},
                     {"first index", {"3", "2", "3", "text"}, status::unique_violation},
                     {"NOT NULL before unique", {"NULL", "2"}, status::not_null_violation}};
  const RowCounters before = row_counters(*rows.handle->table->rows);
  for (const auto &test : cases) {
    EXPECT_FALSE(rows.insert(test.values)) << test.what;
    EXPECT_EQ(first_status(), test.expected) << test.what;
    EXPECT_EQ(rows.handle->row, 0u);
  }
  // Nothing set: nothing stored; NULL is nothing set.
  EXPECT_TRUE(rows.insert({}));
  EXPECT_TRUE(rows.insert({"NULL", "NULL"}));
  EXPECT_EQ(rows.handle->row, 0u);
  EXPECT_EQ(row_counters(*rows.handle->table->rows).total_count, before.total_count);
  rows.check_indices();
  EXPECT_EQ(rows.all().size(), 2u);
}

TEST(RowHandle, AutoIncrement) {
  Engine engine;
  TestDatabase store;
  ASSERT_TRUE(store.create_table("t", {column("v", type::int32), auto_increment(column("a", type::tinyint))},
                                 {5, 10, 5}));
  Rows rows(*store.db, "t");
  const std::pair<std::vector<std::string>, const char *> cases[] = {
      {{"1"}, "5"},          {{"1", "0"}, "15"}, {{"1", "NULL"}, "25"},
      {{"1", "100"}, "100"}, {{}, "35"},         {{"1", "-3"}, "-3"}};
  for (const auto &[values, expected] : cases) {
    ASSERT_TRUE(rows.insert(values)) << errors();
    EXPECT_EQ(rows.get("a"), expected);
  }
  EXPECT_FALSE(rows.insert({"1", "25"}));
  EXPECT_EQ(first_status(), status::unique_violation);
  ASSERT_TRUE(row_autoinc_set(*rows.handle->table->rows, 5, 10, 128));
  EXPECT_FALSE(rows.insert({"1"}));
  EXPECT_EQ(first_status(), status::input_number_range);
  rows.check_indices();
}

TEST(RowHandle, UpdateChecksAndTouchesOnlyWhatChanged) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  ASSERT_TRUE(store.create_table("t", {column("k", type::int32), not_null(column("n", type::int32)),
                                       column("c", type::character, 6, 1), column("v", type::int32)}));
  ASSERT_TRUE(index_create(db, "t", unique_on("k", {"k"})));
  ASSERT_TRUE(index_create(db, "t", index_on("c", {"c", "v"})));
  Rows reader(db, "t"), writer(db, "t");
  for (int i = 0; i < 3; ++i)
    ASSERT_TRUE(reader.insert({std::to_string(i), "7", "text" + std::to_string(i), "1"})) << errors();
  const RowNo row = reader.handle->row;
  const auto update = [&](const std::vector<std::pair<const char *, std::string>> &changes) {
    EXPECT_EQ(row_handle_read(*reader.handle, row), RowLoad::loaded);
    row_handle_copy(*writer.handle, *reader.handle);
    for (const auto &[name, value] : changes) EXPECT_TRUE(writer.set(name, value)) << errors();
    const bool updated = row_handle_update(*writer.handle);
    EXPECT_EQ(row_handle_read(*reader.handle, row), RowLoad::loaded);
    return updated;
  };
  EXPECT_FALSE(update({{"k", "0"}, {"v", "9"}}));
  EXPECT_EQ(first_status(), status::unique_violation);
  EXPECT_EQ(reader.get("v"), "1");
  EXPECT_FALSE(update({{"n", "NULL"}}));
  EXPECT_EQ(first_status(), status::not_null_violation);
  EXPECT_FALSE(update({{"k", "NULL"}}));
  EXPECT_EQ(first_status(), status::not_null_violation);
  EXPECT_TRUE(update({{"k", "2"}, {"c", "NULL"}}));  // its own key is no violation
  EXPECT_EQ(reader.get("c"), "NULL");
  EXPECT_TRUE(update({{"c", "NULL"}, {"v", "2"}}));
  EXPECT_TRUE(update({{"k", "9"}, {"c", "abcdef"}})) << errors();
  EXPECT_EQ(reader.get("k") + reader.get("n") + reader.get("c") + reader.get("v"), "97abcdef2");
  reader.check_indices();
  row_handle_reset(*writer.handle);
  EXPECT_FALSE(row_handle_update(*writer.handle));
  EXPECT_EQ(first_status(), status::record_argument);
}

TEST(RowHandle, DeleteTakesEverything) {
  Engine engine;
  TestDatabase store;
  ASSERT_TRUE(store.create_table("t", {column("a", type::int32), column("b", type::text)}));
  ASSERT_TRUE(index_create(*store.db, "t", index_on("i", {"a"})));
  Rows rows(*store.db, "t");
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(rows.insert({"1", std::string(100, 'x')}));
  for (const RowNo row : rows.all()) {
    ASSERT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
    ASSERT_TRUE(row_handle_delete(*rows.handle)) << errors();
    EXPECT_EQ(row_handle_read(*rows.handle, row), RowLoad::absent);
    EXPECT_FALSE(row_handle_delete(*rows.handle));  // no row any more
    EXPECT_EQ(first_status(), status::record_argument);
  }
  EXPECT_EQ(row_active_count(*rows.handle->table->large_rows[0]), 0u);
  rows.check_indices();
}

// Reference (length, chunk) and the pieces in use, around p2 = 6 with pieces of 4 bytes.
TEST(RowHandle, LargeValuesAroundTheInlinePart) {
  Engine engine;
  TestDatabase store;
  for (const TypeCode code : {type::text, type::blob}) {
    const std::string table = code == type::text ? "texts" : "blobs";
    ASSERT_TRUE(store.create_table(table.c_str(), {column("v", code, 1, 6, 8), column("n", type::int32)}));
    Rows rows(*store.db, table.c_str());
    RowSystem &chunks = *rows.handle->table->large_rows[0];
    ASSERT_TRUE(rows.insert({"start", "1"})) << errors();
    const RowNo row = rows.handle->row;
    Rows writer(*store.db, table.c_str());
    for (const int length : {1, 5, 6, 7, 10, 11, 6, 300, 3000, 8, 0, 0, 9, 1}) {
      SCOPED_TRACE(table + " " + std::to_string(length));
      const std::string value =
          length == 0 ? "NULL" : std::string(static_cast<size_t>(length), 'a' + length % 26);
      ASSERT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
      row_handle_copy(*writer.handle, *rows.handle);
      ASSERT_TRUE(writer.set("v", value)) << errors();
      ASSERT_TRUE(row_handle_update(*writer.handle)) << errors();
      ASSERT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
      row_handle_copy(*writer.handle, *rows.handle);
      ASSERT_TRUE(writer.set("n", "2"));  // keeps the large value
      ASSERT_TRUE(row_handle_update(*writer.handle)) << errors();

      ASSERT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
      EXPECT_EQ(rows.get("v"), value);
      EXPECT_EQ(load_i32(rows.handle->record), length == 0 ? -1 : length);
      EXPECT_EQ(load_u32(rows.handle->record + 4) != 0, length > 6);
      EXPECT_EQ(row_active_count(chunks), length > 6 ? static_cast<uint32_t>(length - 6 + 3) / 4 : 0);
    }
  }
}

TEST(RowHandle, DamagedReferenceIsRefused) {
  Engine engine;
  TestDatabase store;
  ASSERT_TRUE(store.create_table("t", {column("v", type::text, 1, 6, 8)}));
  Rows rows(*store.db, "t");
  ASSERT_TRUE(rows.insert({"a text of thirty characters..."}));
  const RowNo row = rows.handle->row;
  struct {
    const char *what;
    int32_t length;
    uint32_t chunk;
    StatusCode expected;
  } const damages[] = {{"negative length", -2, 0, status::large_argument},
                       {"long without chunk", 7, 0, status::large_argument},
                       {"short with chunk", 6, 1024, status::large_argument},
                       {"longer than everything", INT32_MAX, 1024, status::large_argument}};
  for (const auto &damage : damages) {
    ASSERT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
    store_i32(rows.handle->record, damage.length);
    store_u32(rows.handle->record + 4, damage.chunk);
    Value value;
    EXPECT_FALSE(row_handle_value(*rows.handle, rows.column("v"), &value)) << damage.what;
    EXPECT_EQ(first_status(), damage.expected) << damage.what;
  }
  ASSERT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
  store_u32(rows.handle->record + 4, load_u32(rows.handle->record + 4) + 1);
  Value value;
  EXPECT_FALSE(row_handle_value(*rows.handle, rows.column("v"), &value));
  EXPECT_EQ(error_record().last_code, status::large_chunk_read);
  err_clear();
}

TEST(RowHandle, StaleDefinitionIsNotWritten) {
  Engine engine;
  TestDatabase store;
  ASSERT_TRUE(store.create_table("t", {column("a", type::int32)}));
  store.begin();
  Rows before(*store.db, "t");
  ASSERT_TRUE(before.insert({"1"}));
  ASSERT_TRUE(index_create(*store.db, "t", index_on("i", {"a"})));
  EXPECT_FALSE(before.insert({"2"}));
  EXPECT_EQ(first_status(), status::record_argument);
  Rows after(*store.db, "t");
  ASSERT_TRUE(after.insert({"2"}));
  after.check_indices();
  store.commit();
  EXPECT_FALSE(before.insert({"3"}));
  EXPECT_EQ(first_status(), status::record_argument);
}

// A write that runs out of room half way takes everything back, and what went before it stays whole.
TEST(RowHandle, FullStorageLeavesRowsAndIndicesAgreeing) {
  Engine engine;
  TestDatabase store("BLOCK_SIZE=1024;SIZE_DAT=60B");
  Database &db = *store.db;
  ASSERT_TRUE(store.create_table("t", {column("a", type::int32), column("b", type::character, 60, 1),
                                       column("c", type::text, 1, 4, 40)}));
  ASSERT_TRUE(index_create(db, "t", index_on("i", {"b"})));
  ASSERT_TRUE(index_create(db, "t", unique_on("u", {"a"})));
  store.begin();
  Random random;
  Rows rows(db, "t"), writer(db, "t");
  int key = 0, failures = 0;
  while (failures < 40) {
    const std::string text(static_cast<size_t>(1 + random.below(400)), 'x');
    const std::vector<RowNo> present = rows.all();
    bool done;
    if (!present.empty() && random.one_in(2)) {
      ASSERT_EQ(row_handle_read(*rows.handle,
                                present[static_cast<size_t>(random.below(static_cast<int>(present.size())))]),
                RowLoad::loaded);
      row_handle_copy(*writer.handle, *rows.handle);
      ASSERT_TRUE(writer.set("b", std::to_string(random.next())) && writer.set("c", text));
      ASSERT_TRUE(writer.set("a", std::to_string(++key)));
      done = row_handle_update(*writer.handle);
    } else {
      done = rows.insert({std::to_string(++key), std::to_string(random.next()), text});
    }
    if (done) continue;
    ++failures;
    EXPECT_EQ(first_status(), status::cache_argument);  // no block left
    ASSERT_NO_FATAL_FAILURE(rows.check_indices());
    for (const RowNo row : rows.all()) {
      ASSERT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
      EXPECT_EQ(rows.get("c").find_first_not_of('x'), std::string::npos) << errors();
    }
  }
  store.commit();
  rows.check_indices();
}

// Random changes beside a model, with commits, rollbacks and reopening.
TEST(RowHandle, ChangesRandom) {
  Engine engine;
  TestDatabase store;
  ASSERT_TRUE(store.create_table("t", {column("k", type::int32), column("g", type::character, 5, 1),
                                       column("x", type::text, 1, 5, 12), column("f", type::float64)}));
  for (const IndexDefinition &index : {unique_on("u", {"k"}), index_on("g", {"g"}, false, 1),
                                       index_on("gf", {"g", "f"}), index_on("f", {"f"}, false, 0)})
    ASSERT_TRUE(index_create(*store.db, "t", index)) << errors();
  ASSERT_TRUE(sm_direct_end(*store.db->storage));
  using Content = std::vector<std::string>;
  std::map<RowNo, Content> committed;
  Random random;
  const auto content = [&]() -> Content {
    const std::string groups[] = {"NULL", "a", "bb", "ccccc", ""};
    return {std::to_string(random.below(400)), groups[random.below(5)],
            random.one_in(4) ? "NULL"
                             : std::string(static_cast<size_t>(1 + random.below(60)), 'a' + random.below(26)),
            random.one_in(4) ? "NULL" : std::to_string(random.below(6))};
  };
  const char *const names[] = {"k", "g", "x", "f"};
  for (int round = 0; round < 30; ++round) {
    store.begin();
    std::map<RowNo, Content> model = committed;
    {
      Rows rows(*store.db, "t"), writer(*store.db, "t");
      for (int step = 0; step < 40; ++step) {
        const Content now = content();
        const auto same_key = [&](RowNo except) {
          for (const auto &[row, values] : model)
            if (row != except && values[0] == now[0]) return true;
          return false;
        };
        const int choice = model.empty() ? 0 : random.below(3);
        if (choice == 0) {
          ASSERT_EQ(rows.insert(now), !same_key(0)) << errors();
          if (rows.handle->row != 0) model[rows.handle->row] = now;
        } else {
          auto victim = model.begin();
          std::advance(victim, random.below(static_cast<int>(model.size())));
          ASSERT_EQ(row_handle_read(*rows.handle, victim->first), RowLoad::loaded);
          for (int i = 0; i < 4; ++i) ASSERT_EQ(rows.get(names[i]), victim->second[i]);
          if (choice == 1) {
            ASSERT_TRUE(row_handle_delete(*rows.handle)) << errors();
            model.erase(victim);
          } else {
            Content changed = victim->second;
            row_handle_copy(*writer.handle, *rows.handle);
            for (int i = 0; i < 4; ++i) {
              if (random.one_in(2)) continue;
              changed[i] = now[i];
              ASSERT_TRUE(writer.set(names[i], now[i])) << errors();
            }
            const bool allowed = changed[0] == victim->second[0] || !same_key(victim->first);
            ASSERT_EQ(row_handle_update(*writer.handle), allowed) << errors();
            if (allowed) victim->second = changed;
          }
        }
        err_clear();
      }
      ASSERT_EQ(rows.all().size(), model.size());
      ASSERT_NO_FATAL_FAILURE(rows.check_indices());
    }
    if (random.one_in(3)) {
      store.rollback();
    } else {
      store.commit();
      committed = model;
    }
    if (random.one_in(5)) store.reopen();
    Rows rows(*store.db, "t");
    ASSERT_EQ(rows.all().size(), committed.size());
    ASSERT_NO_FATAL_FAILURE(rows.check_indices());
  }
}

}  // namespace
}  // namespace tovik
