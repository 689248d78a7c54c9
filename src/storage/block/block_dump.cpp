#include "frame/dump.h"
#include "frame/error.h"
#include "storage/block/block_manager.h"

namespace tovik {

namespace {

void field(const char *label, int32_t value) {
  print_line("  %-13s: %d", label, value);
}

void hex_field(const char *label, uint32_t value) {
  print_line("  %-13s: %x", label, value);
}

void text_field(const char *label, const char *value) {
  print_line("  %-13s: %s", label, value);
}

void dump_common(const CommonHeader &common) {
  print_line(" -- block common header -- ");
  text_field("magic", common.magic);
  field("endian", common.endian);
  field("version", common.version);
  field("minor", common.minor);
  field("use type", common.use_type);
  field("storage type", common.storage_type);
  field("manage type", common.manage_type);
  field("database type", common.database_type);
  field("block size", common.block_size);
  text_field("name", common.name);
  hex_field("format", common.format);
  field("lang", common.lang);
  field("appver major", common.appver_major);
  field("appver minor", common.appver_minor);
  field("appver rev", common.appver_rev);
  hex_field("wstas", common.wstas);
  field("size (DAT)", common.size_dat);
  field("end  (DAT)", common.end_dat);
  field("size (TRN)", common.size_trn);
  field("end  (TRN)", common.end_trn);
}

void dump_parts(const HeaderRecord &header) {
  print_line(" -- part information  -- ");
  field("part (DAT)", header.parts[part_dat].part);
  hex_field("pstat(DAT)", header.parts[part_dat].pstat);
  field("part (TRN)", header.parts[part_trn].part);
  hex_field("pstat(TRN)", header.parts[part_trn].pstat);
  print_line(" -- block counter  -- ");
  const Counters &dat = header.parts[part_dat].counters, &trn = header.parts[part_trn].counters;
  field("bcnt (DAT)", dat.bcnt);
  field("fcnt (DAT)", dat.fcnt);
  field("flst (DAT)", dat.flst);
  field("ucnt (DAT)", static_cast<int32_t>(dat.ucnt));
  field("bcnt (TRN)", trn.bcnt);
  field("fcnt (TRN)", trn.fcnt);
  field("flst (TRN)", trn.flst);
  field("ucnt (TRN)", static_cast<int32_t>(trn.ucnt));
}

// fcnt bounds the walk, so that a damaged chain cannot lead it in circles.
void dump_free_list(BlockManager &bm) {
  print_line("*** Block Manager DAT Free List ***");
  const Counters &counters = bm_counters(bm, part_dat);
  if (counters.fcnt == 0) {
    print_line(" -- not found bm dat freelist. -- ");
    return;
  }
  BlockNo block = counters.flst, last = 0;
  for (int32_t left = counters.fcnt; left > 0; --left) {
    if (block == 0) {
      print_line("error : block no null. bcnt:[%d]", left);
      return;
    }
    print_line("bno:[%d] bcnt:[%d]", block, left);
    if (!bm_read_block(bm, part_dat, block, bm.block_buffer)) {
      print_line("error : read block. bno:[%d] bcnt:[%d]", block, left);
      return;
    }
    last = block;
    block = load_i32(bm.block_buffer);
  }
  print_line("OK : last bno:[%d] bcnt:[%d]", last, 0);
}

}  // namespace

void bm_dump(BlockManager &bm, bool free_list) {
  ErrorScope listing_records_nothing;
  print_line("***  Block Information ***");
  dump_common(bm.common);
  dump_parts(bm.header);
  if (free_list) dump_free_list(bm);
}

}  // namespace tovik
