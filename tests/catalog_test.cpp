#include "data/catalog.h"

#include "data/catalog_records.h"
#include "database_support.h"

namespace tovik {
namespace {

using namespace test;

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
  for (const Damage &damage : tables) {
    uint8_t bytes[table_record_size];
    TableRecord record;
    table_record_encode(table_record, bytes);
    memcpy(bytes + damage.offset, &damage.value, static_cast<size_t>(damage.size));
    EXPECT_FALSE(table_record_decode(bytes, &record)) << damage.what;
    table_record_encode(table_record, bytes);
    memset(bytes + 24, 'x', name_limit + 1);
    EXPECT_FALSE(table_record_decode(bytes, &record));
  }
  const Damage columns[] = {{"other table", 0, 4, 78},       {"large without rows", 4, 4, 0},
                            {"no ordinal", 8, 4, 0},         {"offset past the record", 12, 4, 87},
                            {"negative offset", 12, 4, ~0u}, {"other number", 16, 2, 3},
                            {"no such type", 18, 2, 0x43f},  {"type with wrong class", 18, 2, 0x4e},
                            {"byte", 18, 2, type::byte},     {"not large", 18, 2, type::int32},
                            {"negative p2", 22, 2, 0x8000},  {"empty name", 28, 1, 0}};
  for (const Damage &damage : columns) {
    uint8_t bytes[column_record_size];
    Column column = {};
    column_record_encode(77, text_column, bytes);
    memcpy(bytes + damage.offset, &damage.value, static_cast<size_t>(damage.size));
    EXPECT_FALSE(column_record_decode(bytes, 77, 2, 100, &column)) << damage.what;
  }
}

TEST(Catalog, CreatedTableInTheFile) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  ASSERT_TRUE(store.create_table(
      "t",
      {not_null(column("a", type::smallint)), column("b", type::text), column("c", type::decimal, 0, 4),
       column("d", type::character, 7, 1), auto_increment(column("e", type::bigint))},
      {5, 3, 5}))
      << errors();
  ASSERT_TRUE(index_create(db, "t", index_on("by_da", {"d", "a"}, false, 4))) << errors();
  Table *table = table_open(db, "t");
  ASSERT_NE(table, nullptr) << errors();
  EXPECT_EQ(table->record_size, 2 + 28 + 20 + 7 + 8);
  EXPECT_EQ(table->columns[2].offset, 30);
  EXPECT_EQ(table->auto_column, 5);
  EXPECT_TRUE(table->columns[4].not_null);
  EXPECT_EQ(table->columns[1].p3, 20);
  EXPECT_EQ(table->columns[2].p2, 4);
  EXPECT_EQ(table->rows->kind, RowKind::fixed_auto);
  EXPECT_EQ(row_autoinc_get(*table->rows).step, 3);
  ASSERT_EQ(table->index_count, 2);
  EXPECT_EQ(table->indices[0]->definition.index_name, "__auto_inc__" + std::to_string(table->id));
  EXPECT_TRUE(btree_is_unique(*table->indices[0]));

  uint8_t bytes[table_record_size];
  ASSERT_EQ(row_read(*db.table_rows, table->id, bytes, table_record_size, nullptr), RowRead::active);
  TableRecord record;
  ASSERT_TRUE(table_record_decode(bytes, &record));
  EXPECT_EQ(record.index_count, 2);
  EXPECT_EQ(record.large_count, 1);
  uint8_t list[index_list_size];
  ASSERT_EQ(row_read(*db.index_rows, record.index_list_row, list, index_list_size, nullptr), RowRead::active);
  EXPECT_EQ(load_u32(list), table->indices[0]->number);
  EXPECT_EQ(load_u32(list + 4), table->indices[1]->number);
  EXPECT_EQ(hex(list + 8, index_list_size - 8), zeros(index_list_size - 8));

