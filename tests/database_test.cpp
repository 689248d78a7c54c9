#include "data/database.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>

#include "database_support.h"

namespace tovik {
namespace {

using namespace test;

const std::vector<ColumnDefinition> one_column = {column("a", type::int32)};

TEST(Database, LifecycleOfFilesAndMemory) {
  for (const std::string type : {"FILE", "MEMORY"}) {
    SCOPED_TRACE(type);
    Engine engine;
    TempDir dir;
    const std::string text = "NAME=life;TYPE=" + type + ";PATH=" + dir.path();
    EXPECT_FALSE(db_exists(text.c_str()));
    EXPECT_EQ(error_record().count, 0);
    EXPECT_EQ(db_open(text.c_str()), nullptr);
    EXPECT_EQ(first_status(), status::database_missing);
    Database *db = db_create(text.c_str());
    ASSERT_NE(db, nullptr) << errors();
    EXPECT_TRUE(db_exists(text.c_str()));
    EXPECT_EQ(db_create(text.c_str()), nullptr);
    EXPECT_EQ(error_record().last_code, status::db_storage_create);
    EXPECT_EQ(first_status(), status::database_exists);

    Database *second = db_open(text.c_str());  // beside the creator
    ASSERT_NE(second, nullptr) << errors();
    EXPECT_EQ(second->table_rows->number, db->table_rows->number);
    EXPECT_EQ(second->index_names->number, db->index_names->number);
    db_close(second);
    db_close(db);

    db = db_open(text.c_str());
    ASSERT_NE(db, nullptr) << errors();
    EXPECT_EQ(db->table_rows->row_size, 57);
    EXPECT_EQ(db->column_rows->kind, RowKind::variable);
    EXPECT_EQ(db->index_rows->row_size, 65);
    EXPECT_EQ(db->index_names->definition.value_size, 36);
    // Descriptors 0 and 1 are the index support's.
    const RowNo first = row_position(*data_systems(*db->storage).system_rows, RowPosition::first);
    EXPECT_EQ(db->table_rows->number, first + 2 * 41);
    db_close(db);

    EXPECT_TRUE(db_remove(text.c_str())) << errors();
    EXPECT_FALSE(db_exists(text.c_str()));
    EXPECT_FALSE(db_remove(text.c_str()));
    EXPECT_EQ(error_record().last_code, status::db_remove);
    err_clear();
  }
}

TEST(Database, ParameterTextFailures) {
  Engine engine;
  struct {
    const char *text;
    StatusCode expected;
  } const cases[] = {{nullptr, status::params_missing_text},
                     {"", status::key_values_argument},
                     {"PATH=/tmp", status::param_no_name}};
  for (const auto &test : cases) {
    EXPECT_EQ(db_create(test.text), nullptr);
    EXPECT_EQ(first_status(), test.expected) << (test.text == nullptr ? "null" : test.text);
    EXPECT_EQ(db_open(test.text), nullptr);
    EXPECT_EQ(first_status(), test.expected) << (test.text == nullptr ? "null" : test.text);
  }
}

TEST(Database, DamagedManagementIsRefused) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  const RowNo first = row_position(*data_systems(*db.storage).system_rows, RowPosition::first);
  const StatusCode expected[] = {0, 0, status::db_table_rows_open, status::db_column_rows_open,
                                 status::db_index_rows_open};
  for (uint32_t place = 2; place < 5; ++place) {
    const uint32_t at = first + place * 41;
    Page page;
    ASSERT_TRUE(sm_page_get(*store.db->storage, static_cast<BlockNo>(at / 1024), 0, page));
    page.data()[at % 1024 + 1 + 4] ^= 3;  // the kind of rows
    ASSERT_TRUE(sm_page_release_write(page));
    ASSERT_TRUE(sm_direct_end(*store.db->storage));
    EXPECT_EQ(db_open(store.text.c_str()), nullptr);
    EXPECT_EQ(error_record().last_code, expected[place]);
    err_clear();
    ASSERT_TRUE(sm_page_get(*store.db->storage, static_cast<BlockNo>(at / 1024), 0, page));
    page.data()[at % 1024 + 1 + 4] ^= 3;
    ASSERT_TRUE(sm_page_release_write(page));
    ASSERT_TRUE(sm_direct_end(*store.db->storage));
  }
  store.reopen();
}

TEST(Database, WorkDatabaseVanishes) {
  Engine engine;
  Database *db = db_create_work();
  ASSERT_NE(db, nullptr) << errors();
  Table *table = table_create(*db, "t", one_column.data(), 1, {});
  ASSERT_NE(table, nullptr) << errors();
  table_close(table);
  { ASSERT_TRUE(Rows(*db, "t").insert({"5"})) << errors(); }
  EXPECT_EQ(db_direct_begin(*db, current_thread()), DbStart::nested);
  ASSERT_TRUE(db_read_begin(*db, current_thread()));
  db_read_end(*db, current_thread());
  const std::string file = db->storage->bm->temporary_name;
  db_close(db);
  EXPECT_EQ(error_record().count, 0) << errors();
  EXPECT_FALSE(io_exists(0, file.c_str()));
}

TEST(Database, StartCommitRollbackStatuses) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  const ThreadId me = current_thread();
  EXPECT_FALSE(db_commit(db, me));
  EXPECT_EQ(first_status(), status::no_transaction);
  EXPECT_FALSE(db_rollback(db, me));
  EXPECT_EQ(first_status(), status::no_transaction);
  store.begin();
  EXPECT_TRUE(db_in_transaction(db, me));
  EXPECT_EQ(db_start(db, me, true), DbStart::nested);
  EXPECT_EQ(db_start(db, me, false), DbStart::failed);
  EXPECT_EQ(first_status(), status::nested_transaction);
  EXPECT_EQ(db_direct_begin(db, me), DbStart::nested);
  on_other_thread([&] {
    EXPECT_FALSE(db_in_transaction(db, current_thread()));
    EXPECT_EQ(db_start(db, current_thread(), true), DbStart::failed);
    EXPECT_EQ(first_status(), status::database_busy);
    EXPECT_FALSE(db_commit(db, current_thread()));
    EXPECT_EQ(first_status(), status::no_transaction);
    EXPECT_EQ(db_direct_begin(db, current_thread()), DbStart::failed);
    EXPECT_EQ(first_status(), status::database_busy);
  });
  store.commit();
  EXPECT_FALSE(db_in_transaction(db, me));
  EXPECT_FALSE(lm_holds(*db.storage->lm, me));
  // The write lock without a transaction is not a transaction.
  ASSERT_EQ(db_lock(db, me, DbLock::write), LockResult::granted);
  EXPECT_FALSE(db_commit(db, me));
  EXPECT_EQ(first_status(), status::transaction_not_owned);
  EXPECT_EQ(db_start(db, me, true), DbStart::failed);
  EXPECT_EQ(first_status(), status::transaction_not_owned);
  EXPECT_TRUE(db_unlock(db, me, DbLock::write));
}

