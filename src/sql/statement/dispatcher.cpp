#include "sql/statement/dispatcher.h"

#include "data/table/catalog_change.h"
#include "frame/env.h"
#include "frame/error.h"
#include "sql/parse/shapes.h"
#include "sql/query/printing.h"
#include "sql/statement/executors.h"

namespace tovik {

namespace {

// ---- statements without a file of their own ----

bool exec_begin(Statement &statement) {
  return db_start(*statement.db, current_thread(), Nesting::refused) == DbStart::started;
}

bool exec_commit(Statement &statement) {
  return db_commit_or_roll_back(*statement.db, current_thread());
}

bool exec_rollback(Statement &statement) {
  return db_rollback(*statement.db, current_thread());
}

bool exec_echo(Statement &statement) {
  const Node *literal = TargetTree::of(*statement.root).target;
  system_driver.print("%s%s", literal == nullptr ? "" : node_name(*literal), "\n");
  return true;
}

bool exec_select(Statement &statement) {
  if (!query_open(*statement.query)) return false;
  return statement.prepared || print_result(*statement.query);
}

bool exec_set(Statement &statement) {
  const SetTree tree = SetTree::of(*statement.root);
  env_set(node_name(*tree.name), node_name(*tree.value));
  return true;
}

bool exec_show(Statement &statement) {
  env_show(statement.root->value == nullptr ? nullptr : node_name(*statement.root));
  return true;
}

bool exec_test_stmt(Statement &statement) {
  if (statement.prepared) return query_open(*statement.query);
  return print_items(*statement.query);
}

// ---- the kinds ----

enum class Mode {
  none,
  read,    // the thread's read hold around the executor
  query,   // the hold was taken when the SELECT was parsed
  change,  // an automatic transaction when none is open
  rebuild  // the same, also with automatic commit off
};

struct KindRow {
  Mode mode;
  bool (*execute)(Statement &statement);
};

// By kind, from node::statement_first.
constexpr KindRow kinds[] = {
    {Mode::rebuild, exec_alter},        // ALTER
    {Mode::none, exec_begin},           // BEGIN
    {Mode::none, exec_commit},          // COMMIT
    {Mode::change, exec_create_index},  // CREATE INDEX
    {Mode::change, exec_create_table},  // CREATE TABLE
    {Mode::change, exec_delete},        // DELETE
    {Mode::read, exec_describe_db},     // DESCRIBE DB
    {Mode::read, exec_describe_table},  // DESCRIBE table
    {Mode::change, exec_drop_index},    // DROP INDEX
    {Mode::change, exec_drop_table},    // DROP TABLE
    {Mode::none, exec_echo},            // ECHO
    {Mode::change, exec_empty},         // EMPTY
    {Mode::none, exec_info},            // INFO
    {Mode::change, exec_insert},        // INSERT
    {Mode::change, exec_rename_attr},   // RENAME ATTR
    {Mode::change, exec_rename_table},  // RENAME table
    {Mode::none, exec_rollback},        // ROLLBACK
    {Mode::query, exec_select},         // SELECT
    {Mode::none, exec_set},             // SET
    {Mode::none, exec_show},            // SHOW
    {Mode::none, exec_test_stmt},       // TEST_STMT
    {Mode::change, exec_update},        // UPDATE
};
static_assert(sizeof kinds / sizeof kinds[0] == node::statement_last - node::statement_first + 1);

bool run_reading(Statement &statement, const KindRow &kind) {
  const ThreadId thread = current_thread();
  if (!db_read_begin(*statement.db, thread)) return false;
  const bool done = kind.execute(statement);
  db_read_end(*statement.db, thread);
  return done;
}

bool loads_file(const Node &root) {
  return root.kind == node::insert && SourceTree::of(*InsertTree::of(root).source).is_file();
}

// Changes everything or nothing, inside an open transaction and with automatic commit off as well.
bool run_as_a_whole(Statement &statement, const KindRow &kind) {
  const bool inside = db_in_transaction(*statement.db, current_thread());
  return db_change_in_transaction(*statement.db, [&] {
    if (!inside) return kind.execute(statement);
    return catalog_as_a_whole(*statement.db, [&] { return kind.execute(statement); });
  });
}

}  // namespace

bool dispatch(Statement &statement) {
  const uint16_t kind_no = statement.root->kind;
  if (kind_no < node::statement_first || kind_no > node::statement_last) return fail(status::statement_kind);
  const KindRow &kind = kinds[kind_no - node::statement_first];
  switch (kind.mode) {
    case Mode::read:
      return run_reading(statement, kind);
    case Mode::change:
      if (loads_file(*statement.root)) return run_as_a_whole(statement, kind);
      return db_change(*statement.db, [&] { return kind.execute(statement); });
    case Mode::rebuild:
      return db_change_in_transaction(*statement.db, [&] { return kind.execute(statement); });
    default:
      return kind.execute(statement);
  }
}

}  // namespace tovik