  const IndexDefinition again = index_definition(*table, *table->indices[1]);
  EXPECT_STREQ(again.name, "by_da");
  EXPECT_EQ(again.master_count, 4);
  EXPECT_STREQ(again.columns[0], "d");
  EXPECT_STREQ(again.columns[1], "a");
  table_close(table);

  store.reopen();  // the same from the file
  table = table_open(*store.db, "t");
  ASSERT_NE(table, nullptr) << errors();
  EXPECT_EQ(table->record_size, 65);
  EXPECT_EQ(table->index_count, 2);
  EXPECT_EQ(row_autoinc_get(*table->rows).next, 5);
  EXPECT_EQ(table_find_column(*table, "ROWID"), &table->rowid);
  EXPECT_EQ(table_find_column(*table, "A"), nullptr);
  table_close(table);
}

TEST(Catalog, TableValidation) {
  Engine engine;
  TestDatabase store;
  ASSERT_TRUE(store.create_table("taken", {column("a", type::int32)}));
  const std::string name20(20, 'n'), name21(21, 'n');
  const std::vector<ColumnDefinition> one = {column("a", type::int32)};
  const auto number = [](TypeCode type) { return auto_increment(column("a", type)); };
  const std::vector<ColumnDefinition> wide(201, column("a", type::int32));
  const AutoIncrementOptions ones = {1, 1, 1};
  struct {
    const char *what;
    std::string name;
    std::vector<ColumnDefinition> columns;
    AutoIncrementOptions options;
    StatusCode expected;
  } const cases[] = {
      {"table name of 21 bytes", name21, one, ones, status::table_name_length},
      {"201 columns", "t", wide, ones, status::too_many_columns},
      {"existing table", "taken", one, ones, status::table_exists},
      {"no column name", "t", {column("", type::int32)}, ones, status::column_no_name},
      {"column name of 21 bytes", "t", {column(name21, type::int32)}, ones, status::column_name_length},
      {"rowid", "t", {column("RowID", type::int32)}, ones, status::column_name_reserved},
      {"same name twice", "t", {one[0], column("b", type::int32), one[0]}, ones, status::column_name_twice},
      {"char without size", "t", {column("a", type::character, 0, 1)}, ones, status::column_parameter_1},
      {"char with p2 0", "t", {column("a", type::character, 10, 0)}, ones, status::column_parameter_2},
      {"varchar with p2 4", "t", {column("a", type::varchar, 10, 4)}, ones, status::column_parameter_2},
      {"date with a size", "t", {column("a", type::date, 8)}, ones, status::column_parameter_1},
      {"byte", "t", {column("a", type::byte, 8)}, ones, status::column_type},
      {"unknown type", "t", {column("a", 0x4f)}, ones, status::column_type},
      {"text auto increment",
       "t",
       {auto_increment(column("a", type::text))},
       ones,
       status::auto_increment_type},
      {"init 0", "t", {number(type::int32)}, {0, 1, 1}, status::auto_increment_init},
      {"step 0", "t", {number(type::int32)}, {1, 0, 1}, status::auto_increment_step},
      {"step 65536", "t", {number(type::int32)}, {1, 65536, 1}, status::auto_increment_step},
      {"tinyint 128", "t", {number(type::tinyint)}, {128, 1, 128}, status::auto_increment_init_range},
      {"csmallint 32768", "t", {number(type::csmallint)}, {32768, 1, 1}, status::auto_increment_init_range},
      {"int 2147483648", "t", {number(type::int32)}, {2147483648, 1, 1}, status::auto_increment_init_range},
      {"two auto columns",
       "t",
       {number(type::int32), auto_increment(column("b", type::cint))},
       ones,
       status::auto_increment_twice},
  };
  for (const auto &test : cases) {
    EXPECT_FALSE(store.create_table(test.name.c_str(), test.columns, test.options)) << test.what;
    EXPECT_EQ(first_status(), test.expected) << test.what;
  }
  EXPECT_EQ(store.table_names(), "taken ");

  EXPECT_TRUE(store.create_table(name20.c_str(), {column(name20, type::tinyint)})) << errors();
  EXPECT_TRUE(store.create_table("big", {number(type::cbigint)}, {INT64_MAX, 65535, INT64_MAX})) << errors();
  std::vector<ColumnDefinition> columns;
  for (int i = 0; i < column_limit; ++i) columns.push_back(column("c" + std::to_string(i), type::tinyint));
  EXPECT_TRUE(store.create_table("wide", columns)) << errors();
  Table *table = table_open(*store.db, name20.c_str());
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->record_size, 4);
  table_close(table);
}