// The owner sees its schema changes at once, every other thread only after the commit, and a rollback brings
// the very same list back.
TEST(Database, SchemaChangesUntilTheEnd) {
  for (const bool commits : {true, false}) {
    SCOPED_TRACE(commits ? "commit" : "rollback");
    Engine engine;
    TestDatabase store;
    Database &db = *store.db;
    for (const char *name : {"dropped", "renamed", "indexed", "emptied", "column"})
      ASSERT_TRUE(store.create_table(name, one_column)) << errors();
    { ASSERT_TRUE(Rows(db, "emptied").insert({"1"})); }
    ASSERT_TRUE(index_create(db, "renamed", index_on("r", {"a"})));
    const auto expect_old = [&] {
      EXPECT_FALSE(store.has_table("created"));
      EXPECT_TRUE(store.has_table("dropped"));
      EXPECT_TRUE(store.has_table("renamed"));
      EXPECT_FALSE(store.has_table("new"));
      EXPECT_EQ(Rows(db, "indexed").handle->table->index_count, 0);
      EXPECT_EQ(Rows(db, "emptied").all().size(), 1u);
      EXPECT_NE(table_find_column(*Rows(db, "column").handle->table, "a"), nullptr);
      EXPECT_EQ(store.table_names(), "dropped renamed indexed emptied column ");
    };
    const auto expect_new = [&] {
      EXPECT_TRUE(store.has_table("created"));
      EXPECT_FALSE(store.has_table("dropped"));
      EXPECT_FALSE(store.has_table("renamed"));
      EXPECT_TRUE(store.has_table("new"));
      EXPECT_EQ(Rows(db, "indexed").handle->table->index_count, 1);
      EXPECT_EQ(Rows(db, "emptied").all().size(), 0u);
      EXPECT_NE(table_find_column(*Rows(db, "column").handle->table, "b"), nullptr);
    };
    Table *held = table_open(db, "dropped");
    store.begin();
    ASSERT_TRUE(store.create_table("created", one_column)) << errors();
    { ASSERT_TRUE(Rows(db, "created").insert({"7"})) << errors(); }
    ASSERT_TRUE(table_drop(db, "dropped")) << errors();
    ASSERT_TRUE(table_rename(db, "renamed", "new")) << errors();
    ASSERT_TRUE(index_create(db, "indexed", index_on("i", {"a"}))) << errors();
    ASSERT_TRUE(table_empty(db, "emptied")) << errors();
    ASSERT_TRUE(column_rename(db, "column", "a", "b")) << errors();
    expect_new();
    EXPECT_FALSE(table_is_current(*held));
    on_other_thread([&] {
      ASSERT_TRUE(db_read_begin(db, current_thread())) << errors();
      expect_old();
      EXPECT_TRUE(table_is_current(*held));
      db_read_end(db, current_thread());
    });
    if (commits) {
      store.commit();
      expect_new();
      on_other_thread(expect_new);
      EXPECT_FALSE(table_is_current(*held));
      EXPECT_TRUE(index_drop(db, "r")) << errors();
    } else {
      store.rollback();
      expect_old();
      on_other_thread(expect_old);
      EXPECT_TRUE(table_is_current(*held));
      EXPECT_TRUE(index_drop(db, "r")) << errors();
    }
    table_close(held);
    EXPECT_EQ(error_record().count, 0) << errors();
    ASSERT_TRUE(sm_direct_end(*db.storage));
    store.reopen();
    EXPECT_EQ(store.has_table("created"), commits);
    EXPECT_EQ(store.has_table("dropped"), !commits);
  }
}

