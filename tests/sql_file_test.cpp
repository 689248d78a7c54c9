// Files that statements write and read: INTO, DUMP INTO, FROM and DIRECT_FROM.
#include <fstream>

#include "api_support.h"
#include "frame/error.h"

namespace tovik::test {
namespace {

// A database with files beside it: "@name" in a statement is the path of one.
struct Files {
  explicit Files(const std::string &settings = "") : library(("HVI_TRAN_SYNC=OFF;" + settings).c_str()) {}

  std::string in_place(std::string sql) const {
    for (size_t at; (at = sql.find('@')) != std::string::npos;) sql.replace(at, 1, db.directory() / "");
    return sql;
  }
  int run(const std::string &sql) {
    int code = 0;
    printed = printed_by([&] { code = db.run(in_place(sql)); });
    return code;
  }
  // Statements with ";" between them, and behind one that fails " => " and its code.
  void run_all(const std::string &statements) {
    for (const std::string &each : parts(statements)) {
      const size_t end = std::min(each.find(" => "), each.size());
      EXPECT_EQ(run(each.substr(0, end)), end == each.size() ? 0 : std::stoi(each.substr(end + 4))) << each;
    }
  }
  std::string rows(const std::string &sql) { return db.rows(in_place(sql)); }
  void put(const std::string &name, const std::string &bytes) const {
    std::ofstream(db.directory() / name, std::ios::binary) << bytes;
  }
  std::string content(const std::string &name) const {
    std::ifstream file(db.directory() / name, std::ios::binary);
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "no file";
  }

