#include "frame/dump.h"
#include "platform/charset/charset.h"
#include "storage/params/params.h"

namespace tovik {

namespace {

void number(const char *label, int32_t value) {
  print_line("  %-16.16s: %d", label, value);
}

void octal(const char *label, int32_t value) {
  print_line("  %-16.16s: 0%o", label, static_cast<unsigned>(value));
}

void text(const char *label, const char *value) {
  print_line("  %-16.16s: %s", label, value == nullptr ? "" : value);
}

void dump_io(const Params &params) {
  print_line(" -- io paramater -- ");
  number("use type", params.use_type);
  number("storage type", static_cast<int32_t>(params.io.storage_type));
  number("manage type", static_cast<int32_t>(params.manage_type));
  text("path", params.path);
  octal("mode", params.io.file_mode);
  number("option", params.io.open_option);
  number("hd no", params.io.unit_number);
  number("sector size", params.io.sector_size);
  print_line("  %-16.16s: %lld", "start sector", static_cast<long long>(params.io.start_sector));
  number("block size", params.io.block_size);
  if (params.io.start_sector > 0 && params.io.sector_size > 0)
    number("blsz / scsz", params.io.block_size / params.io.sector_size);
  number("driver no", params.driver_no);
}

void dump_blocks_and_cache(const Params &params) {
  print_line(" -- block manager paramater --");
  text("name", params.name);
  number("overwrite", params.overwrite);
  number("size dat", params.size_dat);
  number("size trn", params.size_trn);
  text("size dat (text)", params.size_dat_text);
  text("size trn (text)", params.size_trn_text);
  text("suffix dat", params.suffix_dat);
  text("suffix trn", params.suffix_trn);
  number("check ignore", params.check_ignore);
  print_line(" -- cache manager paramater -- ");
  number("immediately write", params.immediate_write);
  number("cache retry", params.cache_retry);
  number("cache sleep", params.cache_sleep);
  number("cache max dat", params.cache_size_dat);
  number("cache max trn", params.cache_size_trn);
  number("cache hash dat", params.hash_size_dat);
  number("cache hash trn", params.hash_size_trn);
  print_line(" -- btree paramater --");
  number("btree split ratio", params.btree_split_ratio);
  number("btree split ovfl", params.btree_split_overflow);
}

void dump_transaction_and_data(const Params &params) {
  print_line(" -- transaction manager paramater --");
  number("transaction hash", params.tran_hash);
  number("warm", params.warm_restart);
  print_line(" -- database manager paramater --");
  number("lock retry", params.lock_retry);
  number("lock sleep", params.lock_sleep);
  text("language", charset_table[params.language]->name);
  print_line(" -- overflow chunk data paramater --");
  number("orl cblk cnt", params.orl_cblk_cnt);
  number("orl cblk is set", params.orl_cblk_set);
  print_line(" -- ftio index paramater --");
  number("ftio master", params.ftio_master);
  number("ftio ngram", params.ftio_ngram);
  number("ftio ovfl", params.ftio_ovfl);
  print_line(" -- zorder index paramater -- ");
  number("zorder master", params.zorder_master);
  number("zorder ovfl", params.zorder_ovfl);
  print_line(" -- begin wait paramater -- ");
  number("begin retry", params.begin_retry);
  number("begin sleep", params.begin_sleep);
}

}  // namespace

void param_dump(const Params &params) {
  print_line("*** Paramater Information ***");
  dump_io(params);
  dump_blocks_and_cache(params);
  dump_transaction_and_data(params);
  print_line(" -- information paramater -- ");
  number("application version word", 0);  // this engine gives databases none
  text("encryption key", params.encrypt_key);
  number("endian", params.endian);
  number("format", params.format);
}

}  // namespace tovik