TEST(Catalog, TableLimit) {
  Engine engine;
  TestDatabase store;
  store.begin();
  for (int i = 0; i < table_limit; ++i)
    ASSERT_TRUE(store.create_table(("t" + std::to_string(i)).c_str(), {column("a", type::int32)}))
        << errors();
  EXPECT_FALSE(store.create_table("more", {column("a", type::int32)}));
  EXPECT_EQ(first_status(), status::too_many_tables);
  EXPECT_TRUE(table_empty(*store.db, "t5")) << errors();
  EXPECT_TRUE(table_drop(*store.db, "t77")) << errors();
  EXPECT_TRUE(store.create_table("more", {column("a", type::int32)})) << errors();
  store.commit();
  store.reopen();
  EXPECT_TRUE(store.has_table("more"));
  EXPECT_TRUE(store.has_table("t127"));
  EXPECT_FALSE(store.has_table("t77"));
}

TEST(Catalog, IndexValidation) {
  Engine engine;
  TestDatabase store;
  ASSERT_TRUE(store.create_table("t", {column("a", type::int32), column("b", type::character, 100, 1),
                                       column("c", type::character, 28, 1), column("d", type::blob),
                                       column("e", type::character, 29, 1)}));
  ASSERT_TRUE(index_create(*store.db, "t", index_on("i", {"a"}))) << errors();
  IndexDefinition three = index_on("n", {"a", "b"});
  three.column_count = 3;
  IndexDefinition unterminated = index_on("n", {"a", "b"});
  memset(unterminated.name, 'x', name_size);
  struct {
    const char *what;
    IndexDefinition definition;
    StatusCode expected;
  } const cases[] = {{"no columns", index_on("n", {}), status::index_column_count},
                     {"three columns", three, status::index_column_count},
                     {"master count 17", index_on("n", {"a", "c"}, false, 17), status::index_master_count},
                     {"no name", index_on("", {"a", "c"}), status::index_no_name},
                     {"name of 32 bytes", unterminated, status::index_name_length},
                     {"existing name", index_on("i", {"a", "c"}), status::index_name_exists},
                     {"unknown column", index_on("n", {"a", "x"}), status::index_no_column},
                     {"rowid", index_on("n", {"rowid"}), status::index_no_column},
                     {"column twice", index_on("n", {"a", "a"}), status::index_column_twice},
                     {"blob", index_on("n", {"d"}), status::index_large_column},
                     {"key of 129 bytes", index_on("n", {"b", "e"}), status::index_key_size},
                     {"same columns", unique_on("n", {"a"}), status::index_exists}};
  for (const auto &test : cases) {
    EXPECT_FALSE(index_create(*store.db, "t", test.definition)) << test.what;
    EXPECT_EQ(first_status(), test.expected) << test.what;
  }
  EXPECT_FALSE(index_create(*store.db, "none", index_on("n", {"a"})));
  EXPECT_EQ(first_status(), status::table_missing);
  EXPECT_TRUE(index_create(*store.db, "t", index_on(std::string(31, 'n'), {"b", "c"}))) << errors();
  EXPECT_TRUE(index_create(*store.db, "t", index_on("ac", {"a", "c"}))) << errors();
  EXPECT_TRUE(index_create(*store.db, "t", index_on("ca", {"c", "a"}))) << errors();
}