  const Library library;
  TestDatabase db{"FILE_MODE=0640"};
  std::string printed;  // by the last statement
};

// What was loaded is dumped as the same bytes, and loaded from there as the same rows.
TEST(SqlFiles, KeepEveryTypeInEveryCharacterSet) {
  const std::string columns =
      " (id int AUTO_INCREMENT, a tinyint, b smallint, c int, d bigint, e ctinyint, f csmallint, g cint,"
      "h cbigint, k float, l double, m decimal, n varchar(20), o char(9), p text(3,4,9), q date, r time,"
      "s microtimestamp, x blob(1,2,99))";
  const std::string wide = "ソ\x83\x5c\xa5\xbd";  // characters of each set, and broken ones of the others
  std::string digits = "01ff";                    // more than a statement's memory holds
  for (int i = 0; i < 40000; ++i) digits += "00a5";
  for (const std::string language : {"SJIS", "EUC", "UTF-8", "UTF-16LE", "UTF-16BE"}) {
    Files files("HVI_GMT_TIME=ON;HVI_SQL_BUF_SIZE=65536;HVI_LANG=" + language);
    for (const std::string header : {"ON", "OFF"}) {
      const std::string quote = header == "ON" ? "" : "\"";  // texts of a first line are no names
      const std::string rows =
          (header == "ON" ? "id,a,b,c,d,e,f,g,h,k,l,m,n,o,p,q,r,s,x\r\n" : "") +
          ("1,-127,32767,-2147483647,9223372036854775807,-128,-32768,2147483647,-9223372036854775808,0.1," +
           ("2.2250738585072014e-308," + quote + "1.50" + quote) + "," + quote + wide + quote) +
          ",\"a,b\",\"say \"\"" + wide + "\"\"\",20240229,20240229235959,20240229235959000001," + digits +
          "\r\n2,,,,,,,,,1.234568e-30,inf,,\"\",\"a\rb\",\"\r\n\",,,,00\r\n3,,,,,,,,,,nan,,\x83,\"\x83,\"," +
          wide + "\xe3\x81,,,,\r\n4,,,,,,,,,,,, b ,\"\"\"\"," + std::string("a\0b", 3) + ",,,,\r\n";
      files.put("given", rows);
      files.run_all("SET HVI_SQL_SEL_HDR '" + header + "'; CREATE TABLE t" + columns + "; CREATE TABLE u" +
                    columns + "; INSERT INTO t FROM '@given'; SELECT * FROM t DUMP INTO '@" + header +
                    "'; INSERT INTO u FROM '@" + header + "'");
      EXPECT_EQ(files.content(header), rows) << language;
      EXPECT_EQ(files.rows("SELECT * FROM u"), files.rows("SELECT * FROM t"));
      files.run_all("DROP TABLE t; DROP TABLE u");
    }
    files.run_all(
        "CREATE TABLE names (x char(3), y char(3)); INSERT INTO names VALUES 'y', 'x', NULL, 'z';"
        "SELECT * FROM names DUMP INTO '@names'; INSERT INTO names FROM '@names'");
    EXPECT_EQ(files.rows("SELECT * FROM names"), "y,x;-,z;y,x;-,z");
  }
}

TEST(SqlFiles, HoldAResultThatWasPrintedWhole) {
  Files files;
  files.run_all(
      "CREATE TABLE t (a int, b text(4, 20, 20), c blob); INSERT INTO t VALUES 1, '" + std::string(700, 'x') +
      "', '0102', 0, NULL, NULL; SELECT a + 1, a AS \"b,c\" FROM t DUMP INTO '@values'; SELECT * FROM t");
  const std::string lines = files.printed;
  EXPECT_EQ(files.run("SELECT * FROM t INTO '@lines'"), 0);
  EXPECT_EQ(files.printed, lines);
  EXPECT_EQ(files.content("values"), "(a + 1),\"b,c\"\r\n2,1\r\n1,0\r\n");
  EXPECT_EQ(static_cast<int>(std::filesystem::status(files.in_place("@lines")).permissions()), 0640);
  // One that is there stays, one that cannot be completed goes, and fetching rows makes none.
  for (const std::string name : {"@lines", "@", "@nowhere/new", ""})
    EXPECT_EQ(files.run("SELECT a FROM t INTO '" + name + "'"), 101) << name;
  EXPECT_EQ(files.content("lines"), lines);
  EXPECT_EQ(files.rows("SELECT a FROM t DUMP INTO '@new'"), "1;0");
  const SlotGuard<decltype(file_driver.file_sync)> lost(file_driver.file_sync,
                                                        [](DriverHandle) { return -1; });
  for (const std::string mode : {"INTO '@new'", "DUMP INTO '@new'"}) {
    files.run_all("SELECT 1 / a FROM t " + mode + " => 151001; SELECT a FROM t " + mode + " => 107");
    EXPECT_EQ(files.content("new"), "no file");
  }
}

// A file's rows come whole or not at all.
TEST(SqlFiles, AreLoadedLineByLine) {
  Files files;
  const struct {
    std::string columns, content, rows;
    int code, detail1, detail2;
  } cases[] = {
      {"", "1,5,a,01\n,6,,\r\n0,7,\"\",\"f\"", "1,5,a,01;2,6,-,-;3,7,,0f", 0, 0, 0},
      {"", "s,n\nab,1\n", "1,1,ab,-", 0, 0, 0},
      {"(n, s)", "s,n\r\n1,x\r\n", "1,1,x,-", 0, 0, 0},
      {"(n)", "1\n2\n\n3\n", "", 143002, 2, 3},
      {"(n)", "1\n1", "", 143001, 2, 0},
      {"", "1,2,c,\n1,2,c\n", "", 172005, 2, 0},
      {"", "s,n\na,1\nb,2,3,4,5,6,7\n", "", 172008, 3, 0},
      {"(n, s)", "1,\"a\nb\"\n128,c\n", "", 113002, 3, 0},
      {"(n, s)", "1,a\"b\n", "", 113001, 1, 0},
      {"(n, s)", "1,\"a\"b\n", "", 113001, 1, 0},
      {"(n, s)", "1,a\n2,\"b\n", "", 113001, 2, 0},
      {"(n, s)", "1,a\rb\n", "", 113001, 1, 0},
      {"(n, s)", std::string("1,a\0b\n", 6), "", 113001, 1, 0},
      {"(n, b)", "1,0g\n", "", 113013, 1, 0},
  };
  for (const std::string setting : {"BEGIN WORK", "SET HVI_AUTO_COMMIT 'ON'", "SET HVI_AUTO_COMMIT 'OFF'"})
    for (const auto &[columns, content, rows, code, detail1, detail2] : cases) {
      SCOPED_TRACE(setting + columns + " " + content);
      files.put("f", content);
      files.run_all(
          "CREATE TABLE t (id int AUTO_INCREMENT, n tinyint NOT NULL, s varchar(3), b blob);"
          "CREATE UNIQUE INDEX tn ON t (n);" +
          setting + "; INSERT INTO t VALUES 100, 100, 'in', NULL");
      EXPECT_EQ(files.run("INSERT INTO t " + columns + " FROM '@f'"), code);
      const ErrorRecord &record = error_record();
      EXPECT_TRUE(record.entries[0].detail1 == detail1 && record.entries[0].detail2 == detail2);
      const std::string text =
          "] line " + std::to_string(std::max(detail1, detail2)) + " of " + files.in_place("@f");
      EXPECT_TRUE(code == 0 || std::string(record.entries[record.count - 1].text).ends_with(text));
      files.run_all((setting == "BEGIN WORK" ? "COMMIT WORK" : setting) + "; INFO CHECK t");
      expect_sound(files.printed);
      EXPECT_EQ(files.rows("SELECT * FROM t"), "100,100,in,-" + std::string(rows.empty() ? "" : ";") + rows);
      files.run_all("DROP TABLE t");
    }
}

TEST(SqlFiles, GiveValues) {
  Files files;
  files.put("one", "b,s\r\n0aff,new\r\n");
  files.put("two", "7,8\n9,10\n");
  files.put("bytes", "\x93\x94" + std::string(300000, '\xff'));
  for (const std::string name : {"42", "うえ"}) files.put(name, name);
  files.put("empty", "");
  files.run_all(R"(
    CREATE TABLE t (a int, s varchar(9), x text, b blob); INSERT INTO t VALUES 1, 'p', 'q', '00', 2, NULL, NULL, NULL;
    INSERT INTO t FROM '@none' => 102; INSERT INTO t FROM '@' => 102; INSERT INTO t FROM '@empty';
    INSERT INTO t (a, a) FROM '@two' => 172007;
    UPDATE t FROM '@one' WHERE a = 2; UPDATE t (a, s) FROM '@two' => 172008; UPDATE t FROM '@two' => 172005;
    UPDATE t (a) FROM '@empty' => 172008; INSERT INTO t SET x = DIRECT_FROM '@' => 102;
    UPDATE t SET x = DIRECT_FROM '@うえ', a = DIRECT_FROM '@42' WHERE s = 'p';
    INSERT INTO t VALUES 3, DIRECT_FROM '@うえ', DIRECT_FROM '@empty', DIRECT_FROM '@bytes';
    INSERT INTO t SET x = DIRECT_FROM '@bytes' => 301; INSERT INTO t SET a = DIRECT_FROM '@うえ' => 113001;
    INSERT INTO t SET x = REVERSE(DIRECT_FROM '@bytes') => 110002; DELETE FROM t WHERE x = DIRECT_FROM '@none' => 102)");
  EXPECT_EQ(files.rows("SELECT a, s, x, LENGTHB(b) FROM t"), "42,p,うえ,0;2,new,-,2;3,うえ,-,300002");
  EXPECT_EQ(files.rows("SELECT LENGTH(DIRECT_FROM '@うえ') FROM t WHERE s >= DIRECT_FROM '@うえ'"), "2");
}

}  // namespace
}  // namespace tovik::test