// Created, changed and dropped in one transaction; and dropped and created again under the same name.
TEST(Database, SchemaChangesOnTopOfEachOther) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  ASSERT_TRUE(store.create_table("kept", one_column));
  { ASSERT_TRUE(Rows(db, "kept").insert({"1"})); }
  store.begin();
  ASSERT_TRUE(store.create_table("t", one_column));
  ASSERT_TRUE(index_create(db, "t", unique_on("i", {"a"})));
  ASSERT_TRUE(index_drop(db, "i"));
  ASSERT_TRUE(table_rename(db, "t", "u"));
  ASSERT_TRUE(table_drop(db, "u")) << errors();
  ASSERT_TRUE(table_drop(db, "kept"));
  ASSERT_TRUE(store.create_table("kept", {column("x", type::int32), column("y", type::int32)}));
  ASSERT_TRUE(index_create(db, "kept", unique_on("i", {"y"})));
  {
    Rows rows(db, "kept");
    ASSERT_TRUE(rows.insert({"2", "3"})) << errors();
    on_other_thread([&] {
      Rows others(db, "kept");
      EXPECT_EQ(others.handle->table->column_count, 1);
      ASSERT_EQ(others.all().size(), 1u);
      EXPECT_EQ(row_handle_read(*others.handle, others.all()[0]), RowLoad::loaded);
      EXPECT_EQ(others.get("a"), "1");
    });
  }
  store.rollback();
  EXPECT_EQ(Rows(db, "kept").handle->table->column_count, 1);
  EXPECT_EQ(Rows(db, "kept").all().size(), 1u);
  EXPECT_EQ(store.table_names(), "kept ");
  EXPECT_TRUE(index_create(db, "kept", index_on("i", {"a"}))) << errors();
}

