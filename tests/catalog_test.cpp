// What the definitions of the catalog may hold, and what its changes leave in the file.
#include "data/catalog.h"

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
      {auto_increment(column("a", type::int32)), column("b", type::text, 1, 4, 8), column("c", type::date)},
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
}

}  // namespace
}  // namespace tovik
