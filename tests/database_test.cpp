// Databases as a whole: the lock and transactions of threads, and copies that fail.
#include "data/database.h"

#include "database_support.h"

namespace tovik {
namespace {

using namespace test;
using Databases = DatabaseTest;

const std::vector<ColumnDefinition> one_column = {column("a", type::int32)};

TEST_F(Databases, TheWriteLockIsNoTransaction) {
  const ThreadId me = current_thread();
  const auto no_transaction = [&](StatusCode expected) {
    EXPECT_FALSE(db_commit(db(), me));
    EXPECT_EQ(first_status(), expected);
    EXPECT_FALSE(db_rollback(db(), me));
    EXPECT_EQ(first_status(), expected);
  };
  store.begin();
  EXPECT_EQ(db_direct_begin(db(), me), DbStart::nested);
  EXPECT_EQ(db_start(db(), me, Nesting::refused), DbStart::failed);
  EXPECT_EQ(first_status(), status::nested_transaction);
  store.commit();
  EXPECT_FALSE(lm_holds(*db().storage->lm, me));
  no_transaction(status::no_transaction);
  ASSERT_EQ(db_lock(db(), me, DbLock::write), LockResult::granted);
  no_transaction(status::transaction_not_owned);
  EXPECT_EQ(db_start(db(), me, Nesting::allowed), DbStart::failed);
  EXPECT_EQ(first_status(), status::transaction_not_owned);
  EXPECT_TRUE(db_unlock(db(), me, DbLock::write));
}

TEST_F(Databases, ReadHoldsAreCounted) {
  const ThreadId me = current_thread();
  LockManager &lm = *db().storage->lm;
  const auto commit_is_busy = [&] {
    EXPECT_FALSE(db_commit(db(), current_thread()));
    EXPECT_EQ(first_status(), status::database_busy);
  };
  ASSERT_TRUE(db_read_begin(db(), me) && db_read_begin(db(), me));
  on_other_thread([&] {  // may prepare, but not copy while we read
    store.begin();
    ASSERT_TRUE(store.create_table("t", one_column));
    commit_is_busy();
    db_read_end(db(), me);
    commit_is_busy();
    db_read_end(db(), me);
    store.commit();
  });
  EXPECT_FALSE(lm_holds(lm, me));
  EXPECT_EQ(store.schema(), "t(a,)[]0 ");

  // A cursor that stays open over a commit of its own thread.
  ASSERT_TRUE(db_read_begin(db(), me));
  store.begin();
  ASSERT_TRUE(db_read_begin(db(), me));
  ASSERT_TRUE(store.create_table("u", one_column));
  store.commit();
  EXPECT_TRUE(lm_holds(lm, me));
  EXPECT_FALSE(lm_holds_write(lm, me));
  db_read_end(db(), me);
  EXPECT_TRUE(lm_holds(lm, me));
  db_read_end(db(), me);
  EXPECT_FALSE(lm_holds(lm, me));
}

TEST(Database, LockingDisabledNestsLevels) {
  Engine engine("HVI_LOCK_DISABLE=true");
  TestDatabase store;
  Database &db = *store.db;
  ASSERT_TRUE(db_read_begin(db, current_thread()));
  store.begin();
  ASSERT_TRUE(store.create_table("outer", one_column) && store.create_table("gone", one_column));
  for (const bool commits : {false, true}) {
    store.begin();
    ASSERT_TRUE(store.create_table("inner", one_column) && store.insert("outer", {"4"})) << errors();
    ASSERT_TRUE(table_drop(db, "gone")) << errors();
    commits ? store.commit() : store.rollback();
    EXPECT_EQ(store.schema(), commits ? "outer(a,)[]1 inner(a,)[]0 " : "outer(a,)[]0 gone(a,)[]0 ");
  }
  on_other_thread([&] { EXPECT_EQ(store.schema(), ""); });
  store.commit();
  on_other_thread([&] { EXPECT_EQ(store.schema(), "outer(a,)[]1 inner(a,)[]0 "); });
  db_read_end(db, current_thread());
}

// What changes nothing flushes and renames nothing, does not wait for readers and leaves the last saved
// storage alone.
TEST(Database, TransactionsWithoutChangesLeaveNoTrace) {
  for (const char *settings : {"", "HVI_TRAN_HISTORY=0", "HVI_TRAN_HISTORY=0;HVI_TRAN_FILE_REUSE=OFF"}) {
    SCOPED_TRACE(settings);
    FaultDriver driver;
    Engine engine(settings);
    TestDatabase store("DRV_NO=101");
    const ThreadId me = current_thread();
    ASSERT_TRUE(store.create_table("t", one_column) && sm_direct_end(*store.db->storage));
    store.begin();
    ASSERT_TRUE(store.insert("t", {"1"}));
    store.commit();
    Database *reader = db_open(store.text.c_str());
    ASSERT_TRUE(reader != nullptr && db_read_begin(*reader, me)) << errors();
    const auto files = store.files();
    driver.take_log();
    for (const bool commits : {true, false, true}) {
      store.begin();
      commits ? store.commit() : store.rollback();
    }
    for (const std::string &call : driver.take_log())
      EXPECT_TRUE(!call.starts_with("sync") && !call.starts_with("rename")) << call;
    EXPECT_EQ(store.files(), files);
    db_read_end(*reader, me);
    db_close(reader);
  }
}

// ---- failures and threads ----

int sleeps;

// A commit whose copy fails has its record on disk, and so has one whose process dies over the copy: whoever
// takes the lock next completes it, and sees it whole, also another connection that had cached the state
// before. Until then nobody sees half of it.
TEST(Database, FailedCopyIsCompletedByTheNextGrant) {
  int completed = 0;
  bool committed = false;
  for (int calls = 1; !committed; ++calls) {
    SCOPED_TRACE(calls);
    FaultDriver driver;
    Engine engine;
    TestDatabase store("DRV_NO=101;BLOCK_SIZE=1024;LOCK_RETRY=3;LOCK_SLEEP=1;BEGIN_RETRY=3;BEGIN_SLEEP=1");
    Database &db = *store.db;
    const ThreadId me = current_thread();
    ASSERT_TRUE(store.create_table("old", one_column) && store.create_table("t", one_column));
    ASSERT_TRUE(sm_direct_end(*db.storage));
    Database *other = db_open(store.text.c_str()), *ahead = db_open(store.text.c_str());
    ASSERT_TRUE(other != nullptr && ahead != nullptr && db_read_begin(*other, me)) << errors();
    const std::string before = TestDatabase::schema(*other);
    db_read_end(*other, me);
    ASSERT_TRUE(db_read_begin(db, me));  // a cursor that stays open
    store.begin();
    ASSERT_TRUE(table_rename(db, "old", "new") && index_create(db, "t", index_on("i", {"a"}))) << errors();
    for (int i = 0; i < 300; ++i) ASSERT_TRUE(store.insert("t", {std::to_string(i)})) << errors();
    driver.fail_call(calls, Failure::from_then_on);
    committed = db_commit(db, me);
    driver.fail_call(0);
    const bool rolled_back = !committed && db_in_transaction(db, me);
    if (rolled_back) store.rollback();
    const bool pending = !committed && !rolled_back;
    err_clear();
    if (pending) {
      ++completed;
      // Not the thread that reads already; and it is not kept waiting for what only itself could end.
      Page page;
      EXPECT_FALSE(sm_page_get(*db.storage, 3, page));
      EXPECT_EQ(first_status(), status::tran_bad_state);
      sleeps = 0;
      const SlotGuard clock(
          system_driver.sleep_ms, +[](int) { ++sleeps; });
      EXPECT_FALSE(db_read_begin(db, me));
      EXPECT_EQ(db_start(db, me, Nesting::refused), DbStart::failed);
      EXPECT_EQ(sleeps, 3 + 3);
      on_other_thread([&] { EXPECT_FALSE(db_read_begin(db, current_thread())); });
    }
    db_read_end(db, me);
    err_clear();
    if (pending && calls % 3 != 0) {
      // Not those for whom the writer died, beside a survivor who is about to write but has not looked yet.
      LockManager &lm = *ahead->storage->lm;
      ASSERT_EQ(lm_lock(lm, me, LockLevel::reserved, Attempt::once), LockResult::granted);
      if (calls % 3 == 1) std::swap(other, store.db), db_close(other), other = nullptr;
      Database &survivor = calls % 3 == 1 ? *store.db : *other;
      EXPECT_FALSE(db_read_begin(survivor, me));
      EXPECT_EQ(first_status(), status::database_busy);
      EXPECT_EQ(db_open(store.text.c_str()), nullptr);
      EXPECT_EQ(first_status(), status::database_busy);
      ASSERT_TRUE(lm_unlock(lm, me, Unlock::all));
      EXPECT_EQ(db_start(*ahead, me, Nesting::refused), DbStart::started) << errors();
      EXPECT_TRUE(db_rollback(*ahead, me));
    }
    const bool other_first = calls % 2 == 1;
    for (Database *next : {other_first ? other : store.db, other_first ? store.db : other}) {
      if (next == nullptr) continue;
      ASSERT_TRUE(db_read_begin(*next, me)) << errors();
      EXPECT_EQ(TestDatabase::schema(*next), rolled_back ? before : "new(a,)[]0 t(a,)[i,]300 ");
      db_read_end(*next, me);
    }
    db_close(other);
    db_close(ahead);
  }
  EXPECT_GT(completed, 5);
}

// Switched while something is open, locks end with what they began with.
TEST_F(Databases, LocksSwitchedOnTheWay) {
  const ThreadId me = current_thread();
  const LockManager &lm = *db().storage->lm;
  ASSERT_TRUE(store.create_table("t", one_column) && sm_direct_end(*db().storage));
  for (const char *later : {"ON", "OFF", "ON", "OFF"})
    for (const bool reads : {false, true}) {
      SCOPED_TRACE(testing::Message() << later << (reads ? " reading" : ""));
      const bool locked = later[1] == 'N';
      if (reads)
        ASSERT_TRUE(db_read_begin(db(), me)) << errors();
      else
        store.begin();
      EXPECT_EQ(lm.nshared, locked ? 1 : 0);
      env_set("HVI_LOCK_DISABLE", later);
      if (reads) {
        ASSERT_TRUE(db_read_begin(db(), me));  // a second cursor
        EXPECT_EQ(lm.nshared, locked ? 1 : 0);
        db_read_end(db(), me);
        db_read_end(db(), me);
      } else {
        EXPECT_TRUE(store.insert("t", {"1"}));
        store.commit();
      }
      EXPECT_EQ(lm.nshared, 0);
      EXPECT_EQ(recorded(), Codes{});
      env_set("HVI_LOCK_DISABLE", reads ? later : locked ? "OFF" : "ON");
    }
}

}  // namespace
}  // namespace tovik