TEST(Database, ReadHoldsAreCounted) {
  Engine engine;
  TestDatabase store;
  Database &db = *store.db;
  const ThreadId me = current_thread();
  LockManager &lm = *db.storage->lm;
  const auto other_reader = [&](bool expected) {
    on_other_thread([&] {
      const bool reads = db_read_begin(db, current_thread());
      EXPECT_EQ(reads, expected);
      if (reads) db_read_end(db, current_thread());
    });
  };
  ASSERT_TRUE(db_read_begin(db, me));
  ASSERT_TRUE(db_read_begin(db, me));
  on_other_thread([&] {  // may prepare, but not copy while we read
    ASSERT_EQ(db_start(db, current_thread(), false), DbStart::started) << errors();
    ASSERT_TRUE(store.create_table("t", one_column));
    EXPECT_FALSE(db_commit(db, current_thread()));
    EXPECT_EQ(first_status(), status::database_busy);
    EXPECT_TRUE(db_in_transaction(db, current_thread()));
    db_read_end(db, me);
    EXPECT_FALSE(db_commit(db, current_thread()));
    EXPECT_EQ(first_status(), status::database_busy);
    db_read_end(db, me);
    EXPECT_TRUE(db_commit(db, current_thread())) << errors();
  });
  EXPECT_FALSE(lm_holds(lm, me));
  EXPECT_TRUE(store.has_table("t"));

  // A cursor that stays open over a commit of its own thread.
  ASSERT_TRUE(db_read_begin(db, me));
  store.begin();
  ASSERT_TRUE(db_read_begin(db, me));
  ASSERT_TRUE(store.create_table("u", one_column));
  store.commit();
  EXPECT_TRUE(lm_holds(lm, me));
  EXPECT_FALSE(lm_holds_write(lm, me));
  other_reader(true);
  db_read_end(db, me);
  EXPECT_TRUE(lm_holds(lm, me));
  db_read_end(db, me);
  EXPECT_FALSE(lm_holds(lm, me));

  // A cursor that was opened and closed inside the transaction leaves the write lock alone.
  store.begin();
  ASSERT_TRUE(db_read_begin(db, me));
  db_read_end(db, me);
  EXPECT_TRUE(lm_holds_write(lm, me));
  store.rollback();
  EXPECT_FALSE(lm_holds(lm, me));
  EXPECT_FALSE(db_unlock(db, me, DbLock::read));
  EXPECT_EQ(first_status(), status::lock_no_entry);
}

TEST(Database, LockingDisabledNestsLevels) {
  Engine engine("HVI_LOCK_DISABLE=true");
  TestDatabase store;
  Database &db = *store.db;
  const ThreadId me = current_thread();
  EXPECT_FALSE(db_commit(db, me));
  EXPECT_EQ(first_status(), status::no_transaction);
  ASSERT_TRUE(db_read_begin(db, me));
  EXPECT_EQ(db_start(db, me, true), DbStart::started);
  ASSERT_TRUE(store.create_table("outer", one_column));
  ASSERT_TRUE(store.create_table("gone", one_column));
  EXPECT_EQ(db_start(db, me, true), DbStart::started);
  ASSERT_TRUE(store.create_table("inner", one_column)) << errors();
  ASSERT_TRUE(table_drop(db, "gone")) << errors();
  store.rollback();
  EXPECT_TRUE(store.has_table("gone"));
  EXPECT_FALSE(store.has_table("inner"));
  EXPECT_EQ(db_start(db, me, true), DbStart::started);
  ASSERT_TRUE(table_drop(db, "gone")) << errors();
  { ASSERT_TRUE(Rows(db, "outer").insert({"4"})) << errors(); }
  store.commit();
  EXPECT_FALSE(store.has_table("gone"));
  on_other_thread([&] { EXPECT_FALSE(store.has_table("outer")); });
  store.commit();
  EXPECT_FALSE(db_in_transaction(db, me));
  on_other_thread([&] { EXPECT_EQ(Rows(db, "outer").all().size(), 1u); });
  db_read_end(db, me);
}

// ---- failures and threads ----

int writes_left;

// While in scope every write after the first so many fails.
class WriteFault {
 public:
  explicit WriteFault(int writes) : slot_(file_driver.file_write, write_or_fail) { writes_left = writes; }

