// SQL texts, one a line, against a small database that starts anew for every input.
#include <cstddef>
#include <cstdint>
#include <string>

#include "engine.h"
#include "storage/io/io.h"

using namespace tovik::test;

namespace {

const std::string database = "NAME=t;DRV_NO=101;BLOCK_SIZE=1024;CACHE_RTS=0";
const std::string settings = "HVI_TRAN_HISTORY=0;HVI_SQL_BUF_SIZE=65536";

FILE *no_stream(const char *, const char *) {
  return nullptr;
}

const DiskImage &prepared() {
  static const DiskImage image = [] {
    fault_driver::install();
    tovik::file_driver = *tovik::added_drivers[fault_driver::number - tovik::added_driver_base];
    static const Silence silence;
    tovik::system_driver.stream_open = no_stream;
    const Engine engine(settings);
    return made_database(database, schema() + person_rows(0, 5) +
                                       Statements{"CREATE TABLE t (a bigint, b double, c date, d blob)",
                                                  "CREATE INDEX t_a ON t (a)",
                                                  "INSERT INTO t VALUES 1, 2.5, '20240229', '01ab'"});
  }();
  return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const DiskImage &image = prepared();
  const Engine engine(settings);  // anew, for SET
  fault_driver::load(image);
  Session session(database);
  const std::string text(reinterpret_cast<const char *>(data), size);
  std::string rows;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    const std::string sql = text.substr(begin, end - begin);
    // A query is fetched every other time, so that both ways are taken.
    if (begin % 2 == 0)
      (void)session.run(sql);
    else
      (void)session.query(sql, &rows);
    begin = end + 1;
  }
  (void)session.run("ROLLBACK TRANSACTION");
  if (!database_fault(session).empty()) __builtin_trap();
  return 0;
}
