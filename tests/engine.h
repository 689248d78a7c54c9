// The engine as the fault tests use it: the library on the fault driver, the whole content of a database as
// one text, and the agreement of everything inside it.
#pragma once

#include <string>
#include <vector>

#include "api_support.h"
#include "fault_driver.h"
#include "frame/status.h"
#include "platform/platform.h"

namespace tovik::test {

// How much more than usual a test does: TOVIK_TEST_SCALE, 1 unless set.
int scale();

// The library with the fault driver, started with settings such as "HVI_TRAN_HISTORY=0" until the end of the
// scope.
struct Engine : Library {
  explicit Engine(const std::string &settings) : Library((fault_driver::install(), settings.c_str())) {}
};

// Nothing is printed for the length of the scope.
struct Silence : SlotGuard<int (*)(const char *, ...)> {
  Silence() : SlotGuard(system_driver.print, print_nothing) {}
  static int print_nothing(const char *, ...) { return 0; }
};

// Every table with its columns, its indices and its rows in their order, as the calling thread sees them;
// "error N" in place of what cannot be read.
std::string database_text(Session &session);

// Whether everything inside agrees: each index holds exactly the keys of the table's rows and finds each of
// them; the free list is whole; every block belongs to exactly one owner; changed pages in the cache are
// counted. "" or the first thing wrong. For a database without open transaction.
std::string database_fault(Session &session);

// A database on the fault driver with small caches and short waits.
extern const std::string small_database;

using Statements = std::vector<std::string>;
Statements operator+(Statements a, const Statements &b);

// Creates the database and runs the statements on it; fails the test when one fails.
void create_database(const std::string &params, const Statements &statements);

// What such a database leaves on the disk of the fault driver.
DiskImage made_database(const std::string &params, const Statements &statements);

// The tables on which most tests work: person (id, name, note) with two indices, and its rows with ids from
// `from` on, whose notes are of all lengths up to 90 bytes.
Statements schema();
Statements person_rows(int from, int count);

// A statement on the tables p0 to p2 and the index names i0 to i3: a change of rows, mostly, or of the
// schema. It may fail: nothing says that the table is there.
std::string random_statement(Random &random);

}  // namespace tovik::test