 private:
  static int64_t write_or_fail(DriverHandle handle, const void *buffer, int64_t length, int64_t offset) {
    return writes_left-- <= 0 ? -1 : real_write(handle, buffer, length, offset);
  }
  inline static const auto real_write = file_driver.file_write;
  SlotGuard<decltype(file_driver.file_write)> slot_;
};

// Either nothing of it is seen, or all.
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
      const WriteFault fault(writes);
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

// ---- two processes ----

// A child process that works through the same steps in turn with its parent. A side that ends early ends the
// other's waiting too.
class Child {
 public:
  explicit Child(const std::function<void(Child &)> &work) {
    signal(SIGPIPE, SIG_IGN);
    int to_child[2], to_parent[2];
    EXPECT_EQ(pipe(to_child) | pipe(to_parent), 0);
    process_ = fork();
    const bool child = process_ == 0;
    in_ = child ? to_child[0] : to_parent[0];
    out_ = child ? to_parent[1] : to_child[1];
    close(child ? to_child[1] : to_parent[1]);
    close(child ? to_parent[0] : to_child[0]);
    if (!child) return;
    work(*this);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  ~Child() {
    close(in_);
    close(out_);
    int result = 0;
    EXPECT_EQ(waitpid(process_, &result, 0), process_);
    EXPECT_EQ(result, 0) << "the child failed";
  }

  // Lets the other side go; waits to be let go.
  void pass() {
    const char go = 'g';
    ASSERT_EQ(write(out_, &go, 1), 1);
  }
  void await() {
    char go;
    ASSERT_EQ(read(in_, &go, 1), 1);
  }
  void take_turn() {
    pass();
    await();
  }

 private:
  int in_, out_;
  pid_t process_;
};

TEST(Database, AnotherProcessFollows) {
  TempDir dir;
  const std::string text =
      "NAME=shared;BLOCK_SIZE=1024;LOCK_RETRY=3;LOCK_SLEEP=1;BEGIN_RETRY=3;BEGIN_SLEEP=1;PATH=" + dir.path();
  Child child([&](Child &parent) {  // has everything open and cached, and looks again after each commit
    parent.await();
    Engine engine;
    Database *db = db_open(text.c_str());
    ASSERT_NE(db, nullptr) << errors();
    const ThreadId me = current_thread();
    ASSERT_TRUE(db_read_begin(*db, me));
    {
      Rows rows(*db, "t");
      EXPECT_EQ(rows.all().size(), 1u);
    }
    Table *dropped = table_open(*db, "dropped");
    ASSERT_NE(dropped, nullptr);
    db_read_end(*db, me);
    parent.take_turn();  // rows, an index, another table dropped

    ASSERT_TRUE(db_read_begin(*db, me)) << errors();
    EXPECT_EQ(table_open(*db, "dropped"), nullptr);
    EXPECT_EQ(first_status(), status::table_missing);
    EXPECT_FALSE(table_is_current(*dropped));
    table_close(dropped);
    {
      Rows rows(*db, "t");
      EXPECT_EQ(rows.all().size(), 500u);
      EXPECT_EQ(rows.handle->table->index_count, 2);
      EXPECT_EQ(row_autoinc_get(*rows.handle->table->rows).next, 501);
      rows.check_indices();
    }
    db_read_end(*db, me);

    ASSERT_EQ(db_start(*db, me, false), DbStart::started) << errors();
    {
      Rows rows(*db, "t");
      for (int i = 0; i < 500; ++i) ASSERT_TRUE(rows.insert({"0", "b"})) << errors();
    }
    ASSERT_TRUE(db_commit(*db, me)) << errors();
    parent.take_turn();  // a transaction of the parent is open

    EXPECT_EQ(db_start(*db, me, false), DbStart::failed);
    EXPECT_EQ(first_status(), status::database_busy);
    ASSERT_TRUE(db_read_begin(*db, me));
    EXPECT_EQ(Rows(*db, "t").all().size(), 1000u);
    parent.take_turn();  // its commit is busy as long as we read
    db_read_end(*db, me);
    parent.pass();
    db_close(db);
  });

  Engine engine;
  Database *db = db_create(text.c_str());
  ASSERT_NE(db, nullptr) << errors();
  const ThreadId me = current_thread();
  const auto start = [&] { ASSERT_EQ(db_start(*db, me, false), DbStart::started) << errors(); };
  start();
  const ColumnDefinition columns[] = {auto_increment(column("a", type::int32)),
                                      column("b", type::character, 8, 1)};
  table_close(table_create(*db, "t", columns, 2, {1, 1, 1}));
  table_close(table_create(*db, "dropped", columns, 2, {1, 1, 1}));
  { ASSERT_TRUE(Rows(*db, "t").insert({"0", "b"})) << errors(); }
  ASSERT_TRUE(db_commit(*db, me)) << errors();
  child.take_turn();

  start();
  ASSERT_TRUE(index_create(*db, "t", index_on("by_b", {"b"}))) << errors();
  {
    Rows rows(*db, "t");
    for (int i = 1; i < 500; ++i) ASSERT_TRUE(rows.insert({"0", "b"})) << errors();
  }
  ASSERT_TRUE(table_drop(*db, "dropped")) << errors();
  ASSERT_TRUE(db_commit(*db, me)) << errors();
  child.take_turn();

  start();
  {
    Rows rows(*db, "t");
    EXPECT_EQ(rows.all().size(), 1000u);
    ASSERT_TRUE(rows.insert({"0", "b"})) << errors();
    EXPECT_EQ(rows.get("a"), "1001");
    rows.check_indices();
  }
  child.take_turn();
  EXPECT_FALSE(db_commit(*db, me));
  EXPECT_EQ(first_status(), status::database_busy);
  child.take_turn();
  EXPECT_TRUE(db_commit(*db, me)) << errors();
  db_close(db);
}

// With changes outside a transaction the other process follows as it does after a commit.
TEST(Database, AnotherProcessFollowsDirectChanges) {
  TempDir dir;
  const std::string text =
      "NAME=direct;LOCK_RETRY=3;LOCK_SLEEP=1;BEGIN_RETRY=3;BEGIN_SLEEP=1;PATH=" + dir.path();
  Child child([&](Child &parent) {
    parent.await();
    Engine engine;
    Database *db = db_open(text.c_str());
    ASSERT_NE(db, nullptr) << errors();
    const ThreadId me = current_thread();
    ASSERT_TRUE(db_read_begin(*db, me)) << errors();
    EXPECT_EQ(Rows(*db, "t").all().size(), 1u);
    parent.take_turn();  // cannot begin while we read
    db_read_end(*db, me);
    parent.take_turn();  // begins
    EXPECT_FALSE(db_read_begin(*db, me));
    EXPECT_EQ(first_status(), status::database_busy);
    parent.take_turn();  // ends
    ASSERT_TRUE(db_read_begin(*db, me)) << errors();
    EXPECT_EQ(Rows(*db, "t").all().size(), 2u);
    db_read_end(*db, me);
    db_close(db);
  });

  Engine engine;
  Database *db = db_create(text.c_str());
  ASSERT_NE(db, nullptr) << errors();
  const ThreadId me = current_thread();
  ASSERT_EQ(db_direct_begin(*db, me), DbStart::started) << errors();
  table_close(table_create(*db, "t", one_column.data(), 1, {}));
  { ASSERT_TRUE(Rows(*db, "t").insert({"1"})) << errors(); }
  ASSERT_TRUE(db_direct_end(*db, me)) << errors();
  child.take_turn();
  EXPECT_EQ(db_direct_begin(*db, me), DbStart::failed);
  EXPECT_EQ(first_status(), status::database_busy);
  EXPECT_FALSE(lm_holds(*db->storage->lm, me));
  child.take_turn();
  ASSERT_EQ(db_direct_begin(*db, me), DbStart::started) << errors();
  { ASSERT_TRUE(Rows(*db, "t").insert({"2"})) << errors(); }
  child.take_turn();
  ASSERT_TRUE(db_direct_end(*db, me)) << errors();
  child.pass();
  db_close(db);
}

}  // namespace
}  // namespace tovik