TEST(Catalog, SixteenIndices) {
  Engine engine;
  TestDatabase store;
  std::vector<ColumnDefinition> columns;
  for (int i = 0; i < 17; ++i) columns.push_back(column("c" + std::to_string(i), type::tinyint));
  ASSERT_TRUE(store.create_table("t", columns));
  for (int i = 0; i < index_limit; ++i)
    ASSERT_TRUE(index_create(*store.db, "t", index_on("i" + std::to_string(i), {columns[i].name})))
        << errors();
  EXPECT_FALSE(index_create(*store.db, "t", index_on("i16", {"c16"})));
  EXPECT_EQ(first_status(), status::too_many_indices);
  EXPECT_TRUE(index_drop(*store.db, "i3")) << errors();
  EXPECT_TRUE(index_create(*store.db, "t", index_on("i16", {"c16"}))) << errors();
  EXPECT_TRUE(index_drop(*store.db, "i0")) << errors();
  Table *table = table_open(*store.db, "t");
  ASSERT_EQ(table->index_count, 15);
  EXPECT_STREQ(table->indices[0]->definition.index_name, "i1");
  EXPECT_STREQ(table->indices[2]->definition.index_name, "i4");
  EXPECT_STREQ(table->indices[14]->definition.index_name, "i16");
  table_close(table);
  EXPECT_FALSE(index_drop(*store.db, "i3"));
  EXPECT_EQ(first_status(), status::index_missing);
}

TEST(Catalog, IndexOverExistingRows) {
  Engine engine;
  TestDatabase store;
  ASSERT_TRUE(store.create_table("t", {column("a", type::int32), column("b", type::int32)}));
  store.begin();
  {
    Rows rows(*store.db, "t");
    for (int i = 0; i < 300; ++i)
      ASSERT_TRUE(rows.insert({std::to_string(i % 50), std::to_string(i)})) << errors();
  }
  const BlockNo used = tm_counters(*store.db->storage->tm).bcnt - tm_counters(*store.db->storage->tm).fcnt;
  EXPECT_FALSE(index_create(*store.db, "t", unique_on("u", {"a"})));
  EXPECT_EQ(first_status(), status::unique_violation);
  EXPECT_EQ(tm_counters(*store.db->storage->tm).bcnt - tm_counters(*store.db->storage->tm).fcnt, used);
  ASSERT_TRUE(index_create(*store.db, "t", index_on("u", {"a"}))) << errors();  // the name is free
  ASSERT_TRUE(index_create(*store.db, "t", unique_on("v", {"b", "a"}))) << errors();
  store.commit();
  Rows rows(*store.db, "t");
  EXPECT_EQ(rows.handle->table->index_count, 2);
  rows.check_indices();
}

TEST(Catalog, RenameTableAndColumn) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  ASSERT_TRUE(store.create_table("old", {column("a", type::int32), column("b", type::int32)}));
  ASSERT_TRUE(store.create_table("other", {column("a", type::int32)}));
  ASSERT_TRUE(index_create(db, "old", unique_on("i", {"a"})));
  struct {
    const char *from, *to;
    StatusCode expected;
  } const tables[] = {{"old", "123456789012345678901", status::table_name_length},
                      {"none", "new", status::table_missing},
                      {"old", "other", status::table_exists},
                      {"old", "old", status::table_exists}};
  for (const auto &test : tables) {
    EXPECT_FALSE(table_rename(db, test.from, test.to));
    EXPECT_EQ(first_status(), test.expected) << test.from << " " << test.to;
  }
  struct {
    const char *from, *to;
    StatusCode expected;
  } const columns[] = {
      {"x", "y", status::column_missing},    {"rowid", "y", status::column_missing},
      {"a", "b", status::column_name_twice}, {"a", "RowID", status::column_name_twice},
      {"a", "", status::column_no_name},     {"a", "123456789012345678901", status::column_name_length}};
  for (const auto &test : columns) {
    EXPECT_FALSE(column_rename(db, "old", test.from, test.to));
    EXPECT_EQ(first_status(), test.expected) << test.from << " " << test.to;
  }
  { ASSERT_TRUE(Rows(db, "old").insert({"1", "2"})) << errors(); }
  ASSERT_TRUE(table_rename(db, "old", "new")) << errors();
  ASSERT_TRUE(column_rename(db, "new", "a", "first")) << errors();
  EXPECT_FALSE(store.has_table("old"));
  ASSERT_TRUE(sm_direct_end(*db.storage));
  store.reopen();
  {
    Rows rows(*store.db, "new");
    EXPECT_EQ(rows.all().size(), 1u);
    EXPECT_NE(table_find_column(*rows.handle->table, "first"), nullptr);
    EXPECT_EQ(table_find_column(*rows.handle->table, "a"), nullptr);
  }
  EXPECT_TRUE(index_drop(*store.db, "i")) << errors();  // found through the table's new name
  EXPECT_EQ(store.table_names(), "new other ");
}

