// What the definitions of the catalog may hold, and what its changes leave in the file.
#include "data/table/catalog.h"

#include "database_support.h"

namespace tovik {
namespace {

using namespace test;
using Catalog = DatabaseTest;

TEST_F(Catalog, TableValidation) {
  const ColumnDefinition number = column("a", type::int32);
  const std::tuple<std::vector<ColumnDefinition>, int64_t, StatusCode> cases[] = {
      {std::vector<ColumnDefinition>(201, number), 1, status::too_many_columns},
      {{column("a", type::character, 10, 0)}, 1, status::column_parameter_2},
      {{column("a", type::date, 8)}, 1, status::column_parameter_1},
      {{column("a", type::byte, 8)}, 1, status::column_type},
      {{auto_increment(column("a", type::csmallint))}, 32768, status::auto_increment_init_range},
  };
  for (const auto &[columns, init, expected] : cases) {
    EXPECT_FALSE(store.create_table("t", columns, {init, 1, 1}));
    EXPECT_EQ(first_status(), expected);
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
  std::vector<ColumnDefinition> columns = {column("b", type::character, 100, 1),
                                           column("c", type::character, 28, 1),
                                           column("e", type::character, 29, 1)};
  for (int i = 1; i <= index_limit; ++i) columns.push_back(column("c" + std::to_string(i), type::tinyint));
  ASSERT_TRUE(store.create_table("t", columns));
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
  for (int i = 1; i <= index_limit; ++i)
    EXPECT_EQ(index_create(db(), "t", index_on("i" + std::to_string(i), {columns[2 + i].name})),
              i < index_limit);
  EXPECT_EQ(first_status(), status::too_many_indices);
}

TEST_F(Catalog, StaleDefinitionIsNotWritten) {
  ASSERT_TRUE(store.create_table("t", {column("a", type::int32)}));
  store.begin();
  Rows before(db(), "t");
  EXPECT_FALSE(row_handle_delete(*before.handle)) << "no row";
  EXPECT_EQ(first_status(), status::record_argument);
  ASSERT_TRUE(before.insert({"1"}));
  ASSERT_TRUE(index_create(db(), "t", index_on("i", {"a"})));
  EXPECT_FALSE(before.insert({"2"}));
  EXPECT_EQ(first_status(), status::record_argument);
  ASSERT_TRUE(store.insert("t", {"2"}));
  store.commit();
  EXPECT_FALSE(before.insert({"3"}));
  EXPECT_EQ(first_status(), status::record_argument);
  EXPECT_EQ(table_fault(*Rows(db(), "t").handle->table), "");
}

// Two connections that insert in turn and roll back now and then, beside values given by hand.
TEST_F(Catalog, AutoIncrementGivesValuesThatNobodyHas) {
  ASSERT_TRUE(store.create_table("t", {auto_increment(column("a", type::int32)), column("b", type::int32)},
                                 {3, 2, 3}));
  Database *other = db_open(store.text.c_str());
  ASSERT_NE(other, nullptr) << errors();
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
  for (const auto &step : steps) {
    Database &user = step.elsewhere ? *other : db();
    EXPECT_EQ(db_start(user, current_thread(), Nesting::refused), DbStart::started) << errors();
    {
      Rows rows(user, "t");
      EXPECT_EQ(rows.insert({step.value, "1"}) ? rows.get("a") : "failed", step.given) << &step - steps;
    }
    EXPECT_TRUE(step.keep ? db_commit(user, current_thread()) : db_rollback(user, current_thread()))
        << errors();
  }
  db_close(other);
  err_clear();

  // The last value of a type is used, then each insert says so.
  const std::pair<TypeCode, int64_t> last_values[] = {
      {type::ctinyint, 127}, {type::int32, INT32_MAX}, {type::bigint, INT64_MAX}, {type::cbigint, INT64_MAX}};
  for (const auto &[code, last] : last_values) {
    const char *name = type_row(code)->name;
    ASSERT_TRUE(store.create_table(name, {auto_increment(column("a", code))}, {last - 1, 1, last - 1}));
    ASSERT_TRUE(store.insert(name, {std::to_string(last - 1)})) << errors();
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
