// The catalog's records byte by byte, what its definitions may hold, and what its changes leave in the file.
#include "data/catalog.h"

#include "data/catalog_records.h"
#include "database_support.h"

namespace tovik {
namespace {

using namespace test;
using Catalog = DatabaseTest;

std::string zeros(int bytes) {
  return std::string(static_cast<size_t>(2 * bytes), '0');
}

const TableRecord table_record = {0x01020304, 0x11121314, 0x21222324, 0x31323334, 5, 2, 1, 3, "orders"};
const Column text_column = {type::text, 2, 5, 6, 7, true, false, 10, 14, 1, 0x51525354, "price"};

TEST(CatalogRecords, Bytes) {
  uint8_t table[table_record_size], column[column_record_size];
  table_record_encode(table_record, table);
  column_record_encode(77, text_column, column);
  EXPECT_EQ(hex(table, table_record_size),
            "04030201141312112423222134333231"
            "0500020001000300"
            "6f7264657273" +
                zeros(26));
  EXPECT_EQ(hex(column, column_record_size),
            "4d00000054535251010000000a000000"
            "02000e12050006000700"
            "0100"
            "7072696365" +
                zeros(27));
  TableRecord record;
  ASSERT_TRUE(table_record_decode(table, &record));
  EXPECT_STREQ(record.name, "orders");
  EXPECT_EQ(record.record_size, 0x31323334);
  Column back = {};
  ASSERT_TRUE(column_record_decode(column, 77, 2, 100, &back));
  EXPECT_EQ(back.stored_size, 14);
  EXPECT_EQ(back.overflow_rows, 0x51525354u);
}

// One field of a good record at a time gets a value that cannot be.
TEST(CatalogRecords, DamageIsRefused) {
  struct Damage {
    const char *what;
    int offset, size;
    uint32_t value;
  };
  const Damage tables[] = {{"no rows", 0, 4, 0},          {"no columns row", 4, 4, 0},
                           {"indices, no list", 8, 4, 0}, {"record size 3", 12, 4, 3},
                           {"negative size", 12, 4, ~0u}, {"no columns", 16, 2, 0},
                           {"201 columns", 16, 2, 201},   {"17 indices", 18, 2, 17},
                           {"6 of 5 large", 20, 2, 6},    {"auto column 6 of 5", 22, 2, 6},
                           {"empty name", 24, 1, 0}};
  uint8_t bytes[table_record_size];
  TableRecord record;
  for (const Damage &damage : tables) {
    table_record_encode(table_record, bytes);
    memcpy(bytes + damage.offset, &damage.value, static_cast<size_t>(damage.size));
    EXPECT_FALSE(table_record_decode(bytes, &record)) << damage.what;
  }
  table_record_encode(table_record, bytes);
  memset(bytes + 24, 'x', name_limit + 1);
  EXPECT_FALSE(table_record_decode(bytes, &record)) << "a name that is too long";
  const Damage columns[] = {{"other table", 0, 4, 78},       {"large without rows", 4, 4, 0},
                            {"no ordinal", 8, 4, 0},         {"offset past the record", 12, 4, 87},
                            {"negative offset", 12, 4, ~0u}, {"other number", 16, 2, 3},
                            {"no such type", 18, 2, 0x43f},  {"type with wrong class", 18, 2, 0x4e},
                            {"byte", 18, 2, type::byte},     {"not large", 18, 2, type::int32},
                            {"negative p2", 22, 2, 0x8000},  {"empty name", 28, 1, 0}};
  for (const Damage &damage : columns) {
    uint8_t changed[column_record_size];
    Column column = {};
    column_record_encode(77, text_column, changed);
    memcpy(changed + damage.offset, &damage.value, static_cast<size_t>(damage.size));
    EXPECT_FALSE(column_record_decode(changed, 77, 2, 100, &column)) << damage.what;
  }
}

TEST_F(Catalog, CreatedTableInTheFile) {
  ASSERT_TRUE(store.create_table(
      "t",
      {not_null(column("a", type::smallint)), column("b", type::text), column("c", type::decimal, 0, 4),
       column("d", type::character, 7, 1), auto_increment(column("e", type::bigint))},
      {5, 3, 5}))
      << errors();
  ASSERT_TRUE(index_create(db(), "t", index_on("by_da", {"d", "a"}, false, 4))) << errors();
  store.reopen();
  Table *table = table_open(db(), "t");
  ASSERT_NE(table, nullptr) << errors();
  EXPECT_EQ(table->record_size, 2 + 28 + 20 + 7 + 8);
  EXPECT_EQ(table->columns[2].offset, 30);
  EXPECT_EQ(row_autoinc_get(*table->rows).step, 3);
  ASSERT_EQ(table->index_count, 2);
  EXPECT_EQ(table->indices[0]->definition.index_name, "__auto_inc__" + std::to_string(table->id));
  uint8_t bytes[table_record_size], list[index_list_size];
  ASSERT_EQ(row_read(*db().table_rows, table->id, bytes, table_record_size, nullptr), RowRead::active);
  TableRecord record;
  ASSERT_TRUE(table_record_decode(bytes, &record));
  ASSERT_EQ(row_read(*db().index_rows, record.index_list_row, list, index_list_size, nullptr),
            RowRead::active);
  EXPECT_EQ(load_u32(list), table->indices[0]->number);
  EXPECT_EQ(load_u32(list + 4), table->indices[1]->number);
  EXPECT_EQ(hex(list + 8, index_list_size - 8), zeros(index_list_size - 8));
  table_close(table);
}

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

// What a dropped table held is there for the next one.
TEST_F(Catalog, DropGivesEverythingBack) {
  const auto round = [&] {
    ASSERT_TRUE(store.create_table(
        "t", {auto_increment(column("a", type::int32)), column("b", type::text), column("c", type::int32)}));
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(store.insert("t", {"0", std::string(100, 'x'), "7"}));
    const BlockNo used = store.used_blocks();
    EXPECT_FALSE(index_create(db(), "t", unique_on("i", {"c"})));
    EXPECT_EQ(first_status(), status::unique_violation);
    EXPECT_EQ(store.used_blocks(), used) << "a failed index leaves nothing behind";
    ASSERT_TRUE(index_create(db(), "t", index_on("i", {"c"}))) << errors();
    EXPECT_NE(store.schema().find(",i,]100 "), std::string::npos);
    ASSERT_TRUE(table_drop(db(), "t")) << errors();
  };
  round();
  const BlockNo once = store.used_blocks();
  round();
  round();
  EXPECT_EQ(store.used_blocks(), once);
  EXPECT_EQ(row_active_count(*db().table_rows), 0u);
  EXPECT_EQ(row_active_count(*db().column_rows), 0u);
  EXPECT_EQ(row_active_count(*db().index_rows), 0u);
}

}  // namespace
}  // namespace tovik
