#include "data/table/row_handle.h"

#include <functional>

#include "database_support.h"

namespace tovik {
namespace {

using namespace test;

class RowHandles : public DatabaseTest {
 public:
  // The row as it is now, with changes to some columns.
  static bool update(Rows &rows, RowNo row,
                     const std::vector<std::pair<const char *, std::string>> &changes) {
    EXPECT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
    Rows writer(static_cast<Database &>(*rows.handle->table->catalog), rows.handle->table->name);
    row_handle_copy(*writer.handle, *rows.handle);
    for (const auto &[name, value] : changes) EXPECT_TRUE(writer.set(name, value)) << errors();
    const bool updated = row_handle_update(*writer.handle);
    EXPECT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
    return updated;
  }
};

// Reference (length, chunk) and the pieces in use, around p2 = 6 with pieces of 4 bytes.
TEST_F(RowHandles, LargeValuesAroundTheInlinePart) {
  for (const TypeCode code : {type::text, type::blob}) {
    const std::string table = code == type::text ? "texts" : "blobs";
    ASSERT_TRUE(store.create_table(table.c_str(), {column("v", code, 1, 6, 8), column("n", type::int32)}));
    Rows rows(db(), table.c_str());
    RowSystem &chunks = *rows.handle->table->large_rows[0];
    ASSERT_TRUE(rows.insert({"start", "1"})) << errors();
    const RowNo row = rows.handle->row;
    for (const int length : {1, 5, 6, 7, 10, 11, 6, 300, 3000, 8, 0, 0, 9, 1, 100}) {
      SCOPED_TRACE(table + " " + std::to_string(length));
      const std::string value(static_cast<size_t>(length), static_cast<char>('a' + length % 26));
      ASSERT_TRUE(update(rows, row, {{"v", length == 0 ? "NULL" : value}})) << errors();
      ASSERT_TRUE(update(rows, row, {{"n", "2"}})) << errors();  // keeps the large value
      EXPECT_EQ(rows.get("v"), length == 0 ? "NULL" : value);
      EXPECT_EQ(load_i32(rows.handle->record), length == 0 ? -1 : length);
      EXPECT_EQ(load_u32(rows.handle->record + 4) != 0, length > 6);
      EXPECT_EQ(row_active_count(chunks), length > 6 ? static_cast<uint32_t>(length - 6 + 3) / 4 : 0);
    }
    ASSERT_TRUE(row_handle_delete(*rows.handle)) << errors();
    EXPECT_EQ(row_active_count(chunks), 0u);
    EXPECT_EQ(row_handle_read(*rows.handle, row), RowLoad::absent);
    EXPECT_FALSE(row_handle_delete(*rows.handle)) << "no row any more";
    EXPECT_EQ(first_status(), status::record_argument);
  }
}

// A large value is read from its chunks only while they are those of the row that was read.
TEST_F(RowHandles, LargeValueOfAChangedRowIsRefused) {
  ASSERT_TRUE(store.create_table("t", {column("v", type::text, 1, 6, 8), column("n", type::int32)}));
  const std::string value(30, 'a'), other = std::string(6, 'a') + std::string(24, 'b');
  ASSERT_TRUE(store.insert("t", {value, "1"}));
  Rows writer(db(), "t"), reader(db(), "t");
  const RowNo row = writer.all()[0];
  const auto erase = [&] {
    EXPECT_EQ(row_handle_read(*writer.handle, row), RowLoad::loaded);
    return row_handle_delete(*writer.handle);
  };
  const auto insert = [&](const std::string &text) { return writer.insert({text, "2"}); };
  const auto set = [&](const char *name, const std::string &to) { return update(writer, row, {{name, to}}); };
  const std::tuple<const char *, bool, std::function<bool()>> changes[] = {
      {"another row", true, [&] { return insert(other); }},
      {"another column", true, [&] { return set("n", "2"); }},
      {"the value", false, [&] { return set("v", other); }},
      {"deleted", false, erase},
      {"another row in its slot", false, [&] { return erase() && insert(std::string(30, 'c')); }},
      {"no table", false, [&] { return table_drop(db(), "t"); }},
  };
  for (const auto &[what, stands, change] : changes) {
    SCOPED_TRACE(what);
    ASSERT_EQ(row_handle_read(*reader.handle, row), RowLoad::loaded) << errors();
    store.begin();
    ASSERT_TRUE(change()) << errors();
    Value read;
    EXPECT_EQ(row_handle_value(*reader.handle, reader.column("v"), &read), stands);
    EXPECT_EQ(first_status(), stands ? 0 : status::large_row_number);
    store.rollback();
    EXPECT_EQ(reader.get("v"), value) << "what was read is there again";
  }
  // The pages of the row and of its chunks are gone.
  store.begin();
  for (int i = 0; i < 200; ++i) ASSERT_TRUE(insert(other));
  ASSERT_EQ(row_handle_read(*reader.handle, writer.handle->row), RowLoad::loaded);
  store.rollback();
  Value read;
  EXPECT_FALSE(row_handle_value(*reader.handle, reader.column("v"), &read));
  EXPECT_EQ(first_status(), status::large_row_number);
}

TEST_F(RowHandles, StaleDefinitionIsNotWritten) {
  ASSERT_TRUE(store.create_table("t", {column("a", type::int32)}));
  store.begin();
  Rows before(db(), "t");
  ASSERT_TRUE(before.insert({"1"}));
  ASSERT_TRUE(index_create(db(), "t", index_on("i", {"a"})));
  EXPECT_FALSE(before.insert({"2"}));
  EXPECT_EQ(first_status(), status::record_argument);
  ASSERT_TRUE(store.insert("t", {"2"}));
  store.commit();
  EXPECT_FALSE(before.insert({"3"}));
  EXPECT_EQ(first_status(), status::record_argument);
  Rows(db(), "t").check_indices();
}

// A write that runs out of room half way takes everything back, and what went before it stays whole.
TEST(RowHandle, RandomWritesIntoAFullStorage) {
  Engine engine;
  TestDatabase store("BLOCK_SIZE=1024;SIZE_DAT=60B");
  ASSERT_TRUE(store.create_table("t", {column("a", type::int32), column("b", type::character, 60, 1),
                                       column("c", type::text, 1, 4, 40), column("d", type::tinyint)}));
  for (const IndexDefinition &index : {unique_on("u", {"a"}), index_on("i", {"b"}), index_on("o", {"d"})})
    ASSERT_TRUE(index_create(*store.db, "t", index));
  store.begin();
  Random random;
  Rows rows(*store.db, "t");
  for (int key = 0, failures = 0; failures < 40; ++key) {
    const std::string a = std::to_string(key), b = std::to_string(random.next());
    const std::string c(static_cast<size_t>(1 + random.below(400)), 'x'), d = std::to_string(random.below(3));
    const std::vector<RowNo> all = rows.all();
    const bool done =
        all.empty() || random.one_in(2)
            ? rows.insert({a, b, c, d})
            : RowHandles::update(rows, all[static_cast<size_t>(random.below(static_cast<int>(all.size())))],
                                 {{"a", a}, {"b", b}, {"c", c}, {"d", d}});
    if (done) continue;
    ++failures;
    EXPECT_EQ(first_status(), status::cache_argument) << "no block is left";
    ASSERT_NO_FATAL_FAILURE(rows.check_indices());
    uint32_t pieces = 0;
    for (const RowNo row : rows.all()) {
      ASSERT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
      const std::string text = rows.get("c");
      EXPECT_EQ(text, std::string(text.size(), 'x')) << errors();
      pieces += static_cast<uint32_t>(text.size() <= 4 ? 0 : (text.size() - 4 + 35) / 36);
    }
    EXPECT_EQ(row_active_count(*rows.handle->table->large_rows[0]), pieces);
  }
  store.commit();
}

}  // namespace
}  // namespace tovik