TEST(Catalog, EmptyKeepsTheSchema) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  ASSERT_TRUE(store.create_table(
      "t",
      {auto_increment(column("a", type::int32)), column("b", type::text, 1, 4, 8), column("c", type::date)},
      {10, 5, 10}));
  ASSERT_TRUE(index_create(db, "t", index_on("i", {"c", "a"}, false, 0)));
  RowNo id;
  {
    Rows rows(db, "t");
    id = rows.handle->table->id;
    for (int i = 0; i < 20; ++i)
      ASSERT_TRUE(rows.insert({"NULL", std::string(40, 'x'), "20200101"})) << errors();
  }
  const Counters before = bm_counters(*db.storage->bm, part_dat);
  store.begin();
  ASSERT_TRUE(table_empty(db, "t")) << errors();
  store.rollback();
  EXPECT_EQ(Rows(db, "t").all().size(), 20u);
  EXPECT_EQ(bm_counters(*db.storage->bm, part_dat).fcnt, before.fcnt);
  ASSERT_TRUE(table_empty(db, "t")) << errors();
  Rows rows(db, "t");
  const Table &table = *rows.handle->table;
  EXPECT_EQ(rows.all().size(), 0u);
  EXPECT_NE(table.id, id);
  ASSERT_EQ(table.index_count, 2);
  EXPECT_EQ(table.indices[0]->definition.index_name, "__auto_inc__" + std::to_string(table.id));
  EXPECT_STREQ(table.indices[1]->definition.index_name, "i");
  EXPECT_EQ(table.indices[1]->definition.master_count, 0);
  ASSERT_TRUE(rows.insert({"NULL", std::string(40, 'y')})) << errors();
  EXPECT_EQ(rows.get("a"), "110");  // the counter goes on
  EXPECT_EQ(store.table_names(), "t ");
}

// What a dropped table held is there for the next one.
TEST(Catalog, DropGivesEverythingBack) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  const auto in_use = [&db] {
    const Counters &counters = bm_counters(*db.storage->bm, part_dat);
    return counters.bcnt - counters.fcnt;
  };
  const auto round = [&] {
    ASSERT_TRUE(store.create_table(
        "t", {auto_increment(column("a", type::int32)), column("b", type::text), column("c", type::int32)}));
    ASSERT_TRUE(index_create(db, "t", index_on("i", {"c"}))) << errors();
    {
      Rows rows(db, "t");
      for (int i = 0; i < 100; ++i) ASSERT_TRUE(rows.insert({"0", std::string(100, 'x'), "7"})) << errors();
    }
    ASSERT_TRUE(table_drop(db, "t")) << errors();
  };
  round();
  const BlockNo once = in_use();
  round();
  round();
  EXPECT_EQ(in_use(), once);
  EXPECT_EQ(row_active_count(*db.table_rows), 0u);
  EXPECT_EQ(row_active_count(*db.column_rows), 0u);
  EXPECT_EQ(row_active_count(*db.index_rows), 0u);
  EXPECT_FALSE(table_drop(db, "t"));
  EXPECT_EQ(first_status(), status::table_missing);
}

}  // namespace
}  // namespace tovik
