// What the definitions of the catalog may hold, and what its changes leave in the file.
#include "data/table/catalog.h"

#include "database_support.h"

namespace tovik {
namespace {

using namespace test;
using Catalog = DatabaseTest;

TEST_F(Catalog, TableValidation) {
  const auto number = [](TypeCode type) { return auto_increment(column("a", type)); };
  const std::vector<ColumnDefinition> one = {column("a", type::int32)};
  const AutoIncrementOptions ones = {1, 1, 1};
  const struct {
    const char *what;
    std::vector<ColumnDefinition> columns;
    AutoIncrementOptions options;
    StatusCode expected;
  } cases[] = {
      {"201 columns", std::vector<ColumnDefinition>(201, one[0]), ones, status::too_many_columns},
      {"char with p2 0", {column("a", type::character, 10, 0)}, ones, status::column_parameter_2},
      {"date with a size", {column("a", type::date, 8)}, ones, status::column_parameter_1},
      {"byte", {column("a", type::byte, 8)}, ones, status::column_type},
      {"smallint 32768", {number(type::csmallint)}, {32768, 1, 1}, status::auto_increment_init_range},
  };
  for (const auto &test : cases) {
    EXPECT_FALSE(store.create_table("t", test.columns, test.options)) << test.what;
    EXPECT_EQ(first_status(), test.expected) << test.what;
  }
}

TEST_F(Catalog, TableLimit) {
  store.begin();
  for (int i = 0; i < table_limit; ++i)
    ASSERT_TRUE(store.create_table(("t" + std::to_string(i)).c_str(), {column("a", type::int32)}))
        << errors();
  EXPECT_FALSE(store.create_table("more", {column("a", type::int32)}));
  EXPECT_EQ(first_status(), status::too_many_tables);
  EXPECT_TRUE(table_drop(db(), "t77") && store.create_table("more", {column("a", type::int32)})) << errors();
  store.commit();
}

TEST_F(Catalog, IndexValidation) {
  ASSERT_TRUE(
      store.create_table("t", {column("b", type::character, 100, 1), column("c", type::character, 28, 1),
                               column("e", type::character, 29, 1)}));
  IndexDefinition unterminated = index_on("n", {"b"});
  memset(unterminated.name, 'x', name_size);
  const std::pair<IndexDefinition, StatusCode> cases[] = {
      {index_on("n", {}), status::index_column_count},
      {unterminated, status::index_name_length},
      {index_on("n", {"rowid"}), status::index_no_column},
      {index_on("n", {"b", "e"}), status::index_key_size},
  };
  for (const auto &[definition, expected] : cases) {
    EXPECT_FALSE(index_create(db(), "t", definition));
    EXPECT_EQ(first_status(), expected);
  }
  EXPECT_TRUE(index_create(db(), "t", index_on(std::string(31, 'n'), {"b", "c"}))) << errors();
}

TEST_F(Catalog, SixteenIndices) {
  std::vector<ColumnDefinition> columns;
  for (int i = 0; i < 17; ++i) columns.push_back(column("c" + std::to_string(i), type::tinyint));
  ASSERT_TRUE(store.create_table("t", columns));
  const auto create = [&](int i) {
    return index_create(db(), "t", index_on("i" + std::to_string(i), {columns[i].name}));
  };
  for (int i = 0; i < index_limit; ++i) ASSERT_TRUE(create(i)) << errors();
  EXPECT_FALSE(create(16));
  EXPECT_EQ(first_status(), status::too_many_indices);
}

TEST_F(Catalog, EmptyKeepsTheSchema) {
  ASSERT_TRUE(store.create_table(
      "t",
      {auto_increment(column("a", type::int32)), column("b", type::text, 1, 4, 4), column("c", type::date)},
      {10, 5, 10}));
  ASSERT_TRUE(index_create(db(), "t", index_on("i", {"c", "a"}, false, 0)));
  for (int i = 0; i < 20; ++i)
    ASSERT_TRUE(store.insert("t", {"NULL", std::string(40, 'x'), "20200101"})) << errors();
  const std::string before = store.schema();
  const BlockNo used = store.used_blocks();
  store.begin();
  ASSERT_TRUE(table_empty(db(), "t")) << errors();
  store.rollback();
  EXPECT_EQ(store.schema(), before);
  EXPECT_EQ(store.used_blocks(), used);
  ASSERT_TRUE(table_empty(db(), "t")) << errors();
  Rows rows(db(), "t");
  const Table &table = *rows.handle->table;
  EXPECT_EQ(store.schema(), "t(a,b,c,)[__auto_inc__" + std::to_string(table.id) + ",i,]0 ");
  ASSERT_TRUE(rows.insert({"NULL", std::string(40, 'y')})) << errors();
  EXPECT_EQ(rows.get("a"), "110") << "the counter goes on";
  EXPECT_EQ(rows.column("b").p3, 20) << "no chunk is of 4 bytes";
}

// Two connections that insert in turn and roll back now and then, beside values given by hand.
TEST_F(Catalog, AutoIncrementGivesValuesThatNobodyHas) {
  ASSERT_TRUE(store.create_table("t", {auto_increment(column("a", type::int32)), column("b", type::int32)},
                                 {3, 2, 3}));
  Database *other = db_open(store.text.c_str());
  ASSERT_NE(other, nullptr) << errors();
  const auto insert = [&](Database &db, const char *value, bool keep = true) {
    EXPECT_EQ(db_start(db, current_thread(), false), DbStart::started) << errors();
    std::string given = "failed";
    {
      Rows rows(db, "t");
      if (rows.insert({value, "1"})) given = rows.get("a");
    }
    EXPECT_TRUE(keep ? db_commit(db, current_thread()) : db_rollback(db, current_thread())) << errors();
    return given;
  };
  const struct {
    bool elsewhere;
    const char *value, *given;
    bool keep;
  } steps[] = {
      {false, "0", "3", true},      {true, "NULL", "5", true}, {true, "7", "7", true},
      {false, "9", "9", true},      {false, "8", "8", true},   {false, "0", "11", false},
      {true, "0", "11", true},      {false, "0", "13", true},  {true, "2147483647", "2147483647", true},
      {true, "13", "failed", true}, {true, "0", "15", true},
  };
  for (const auto &step : steps)
    EXPECT_EQ(insert(step.elsewhere ? *other : db(), step.value, step.keep), step.given) << &step - steps;
  db_close(other);
  err_clear();

  // The last value of a type is used, then each insert says so.
  const std::pair<TypeCode, int64_t> last_values[] = {
      {type::ctinyint, 127}, {type::int32, INT32_MAX}, {type::bigint, INT64_MAX}, {type::cbigint, INT64_MAX}};
  for (const auto &[code, last] : last_values) {
    const char *name = type_row(code)->name;
    const std::string next_to_last = std::to_string(last - 1);
    ASSERT_TRUE(store.create_table(name, {auto_increment(column("a", code))}, {last - 1, 1, last - 1}));
    ASSERT_TRUE(store.insert(name, {next_to_last})) << errors();
    ASSERT_TRUE(store.insert(name, {"0"})) << errors();
    for (int again = 0; again < 2; ++again) {
      EXPECT_FALSE(store.insert(name, {"0"}));
      EXPECT_EQ(take_recorded(), Codes{status::input_number_range}) << name;
      ASSERT_TRUE(again == 1 || table_empty(db(), name)) << errors();
    }
  }
}

}  // namespace
}  // namespace tovik
