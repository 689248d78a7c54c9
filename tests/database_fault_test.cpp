// The database object when processes die, writes fail, memory runs out, and threads meet.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>

#include "database_support.h"

namespace tovik {
namespace {

using namespace test;

const std::vector<ColumnDefinition> one_column = {column("a", type::int32)};

int writes_left;  // until the process dies, or writing fails
int64_t (*real_write)(DriverHandle, const void *, int64_t, int64_t);

// While in scope every write after the first so many goes to the slot.
class WriteFault {
 public:
  WriteFault(int writes, int64_t (*slot)(DriverHandle, const void *, int64_t, int64_t)) {
    writes_left = writes;
    real_write = file_driver.file_write;
    file_driver.file_write = slot;
  }
  ~WriteFault() { file_driver.file_write = real_write; }
};

int64_t write_or_die(DriverHandle handle, const void *buffer, int64_t length, int64_t offset) {
  if (writes_left-- == 0) _exit(42);
  return real_write(handle, buffer, length, offset);
}

int64_t write_or_fail(DriverHandle handle, const void *buffer, int64_t length, int64_t offset) {
  if (writes_left-- <= 0) return -1;
  return real_write(handle, buffer, length, offset);
}

// The transaction of the fault tests: either nothing of it is seen, or all.
void change_everything(Database &db) {
  ASSERT_TRUE(table_rename(db, "old", "new")) << errors();
  ASSERT_TRUE(index_create(db, "t", index_on("i", {"a"}))) << errors();
  Rows rows(db, "t");
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(rows.insert({std::to_string(i)})) << errors();
}

// Gives whether the transaction is seen.
bool look_at_everything(TestDatabase &store) {
  const bool changed = store.has_table("new");
  EXPECT_NE(store.has_table("old"), changed);
  Rows rows(*store.db, "t");
  EXPECT_EQ(rows.all().size(), changed ? 300u : 0u);
  EXPECT_EQ(rows.handle->table->index_count, changed ? 1 : 0);
  rows.check_indices();
  return changed;
}

// A process that dies at any write of its commit: another one, which has everything open and cached, sees the
// state before or after, and can go on.
TEST(Database, WriterThatDiesIsFollowed) {
  int before = 0, after = 0;
  for (int writes = 0; writes < 400; writes += 1 + writes / 16) {
    SCOPED_TRACE(writes);
    Engine engine;
    TestDatabase store;
    ASSERT_TRUE(store.create_table("old", one_column) && store.create_table("t", one_column));
    ASSERT_TRUE(sm_direct_end(*store.db->storage));
    ASSERT_TRUE(db_read_begin(*store.db, current_thread()));
    EXPECT_FALSE(look_at_everything(store));
    db_read_end(*store.db, current_thread());
    const pid_t process = fork();
    if (process == 0) {
      Database *db = db_open(store.text.c_str());
      if (db == nullptr || db_start(*db, current_thread(), false) != DbStart::started) _exit(1);
      change_everything(*db);
      const WriteFault fault(writes, write_or_die);
      _exit(db_commit(*db, current_thread()) ? 0 : 1);
    }
    int result;
    ASSERT_EQ(waitpid(process, &result, 0), process);
    ASSERT_TRUE(WIFEXITED(result));
    ASSERT_NE(WEXITSTATUS(result), 1);
    ASSERT_TRUE(db_read_begin(*store.db, current_thread())) << errors();
    const bool changed = look_at_everything(store);
    db_read_end(*store.db, current_thread());
    ++(changed ? after : before);
    store.begin();
    { ASSERT_TRUE(Rows(*store.db, "t").insert({"1000"})) << errors(); }
    store.commit();
    if (WEXITSTATUS(result) == 0) {
      EXPECT_TRUE(changed);
      break;
    }
  }
  EXPECT_GT(before, 5);
  EXPECT_GT(after, 5);
}

// A commit whose copy fails has its record on disk: whoever takes the lock next completes it.
TEST(Database, FailedCopyIsCompletedByTheNextGrant) {
  int completed = 0;
  bool committed = false;
  for (int writes = 0; !committed; ++writes) {
    SCOPED_TRACE(writes);
    Engine engine;
    TestDatabase store;
    Database &db = *store.db;
    ASSERT_TRUE(store.create_table("old", one_column) && store.create_table("t", one_column));
    ASSERT_TRUE(sm_direct_end(*db.storage));
    ASSERT_TRUE(db_read_begin(db, current_thread()));  // a cursor that stays open
    store.begin();
    change_everything(db);
    {
      const WriteFault fault(writes, write_or_fail);
      committed = db_commit(db, current_thread());
    }
    const bool rolled_back = !committed && db_in_transaction(db, current_thread());
    if (rolled_back) store.rollback();
    if (!committed && !rolled_back) {
      // Nobody sees the half of it, not even the thread that reads already.
      EXPECT_FALSE(db_read_begin(db, current_thread()));
      on_other_thread([&] { EXPECT_FALSE(db_read_begin(db, current_thread())); });
    }
    db_read_end(db, current_thread());
    err_clear();
    ASSERT_TRUE(db_read_begin(db, current_thread())) << errors();
    EXPECT_EQ(look_at_everything(store), !rolled_back);
    db_read_end(db, current_thread());
    completed += !committed && !rolled_back;
  }
  EXPECT_GT(completed, 5);
}

int allocations_left;
void *(*real_alloc)(size_t);
void *(*real_realloc)(void *, size_t);

void *alloc_or_fail(size_t size) {
  return allocations_left-- <= 0 ? nullptr : real_alloc(size);
}

void *realloc_or_fail(void *block, size_t size) {
  return allocations_left-- <= 0 ? nullptr : real_realloc(block, size);
}

// While in scope every allocation after the first so many fails.
class AllocationFault {
 public:
  explicit AllocationFault(int allocations) {
    allocations_left = allocations;
    real_alloc = memory_table.mem_alloc;
    real_realloc = memory_table.mem_realloc;
    memory_table.mem_alloc = alloc_or_fail;
    memory_table.mem_realloc = realloc_or_fail;
  }
  ~AllocationFault() {
    memory_table.mem_alloc = real_alloc;
    memory_table.mem_realloc = real_realloc;
  }
};

// Whatever allocation fails: the operation fails with a status, a rollback brings everything back, and the
// operation succeeds when there is memory again.
TEST(Database, EveryAllocationFailingInTurn) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  const std::vector<ColumnDefinition> columns = {auto_increment(column("a", type::int32)),
                                                 column("b", type::text), column("c", type::int32)};
  ASSERT_TRUE(store.create_table("t", columns));
  ASSERT_TRUE(index_create(db, "t", index_on("i", {"c"}))) << errors();
  { ASSERT_TRUE(Rows(db, "t").insert({"0", std::string(300, 'x'), "7"})) << errors(); }
  ASSERT_TRUE(sm_direct_end(*db.storage));
  const std::pair<const char *, std::function<bool()>> operations[] = {
      {"open database",
       [&] {
         Database *second = db_open(store.text.c_str());
         db_close(second);
         return second != nullptr;
       }},
      {"open table",
       [&] {
         Table *table = table_open(db, "t");
         table_close(table);
         return table != nullptr;
       }},
      {"create", [&] { return store.create_table("new", columns); }},
      {"drop", [&] { return table_drop(db, "t"); }},
      {"rename", [&] { return table_rename(db, "t", "u"); }},
      {"rename column", [&] { return column_rename(db, "t", "b", "d"); }},
      {"empty", [&] { return table_empty(db, "t"); }},
      {"create index",
       [&] {
         return index_create(db, "t", index_on("j", {"c", "a"}));
       }},
      {"drop index", [&] { return index_drop(db, "i"); }},
      {"insert",
       [&] {
         RowHandle *handle = row_handle_open(table_open(db, "t"));
         if (handle == nullptr) return false;
         const Column &text = handle->table->columns[1];
         const bool done = row_handle_set_large(*handle, text, "a text of more than twenty bytes", 32) &&
                           row_handle_insert(*handle);
         row_handle_close(handle);
         return done;
       }},
  };
  for (const auto &[name, operation] : operations) {
    bool done = false;
    for (int allocations = 0; !done; ++allocations) {
      SCOPED_TRACE(name + std::string(" ") + std::to_string(allocations));
      ASSERT_LT(allocations, 1000);
      store.begin();
      tables_forget_all(db);
      {
        const AllocationFault fault(allocations);
        done = operation();
      }
      const StatusCode code = first_status();
      EXPECT_TRUE(done ? code == 0 : code == status::out_of_memory || code == status::lock_create) << code;
      store.rollback();
      Rows rows(db, "t");
      ASSERT_EQ(rows.all().size(), 1u);
      ASSERT_EQ(row_handle_read(*rows.handle, rows.all()[0]), RowLoad::loaded);
      ASSERT_EQ(rows.get("b").size(), 300u);
      ASSERT_EQ(rows.handle->table->index_count, 2);
      rows.check_indices();
      ASSERT_EQ(store.table_names(), "t ");
    }
  }
}

// Readers beside a writer that commits and rolls back rows and schema: each read hold sees one committed
// state.
TEST(Database, ReadersBesideAWriterRandom) {
  Engine engine;
  TestDatabase store("BLOCK_SIZE=1024;CACHE_SIZE_DAT=16;LOCK_RETRY=1000;LOCK_SLEEP=1");
  Database &db = *store.db;
  ASSERT_TRUE(store.create_table("t", {column("a", type::int32), column("b", type::text)}));
  ASSERT_TRUE(sm_direct_end(*db.storage));
  std::atomic<bool> done = false;
  std::atomic<int> looks = 0;
  const auto read = [&] {
    while (!done) {
      if (!db_read_begin(db, current_thread())) {
        EXPECT_EQ(first_status(), status::database_busy);
        continue;
      }
      {
        Rows rows(db, "t");
        EXPECT_EQ(rows.all().size() % 10, 0u);
        EXPECT_EQ(store.has_table("twin"), rows.handle->table->index_count == 1);
        for (const RowNo row : rows.all()) {
          EXPECT_EQ(row_handle_read(*rows.handle, row), RowLoad::loaded);
          EXPECT_EQ(rows.get("b").size(), 50u);
        }
        rows.check_indices();
        EXPECT_FALSE(db_in_transaction(db, current_thread()));
      }
      db_read_end(db, current_thread());
      ++looks;
    }
    err_clear();
  };
  std::thread readers[] = {std::thread(read), std::thread(read), std::thread(read)};
  Random random;
  bool twin = false;
  for (int round = 0; round < 40 || looks < 20; ++round) {
    store.begin();
    const bool change = random.one_in(3), commit = random.one_in(2);
    bool changed = true;
    if (change && !twin)
      changed = index_create(db, "t", index_on("i", {"a"})) && store.create_table("twin", one_column);
    if (change && twin) changed = index_drop(db, "i") && table_drop(db, "twin");
    EXPECT_TRUE(changed) << errors();
    {
      Rows rows(db, "t");
      for (int i = 0; i < 10; ++i)
        EXPECT_TRUE(rows.insert({std::to_string(random.below(50)), std::string(50, 'x')})) << errors();
    }
    if (commit) {
      twin = twin != change;
      EXPECT_TRUE(db_commit(db, current_thread())) << errors();
    } else {
      store.rollback();
    }
  }
  done = true;
  for (std::thread &reader : readers) reader.join();
}

}  // namespace
}  // namespace tovik
