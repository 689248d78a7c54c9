#include "storage/params/params.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "engine_support.h"
#include "platform/held.h"
#include "storage/block/block_format.h"

using namespace tovik;
using namespace tovik::test;

namespace {

using Block = Held<Params, param_destroy>;

class Parameters : public ::testing::Test {
 protected:
  Parameters() : engine_("") {}

  // The status that the check of text ends in, 0 when it passes.
  static StatusCode check(const std::string &text, CheckFor use = CheckFor::creation) {
    err_clear();
    Block params(param_create(text.c_str()));
    if (params != nullptr && param_check(*params, use)) return 0;
    EXPECT_EQ(error_record().count, 1) << text;
    return error_record().last_code;
  }

  Engine engine_;
};

TEST_F(Parameters, ReadsItemsOverTheDefaults) {
  Block params(
      param_create(" name = orders ; ;PATH='D:\\a;b' x;PATH=D:\\c;Size_Dat=;size_trn= 20b;key={ 1 };"
                   "KEY=2;OVERWRITE=True;FILE_MODE=600;OPT=1x;START_SECTOR=-9223372036854775809;"
                   "LOCK_RETRY=99999999999;LOCK_SLEEP=-7 ms;WARM_RESTART=no;FORMAT=9;ORL_CBLK_CNT=6"));
  ASSERT_NE(params, nullptr);
  EXPECT_STREQ(params->name, "orders");
  EXPECT_STREQ(params->path, "D:\\a;b");
  EXPECT_EQ(params->size_dat_text, nullptr);
  EXPECT_STREQ(params->size_trn_text, "20b");
  EXPECT_STREQ(param_lookup(*params, "Key"), "2");
  EXPECT_EQ(param_lookup(*params, "SIZE_DAT"), nullptr);
  EXPECT_TRUE(params->overwrite);
  EXPECT_EQ(params->io.file_mode, 0600);
  EXPECT_EQ(params->io.open_option, 1);
  EXPECT_EQ(params->io.start_sector, INT64_MIN);
  EXPECT_EQ(params->lock_retry, INT32_MAX);
  EXPECT_EQ(params->lock_sleep, -7);
  EXPECT_FALSE(params->warm_restart);
  EXPECT_EQ(params->format, 2);
  EXPECT_TRUE(params->orl_cblk_set);
  env_set("HVI_FILE_SFX_DAT", ".bin");
  EXPECT_STREQ(params->suffix_dat, ".dat") << "the block has its own texts";
}

// The type, the layout and the language by their numbers.
TEST_F(Parameters, PlacesAndKinds) {
  const std::pair<const char *, const char *> cases[] = {
      {"NAME=D:\\db\\orders", "'D:\\db' 'orders' 0 0 2"},
      {"NAME=orders\\", "'' 'orders\\' 0 0 2"},
      {"name=orders;NAME=sales", "'' 'sales' 0 0 2"},
      {"PATH=D:\\a;PATH=D:\\b;NAME=x", "'D:\\a' 'x' 0 0 2"},
      {"PATH=D:\\a;NAME=D:\\b\\x", "'D:\\b' 'x' 0 0 2"},
      {"NAME=D:\\b\\x;PATH=D:\\a;NAME=y", "'D:\\b' 'y' 0 0 2"},
      {"NAME=a\\x;NAME=b\\y", "'b' 'y' 0 0 2"},
      {"NAME", "'' '' 0 0 2"},
      {"PATH=a;NAME=\\x", "'\\' 'x' 0 0 2"},
      {"TYPE=mem;TYPE2=raw", "'' '' 1 1 2"},
      {"TYPE=memo;LANG=sjis", "'' '' 1 0 0"},
      {"TYPE=disk;TYPE2=RAWS;LANG=latin", "'' '' 0 0 2"},
      {"TYPE=fi", "'' '' 0 0 2"},
      {"TYPE=Device;TYPE2=Raw_Dev;LANG=EUC", "'' '' 2 2 1"},
      {"TYPE=sql;LANG=EUC;LANG=UTF-16LE", "'' '' 3 0 2"},
      {"TYPE=networks", "'' '' 4 0 2"},
  };
  for (const auto &[text, expected] : cases) {
    const Block params(param_create(text));
    ASSERT_NE(params, nullptr);
    std::ostringstream read;
    read << "'" << params->path << "' '" << params->name << "' " << static_cast<int>(params->io.storage_type)
         << " " << static_cast<int>(params->manage_type) << " " << params->language;
    EXPECT_EQ(read.str(), expected) << text;
  }
  StorageName name;
  ASSERT_TRUE(storage_name(*Block(param_create("NAME=/x")), DatabaseType::ordinary, part_dat, name));
  EXPECT_STREQ(name, "/x.dat");
}

TEST_F(Parameters, ChecksEndInAStatus) {
  const std::string name20(20, 'n'), path230(230, 'p');
  // Directory, separator, NAME and ".4294967295.trn_" fill 255 characters, and 31 in memory without a number.
  const std::pair<StatusCode, std::vector<std::string>> cases[] = {
      {0,
       {"NAME=" + name20, "NAME=x;BLOCK_SIZE=32768", "NAME=x;TYPE=MEMORY;DRV_NO=0",
        "NAME=x;TYPE2=RAW;SIZE_DAT=30b;SIZE_TRN=10b;FILE_SFX_TRN=dat", "NAME=x;CACHE_RTS=0;CACHE_RTC=-1",
        "NAME=12345678;PATH=" + path230, "NAME=" + name20 + ";TYPE=MEMORY;PATH=123456",
        "NAME=x;SIZE_DAT=120K;SIZE_TRN=10B", "NAME=x;SIZE_DAT=0;SIZE_TRN=none", "NAME=x;SIZE_DAT=8191G",
        "NAME=x;TYPE2=RAW;SIZE_DAT=2147483637B;SIZE_TRN=10B",
        "NAME=x;HASH_SIZE_DAT=1048576;HASH_SIZE_TRN=1048576;TRAN_HASH=1048576;BEGIN_RETRY=0"}},
      {112001, {" ", "PATH=D:\\db"}},
      {112018, {"NAME=n" + name20}},
      {112009, {"NAME=x;BLOCK_SIZE=1000", "NAME=x;BLOCK_SIZE=0"}},
      {112010, {"NAME=x;BLOCK_SIZE=65536"}},
      {112016,
       {"NAME=x;DRV_NO=100", "NAME=x;DRV_NO=1", "NAME=x;TYPE=SQLITE", "NAME=x;TYPE=NETWORK",
        "NAME=x;TYPE=DEVICE;SECTOR_SIZE=512;START_SECTOR=1"}},
      {112004, {"NAME=x;TYPE=DEVICE"}},
      {112005, {"NAME=x;TYPE=DEVICE;SECTOR_SIZE=512"}},
      {112014, {"NAME=x;TYPE=DEVICE;SECTOR_SIZE=8192;START_SECTOR=1"}},
      {112015, {"NAME=x;TYPE=DEVICE;SECTOR_SIZE=500;START_SECTOR=1"}},
      {112019, {"NAME=x;FILE_SFX_DAT=dat;FILE_SFX_TRN=.Dat", "NAME=x;FILE_SFX_TRN=dat"}},
      {112017,
       {"NAME=x;CACHE_SIZE_DAT=0", "NAME=x;CACHE_SIZE_TRN=-1", "NAME=x;HASH_SIZE_DAT=0",
        "NAME=x;HASH_SIZE_TRN=x", "NAME=x;HASH_SIZE_DAT=1048577", "NAME=x;HASH_SIZE_TRN=1048577",
        "NAME=x;TRAN_HASH=1048577", "NAME=x;BEGIN_RETRY=-1", "NAME=x;TRAN_HASH=0", "NAME=x;CACHE_RTS=-1",
        "NAME=x;SIZE_DAT=100S", "NAME=x;SIZE_DAT=100S;SECTOR_SIZE=8192"}},
      {112012, {"NAME=123456789;PATH=" + path230, "NAME=" + name20 + ";TYPE=MEMORY;PATH=1234567"}},
      {112006, {"NAME=x;SIZE_DAT=100", "NAME=x;SIZE_DAT=116K"}},
      {112007, {"NAME=x;SIZE_TRN=9B"}},
      {112003, {"NAME=x;TYPE2=RAW;SIZE_DAT=30B", "NAME=x;TYPE2=RAW;SIZE_DAT=0;SIZE_TRN=10B"}},
      {112013,
       {"NAME=x;TYPE2=RAW;SIZE_DAT=2147483638B;SIZE_TRN=10B", "NAME=x;SIZE_DAT=8192G",
        "NAME=x;TYPE=DEVICE;SECTOR_SIZE=512;START_SECTOR=9223372036854775807",
        "NAME=x;SIZE_DAT=" + std::string(67, '0') + "30B"}},
  };
  for (const auto &[status, texts] : cases)
    for (const std::string &text : texts) EXPECT_EQ(check(text), status) << text;
  EXPECT_EQ(check("NAME=x;SIZE_DAT=100;TYPE2=RAW", CheckFor::opening), 0) << "sizes matter for creation only";
  env_set("HVI_LOCK_RETRY", "-1");
  EXPECT_EQ(check("NAME=x"), 0);
  EXPECT_EQ(Block(param_create("NAME=x"))->begin_retry, 0);
}

TEST_F(Parameters, SizesInBlocks) {
  const std::pair<std::string, int> cases[] = {
      {"10M", 2560},        {"1g", 262144}, {"120k", 30}, {"123K", 30},
      {"240S", 30},         {"247s", 30},   {"30B", 30},  {"122880", 30},
      {"126975 bytes", 30}, {"10MB", 2560}, {"-5M", 0},   {"99999999999", 524287},
  };
  for (const auto &[size, blocks] : cases) {
    const Block params(param_create(("NAME=x;SECTOR_SIZE=512;SIZE_DAT=" + size).c_str()));
    EXPECT_TRUE(params != nullptr && param_check(*params, CheckFor::creation)) << size;
    EXPECT_EQ(params->size_dat, blocks) << size;
    EXPECT_EQ(params->manage_type, ManageType::separate);
  }
}

}  // namespace
