// A database that somebody has open is neither removed nor replaced; a handle whose database went all the
// same changes nothing of the one that took its name.
#include <cstring>
#include <fstream>
#include <optional>
#include <set>

#include "engine.h"
#include "frame/env.h"

namespace tovik::test {
namespace {

struct Layout {
  const char *name;
  std::string options;
  int taken;    // by a creation without OVERWRITE
  int removed;  // what an open tells afterwards
};

const Layout layouts[] = {
    {"files", "", 120101, 120102},
    {"one file", "TYPE2=RAW;SIZE_DAT=200B;SIZE_TRN=100B;", 120101, 120102},
    {"a device", "TYPE2=RAW_DEV;SIZE_DAT=200B;SIZE_TRN=100B;", 120104, 120106},
    {"memory", "TYPE=MEMORY;", 120101, 120102},
};

// The layouts, each in a directory of its own.
template <class Test>
void each_layout(Test test) {
  for (const Layout &layout : layouts) {
    SCOPED_TRACE(layout.name);
    const TempDir dir;
    const bool device = layout.options.find("RAW_DEV") != std::string::npos;
    std::string text =
        layout.options +
        "CACHE_SIZE_DAT=40;CACHE_SIZE_TRN=40;LOCK_RETRY=3;LOCK_SLEEP=1;BEGIN_RETRY=3;BEGIN_SLEEP=1;NAME=t;";
    if (device) std::ofstream(dir / "device");
    if (layout.options != "TYPE=MEMORY;") text += "PATH=" + dir.path() + (device ? "/device" : "");
    test(layout, text);
  }
}

int create(const std::string &text) {
  return kld_api_create_db(text.c_str()) == 0 ? 0 : error_code();
}
int remove(const std::string &text) {
  return kld_api_remove_db(text.c_str()) == 0 ? 0 : error_code();
}

TEST(StorageUse, AnOpenDatabaseStays) {
  each_layout([](const Layout &layout, const std::string &text) {
    const Library library("HVI_TRAN_HISTORY=0");
    ASSERT_EQ(create(text), 0);
    const auto refused = [&] {
      EXPECT_EQ(remove(text), status::io_remove);
      EXPECT_EQ(create(text + ";OVERWRITE=true"), status::block_remove_old);
      EXPECT_EQ(create(text + ";OVERWRITE=true;BLOCK_SIZE=8192"), status::block_remove_old);
      EXPECT_EQ(create(text), layout.taken);
    };
    {
      Session writer(text);
      ASSERT_EQ(writer.run("CREATE TABLE t (a int)"), 0);
      ASSERT_EQ(writer.run("INSERT INTO t VALUES 1, 2"), 0);
      {
        Session reader(text);
        ASSERT_EQ(kld_api_pre_stmt_char(reader.statement(), "SELECT a FROM t"), 0);
        ASSERT_EQ(kld_api_exec_stmt(reader.statement()), 0);
        ASSERT_EQ(writer.run("BEGIN TRANSACTION"), 0);
        ASSERT_EQ(writer.run("INSERT INTO t VALUES 3"), 0);
        refused();
        std::string rows;
        EXPECT_EQ(reader.fetch_all(&rows), 0);
        EXPECT_EQ(rows, "1;2");
      }
      refused();
      EXPECT_EQ(writer.run("COMMIT TRANSACTION"), 0);
      EXPECT_EQ(writer.rows("SELECT a FROM t"), "1;2;3");
    }
    EXPECT_EQ(Session(text).rows("SELECT a FROM t"), "1;2;3");
    EXPECT_EQ(create(text + ";OVERWRITE=true"), 0);
    EXPECT_EQ(Session(text).rows("SELECT a FROM t"), "error 141004");
    EXPECT_EQ(remove(text), 0);
    EXPECT_EQ(Session(text).open_status(), layout.removed);
    EXPECT_EQ(create(text), 0);
  });
}

// Where locks do not work, or the files are removed behind the engine's back.
TEST(StorageUse, AnOldHandleLeavesTheNewDatabaseAlone) {
  enum Way { removed, overwritten, unlinked };
  for (const char *settings : {"HVI_TRAN_HISTORY=0", "HVI_TRAN_HISTORY=0;HVI_TRAN_FILE_REUSE=OFF", ""})
    for (const Way way : {removed, overwritten, unlinked})
      for (const bool busy : {false, true})  // with a transaction open when the database goes
        each_layout([&](const Layout &layout, const std::string &text) {
          const bool device = strcmp(layout.name, "a device") == 0;  // the same one afterwards, locks and all
          if ((way == unlinked && strcmp(layout.name, "files") != 0) || (device && busy)) return;
          SCOPED_TRACE(testing::Message() << settings << " way " << way << " busy " << busy);
          const Library library(settings);
          ASSERT_EQ(create(text), 0);
          std::optional<Session> old(text);
          ASSERT_EQ(old->run("CREATE TABLE t (a int)"), 0);
          ASSERT_EQ(old->run("INSERT INTO t VALUES 1"), 0);
          if (busy) {
            ASSERT_EQ(old->run("BEGIN TRANSACTION"), 0);
            ASSERT_EQ(old->run("INSERT INTO t VALUES 2"), 0);
          }
          env_set("HVI_LOCK_DISABLE", "ON");
          ASSERT_EQ(way == removed ? remove(text) : 0, 0);
          if (way == unlinked) {
            const std::string stem = text.substr(text.find("PATH=") + 5) + "/t.";
            std::filesystem::remove(stem + "trn");
            std::filesystem::remove(stem + "dat");
          }
          ASSERT_EQ(create(text + (way == overwritten ? ";OVERWRITE=true" : "")), 0);
          env_set("HVI_LOCK_DISABLE", "OFF");

          Session fresh(text + ";CACHE_SIZE_TRN=3");
          ASSERT_EQ(fresh.run("CREATE TABLE n (a int)"), 0);
          ASSERT_EQ(fresh.run("INSERT INTO n VALUES 1"), 0);
          ASSERT_EQ(fresh.run("BEGIN TRANSACTION"), 0);
          ASSERT_EQ(fresh.run("CREATE TABLE m (a int AUTO_INCREMENT)"), 0);  // reaches its TRN storage
          ASSERT_EQ(fresh.run("INSERT INTO n VALUES 2"), 0);
          EXPECT_EQ(busy ? old->run("COMMIT TRANSACTION") : 120106, status::storage_deleted);
          const std::string seen = old->rows("SELECT a FROM t");
          EXPECT_TRUE(seen == "error 120106" || (way == unlinked && seen == "1")) << seen;
          for (const char *sql : {"INSERT INTO t VALUES 3", "BEGIN TRANSACTION", "CREATE TABLE x (a int)"})
            EXPECT_EQ(old->run(sql), device ? status::database_busy : status::storage_deleted) << sql;
          if (!device) old.reset();
          ASSERT_EQ(fresh.run("COMMIT TRANSACTION"), 0);
          EXPECT_EQ(device ? old->run("INSERT INTO t VALUES 3") : 120106, status::storage_deleted);
          old.reset();
          EXPECT_EQ(fresh.rows("SELECT a FROM n"), "1;2");
          EXPECT_EQ(Session(text).rows("SELECT a FROM n"), "1;2");
          EXPECT_EQ(database_fault(fresh), "");
        });
}

std::string coming;
std::set<int> while_coming;

TEST(StorageUse, ADatabaseIsNotSeenBeforeItIsWhole) {
  static const IoDriver real = file_driver;
  each_layout([](const Layout &layout, const std::string &text) {
    if (text.find("MEMORY") != std::string::npos) return;
    const Library library;
    coming = text;
    while_coming.clear();
    static int64_t (*look_and_write)(DriverHandle, const void *, int64_t, int64_t);
    look_and_write = [](DriverHandle handle, const void *bytes, int64_t length, int64_t offset) {
      file_driver.file_write = real.file_write;
      while_coming.insert(Session(coming).open_status());
      while_coming.insert(remove(coming));
      while_coming.insert(create(coming));
      file_driver.file_write = look_and_write;
      return real.file_write(handle, bytes, length, offset);
    };
    file_driver.file_write = look_and_write;
    const int created = create(text);
    file_driver.file_write = real.file_write;
    EXPECT_EQ(created, 0);
    EXPECT_EQ(while_coming, (std::set<int>{status::io_remove, layout.taken, status::database_busy}));
    EXPECT_EQ(Session(text).open_status(), 0);
  });
}

// As a creator leaves it that dies at once.
TEST(StorageUse, AnEmptyFileIsNoDatabase) {
  const TempDir dir;
  const Library library;
  const std::string text = "NAME=t;PATH=" + dir.path();
  std::ofstream(dir / "t.dat");
  EXPECT_EQ(Session(text).open_status(), status::database_missing);
  EXPECT_EQ(remove(text), status::database_missing);
  EXPECT_EQ(create(text), 0);
  EXPECT_EQ(Session(text).open_status(), 0);
}

// A name that goes between the look at it and the opening is absent.
std::string vanishing;

TEST(StorageUse, ANameThatVanishesWhileLookedAtIsAbsent) {
  const TempDir dir;
  const std::string text = "NAME=t;PATH=" + dir.path();
  const Library library("HVI_TRAN_SYNC=OFF");
  static const IoDriver real = file_driver;
  vanishing = dir / "t.dat";
  const auto open = [&text](const std::string &) { return Session(text).open_status(); };
  const auto overwrite = [](const std::string &what) { return create(what + ";OVERWRITE=true"); };
  const auto code_of = [&](auto call) {
    EXPECT_EQ(create(text), 0);
    file_driver.file_open = [](const char *name, int flags, int mode, int number, int size) {
      if ((flags & open_create) == 0) std::filesystem::remove(vanishing);
      return real.file_open(name, flags, mode, number, size);
    };
    const StatusCode code = call(text);
    file_driver.file_open = real.file_open;
    return code;
  };
  EXPECT_EQ(code_of(open), status::database_missing);
  EXPECT_EQ(code_of(remove), status::database_missing);
  EXPECT_EQ(code_of(overwrite), 0);
}

// The cache lets go of changed pages long before a commit writes the header of their storage.
TEST(StorageUse, ReadersOfOtherHandlesBesideALongTransaction) {
  each_layout([](const Layout &, const std::string &text) {
    const Library library("HVI_TRAN_SYNC=OFF");
    ASSERT_EQ(create(text), 0);
    Session writer(text + ";CACHE_SIZE_TRN=6"), reader(text);
    ASSERT_EQ(writer.run("CREATE TABLE t (id int, name char(200))"), 0);
    ASSERT_EQ(writer.run("BEGIN TRANSACTION"), 0);
    for (int i = 0; i < 400; ++i)
      ASSERT_EQ(writer.run("INSERT INTO t VALUES " + std::to_string(i) + ", 'x'"), 0);
    EXPECT_EQ(reader.rows("SELECT COUNT(*) FROM t"), "0");
    ASSERT_EQ(writer.run("COMMIT TRANSACTION"), 0);
    EXPECT_EQ(reader.rows("SELECT COUNT(*) FROM t"), "400");
  });
}

TEST(StorageUse, OptionOneOnlyReads) {
  const Library library;
  const TempDir dir;
  const std::string text = "NAME=t;PATH=" + dir.path();
  ASSERT_EQ(create(text), 0);
  {
    Session writer(text);
    ASSERT_EQ(writer.run("CREATE TABLE t (a int)"), 0);
    ASSERT_EQ(writer.run("INSERT INTO t VALUES 1"), 0);
  }
  std::ofstream(dir / "t.99.trn_");  // what an open for writing would prune
  kld_db *db = kld_api_open_db((text + ";OPT=1").c_str());
  ASSERT_NE(db, nullptr);
  EXPECT_EQ(error_code(), 0);
  {
    Session reader(db);
    EXPECT_EQ(reader.rows("SELECT a FROM t"), "1");
    for (const char *commit : {"ON", "OFF"}) {
      env_set("HVI_AUTO_COMMIT", commit);
      for (const char *sql : {"INSERT INTO t VALUES 2", "DELETE FROM t", "CREATE TABLE x (a int)"})
        EXPECT_EQ(reader.run(sql), status::database_read_only) << sql;
    }
    EXPECT_EQ(reader.run("BEGIN TRANSACTION"), status::database_read_only);
    EXPECT_NE(reader.printed("INFO PAR").find("\n  btree split rati: 80\n"), std::string::npos);
  }
  kld_api_close_db(db);
  EXPECT_TRUE(std::filesystem::exists(dir / "t.99.trn_"));
}

}  // namespace
}  // namespace tovik::test
