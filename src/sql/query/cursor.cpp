// The rows of the join, filtered; and, where asked, read to their end when the cursor is opened: into a sort
// store, or into groups.
//
// Cost per delivered row of a plain query: one step of the join, one evaluation of the condition.
// What a row needs from the statement's pool is given back when the next row is fetched, so that a result of
// any length fits the pool.
#include "sql/query/cursor.h"

#include <algorithm>

#include "frame/error.h"
#include "sql/evaluate/expr_internal.h"
#include "sql/query/sort_form.h"

namespace tovik {

namespace {

bool tables_written(const Cursor &cursor) {
  for (const TableAccess *access = cursor.request.context.tables; access != nullptr; access = access->next)
    if (access_written(*access)) return true;
  return false;
}

// The whole condition, for the length of the scope: what the access path guaranteed holds no longer.
class WholeCondition {
 public:
  explicit WholeCondition(const Guaranteed &guaranteed) : condition_(guaranteed.condition) {
    if (condition_ != nullptr) condition_->kind = guaranteed.kind;
  }
  ~WholeCondition() {
    if (condition_ != nullptr) condition_->kind = node::always_true;
  }
  WholeCondition(const WholeCondition &) = delete;
  WholeCondition &operator=(const WholeCondition &) = delete;

 private:
  Node *condition_;
};

// The whole condition, which what was written since the cursor was opened may not meet any more.
bool qualifies(Cursor &cursor, bool *yes) {
  const Node *condition = cursor.request.condition;
  *yes = true;
  if (condition == nullptr) return true;
  const WholeCondition whole(cursor.join.plan.guaranteed);
  return condition->kind == node::always_true || condition_met(cursor.request.context, condition, yes);
}

Found qualifying_next(Cursor &cursor) {
  for (;;) {
    const Found fetched = join_next(cursor.join, cursor.request.context);
    if (fetched != Found::yes) return fetched;
    // A row of a known number may be another one by now.
    if (cursor.join.plan.guaranteed.condition == nullptr || !tables_written(cursor)) return Found::yes;
    bool yes;
    if (!qualifies(cursor, &yes)) return Found::failed;
    if (yes) return Found::yes;
  }
}

// Calls take for every row that next gives; what take needs from the pool ends with it.
template <class Take>
bool read_all(Cursor &cursor, Found (*next)(Cursor &cursor), Take take) {
  return each_row([&] { return next(cursor); },
                  [&] {
                    const PoolScope scope(*cursor.request.context.pool);
                    return take();
                  });
}

// ---- materialized results ----

// What a sort store holds of each row: the keys, and behind them the result columns that are no keys.
struct SortedColumns {
  ColumnRef *columns;
  int count, key_count;
};

// A value that the store gives back as the row handle would.
bool can_be_carried(const ResultColumn &result) {
  if (result.kind != ResultKind::column) return false;
  const Column &column = *result.column.column;
  return (column.type & (TYPE_INTEGER | TYPE_FLOAT | TYPE_DATETIME | TYPE_CHARACTER)) != 0 &&
         !column_is_large(column);
}

bool read_keys(Cursor &cursor, SortedColumns &sorted) {
  const CursorRequest &request = cursor.request;
  sorted = {nullptr, request.order_count, request.order_count};
  sorted.columns =
      memory_pool_new<ColumnRef>(*request.context.pool, request.order_count + request.column_count);
  if (sorted.columns == nullptr) return false;
  for (int i = 0; i < request.order_count; ++i) sorted.columns[i] = request.order[i].column;
  return true;
}

// Has the store carry the result, if all of it can be carried.
bool read_carried(Cursor &cursor, SortedColumns &sorted) {
  const CursorRequest &request = cursor.request;
  if (request.column_count == 0 ||
      !std::all_of(request.columns, request.columns + request.column_count, can_be_carried))
    return true;
  int *places = memory_pool_new<int>(*request.context.pool, request.column_count);
  if (places == nullptr) return false;
  for (int i = 0; i < request.column_count; ++i) {
    ColumnRef *const end = sorted.columns + sorted.count;
    *end = request.columns[i].column;
    places[i] = static_cast<int>(std::find(sorted.columns, end, *end) - sorted.columns);
    if (places[i] == sorted.count) ++sorted.count;
  }
  cursor.carried = places;
  return true;
}

bool store_sort_row(Cursor &cursor, const SortedColumns &sorted, const RowForms &row) {
  const CursorRequest &request = cursor.request;
  for (int i = 0; i < sorted.count; ++i)
    if (!row_forms_read(*request.context.pool, sorted.columns[i], i, row)) return false;
  RowNo positions[from_table_limit];
  int table = 0;
  for (const TableAccess *access = request.context.tables; access != nullptr; access = access->next) {
    positions[table++] = access->handle->row;
  }
  return sort_store_row(*cursor.sorted, row.forms, positions);
}

bool collect_sorted(Cursor &cursor, const SortedColumns &sorted) {
  const CursorRequest &request = cursor.request;
  MemoryPool &pool = *request.context.pool;
  SortColumn *columns = memory_pool_new<SortColumn>(pool, sorted.count);
  RowForms row;
  if (columns == nullptr || !row_forms_new(pool, sorted.count, &row)) return false;
  for (int i = 0; i < sorted.count; ++i) columns[i] = sort_column(*sorted.columns[i].column);
  cursor.sorted = sort_store_create(columns, sorted.count, access_count(request.context.tables));
  return cursor.sorted != nullptr &&
         read_all(cursor, qualifying_next, [&] { return store_sort_row(cursor, sorted, row); });
}

// Before the first row of the join, with a store of the keys only.
void start_again(Cursor &cursor, SortedColumns &sorted) {
  sort_store_destroy(cursor.sorted);
  cursor.sorted = nullptr;
  cursor.carried = nullptr;
  sorted.count = sorted.key_count;
  cursor.join.started = false;
  for (TableAccess *access = cursor.join.tables; access != nullptr; access = access->next)
    access_rewind(*access);
}

// Rows that carry their result need not be read again, in an order in which every row may lie in another
// page. When the area has no room for that the rows are read twice.
bool sort_rows(Cursor &cursor) {
  const CursorRequest &request = cursor.request;
  SortDirection directions[order_key_limit];
  for (int i = 0; i < request.order_count; ++i) directions[i] = request.order[i].direction;
  SortedColumns sorted;
  if (!read_keys(cursor, sorted) || !read_carried(cursor, sorted)) return false;
  cursor.join.read_failure = status::sort_read;
  const ErrorRecord before = error_record();
  bool done = collect_sorted(cursor, sorted);
  if (!done && cursor.sorted != nullptr && cursor.sorted->exhausted && sorted.count > sorted.key_count) {
    error_record() = before;
    start_again(cursor, sorted);
    done = collect_sorted(cursor, sorted);
  }
  return done && sort_execute(*cursor.sorted, directions, request.order_count);
}

// Reads the rows of a combination; no: one of them is deleted.
Found load_combination(TableAccess *access, const SortStore &sorted, int row) {
  for (int table = 0; access != nullptr; access = access->next, ++table) {
    const Found load =
        row_handle_read_since(*access->handle, sort_position(sorted, row, table), access->found);
    if (load != Found::yes) return load;
  }
  return Found::yes;
}

// A combination of which a table was written since it was sorted must meet the condition again.
Found sorted_next(Cursor &cursor) {
  while (cursor.next_row < cursor.sorted->rows.size()) {
    const int row = cursor.next_row++;
    cursor.from_sorted = cursor.carried != nullptr && !tables_written(cursor);
    if (cursor.from_sorted) return Found::yes;
    const Found load = load_combination(cursor.request.context.tables, *cursor.sorted, row);
    if (load == Found::failed) return Found::failed;
    bool meets = load == Found::yes;
    if (meets && tables_written(cursor) && !qualifies(cursor, &meets)) return Found::failed;
    if (meets) return Found::yes;
  }
  return Found::no;
}

// What DISTINCT is made of.
Found plain_next(Cursor &cursor) {
  if (cursor.groups != nullptr) return groups_next(*cursor.groups, cursor.request.context);
  return cursor.sorted != nullptr ? sorted_next(cursor) : qualifying_next(cursor);
}

bool is_mixed(const ResultColumn &column) {
  return (column.flags & value_mixed) != 0;
}

bool result_form(MemoryPool &pool, const ResultColumn &column, const Value &value, const void **form) {
  if (!is_mixed(column)) return sort_form(pool, value, column.type, form);
  *form = value.is_null() ? nullptr : mixed_form(pool, value);
  return value.is_null() || *form != nullptr;
}

Value value_of_result(const ResultColumn &column, const void *form) {
  return is_mixed(column) && form != nullptr ? value_of_mixed_form(form)
                                             : value_of_sort_form(column.type, form);
}

bool create_results(Cursor &cursor) {
  const CursorRequest &request = cursor.request;
  SortColumn *columns = memory_pool_new<SortColumn>(*request.context.pool, request.column_count);
  if (columns == nullptr) return false;
  for (int i = 0; i < request.column_count; ++i) {
    const ResultColumn &column = request.columns[i];
    const TypeCode stored = is_mixed(column) ? type::blob : column.type;
    columns[i] = {stored, column.kind == ResultKind::column ? column.column.column->p1 : int16_t{0}};
  }
  cursor.results = sort_store_create(columns, request.column_count, 0);
  return cursor.results != nullptr;
}

// Of all rows as one group, an item that no aggregate is in has no value. A column of a query around has the
// value that it has there.
bool group_item(Cursor &cursor, const ResultColumn &column, Value *value) {
  EvalContext &context = cursor.request.context;
  const Group &group = cursor.groups->current;
  const bool aggregate = (column.flags & value_aggregate) != 0;
  const bool computed = column.kind == ResultKind::column ? !own_column(context, column.column)
                                                          : aggregate || group.key_count > 0;
  if (computed) return expr_evaluate(context, column.expression, value);
  group_value(group, column.column, value);
  return true;
}

void carried_value(const Cursor &cursor, const ResultColumn &column, Value *value) {
  const int place = cursor.carried[&column - cursor.request.columns];
  *value = value_of_sort_form(column.type, sort_value(*cursor.sorted, cursor.next_row - 1, place));
}

bool row_value(Cursor &cursor, const ResultColumn &column, Value *value) {
  if (cursor.groups != nullptr) return group_item(cursor, column, value);
  if (cursor.from_sorted) {
    carried_value(cursor, column, value);
    return true;
  }
  if (column.kind == ResultKind::column)
    return row_handle_value(*column.column.row, *column.column.column, value);
  return expr_evaluate(cursor.request.context, column.expression, value);
}

bool store_result_row(Cursor &cursor, const RowForms &row) {
  const CursorRequest &request = cursor.request;
  for (int i = 0; i < request.column_count; ++i) {
    const ResultColumn &column = request.columns[i];
    Value &value = row.values[i];
    if (!row_value(cursor, column, &value)) return false;
    if (!result_form(*request.context.pool, column, value, &row.forms[i])) return false;
  }
  return sort_store_distinct(*cursor.results, row.forms);
}

bool collect_distinct(Cursor &cursor) {
  RowForms row;
  if (!create_results(cursor)) return false;
  if (!row_forms_new(*cursor.request.context.pool, cursor.request.column_count, &row)) return false;
  if (!read_all(cursor, plain_next, [&] { return store_result_row(cursor, row); })) return false;
  cursor.next_row = 0;
  return true;
}

// What fails for all rows as one group fails when they are read.
bool evaluate_items(Cursor &cursor) {
  const CursorRequest &request = cursor.request;
  const PoolScope scope(*request.context.pool);
  for (int i = 0; i < request.column_count; ++i) {
    Value ignored;
    if (!group_item(cursor, request.columns[i], &ignored)) return false;
  }
  return true;
}

bool collect_groups(Cursor &cursor) {
  Groups &groups = *cursor.groups;
  EvalContext &context = cursor.request.context;
  if (!read_all(cursor, qualifying_next, [&] { return groups_add(groups, context); })) return false;
  if (!groups_complete(groups, context)) return false;
  const Grouping &grouping = *cursor.request.grouping;
  return grouping.key_count > 0 || grouping.condition != nullptr || evaluate_items(cursor);
}

// ---- delivery ----

Found result_next(Cursor &cursor) {
  if (cursor.next_row == cursor.results->rows.size()) return Found::no;
  ++cursor.next_row;
  return Found::yes;
}

// 141004 when the rows of a table are gone.
bool tables_stand(const Cursor &cursor) {
  for (const TableAccess *access = cursor.request.context.tables; access != nullptr; access = access->next)
    if (!access_stands(*access)) return fail(status::table_missing);
  return true;
}

Found next_row(Cursor &cursor) {
  if (cursor.results != nullptr) return result_next(cursor);
  return cursor.groups != nullptr || tables_stand(cursor) ? plain_next(cursor) : Found::failed;
}

bool open_groups(Cursor &cursor) {
  const CursorRequest &request = cursor.request;
  if (request.grouping == nullptr) return true;
  cursor.groups = groups_open(request.context, *request.grouping, request.order, request.order_count);
  return cursor.groups != nullptr;
}

bool materialize(Cursor &cursor) {
  const CursorRequest &request = cursor.request;
  if (cursor.groups != nullptr ? !collect_groups(cursor) : request.order_count > 0 && !sort_rows(cursor))
    return false;
  const bool one_row = cursor.groups != nullptr && request.grouping->key_count == 0;
  return !request.distinct || one_row || collect_distinct(cursor);
}

bool start(Cursor &cursor) {
  CursorRequest &request = cursor.request;
  if (!open_groups(cursor)) return false;
  TableAccess *const tables = cursor.join.tables = request.context.tables;
  for (TableAccess *access = tables; access != nullptr; access = access->next) access_start(*access);
  if (!plan_query(request.context, request.condition, request.planning, &cursor.join.plan)) return false;
  const bool order_shows = request.order_count == 0 && request.grouping == nullptr;
  // Rows of a key lie scattered; in the order of their positions each page is read once.
  for (TableAccess *access = tables; !order_shows && access != nullptr; access = access->next)
    if (access->rows != nullptr) rowset_sort(*access->rows);
  const bool done = materialize(cursor);
  access_pause(request.context.tables);
  cursor_keep(cursor);
  return done;
}

}  // namespace

Cursor *cursor_open(const CursorRequest &request) {
  Cursor *cursor = memory_pool_new<Cursor>(*request.context.pool);
  if (cursor == nullptr) return nullptr;
  cursor->request = request;
  if (start(*cursor)) return cursor;
  cursor_close(cursor);
  return nullptr;
}

Found cursor_fetch(Cursor &cursor) {
  if (cursor.place == CursorPlace::ended) return Found::no;
  MemoryPool &pool = *cursor.request.context.pool;
  pool.used = cursor.pool_used;
  pool.count = cursor.pool_count;
  const Found fetched = next_row(cursor);
  access_pause(cursor.request.context.tables);
  cursor.place = fetched == Found::yes ? CursorPlace::on_row : CursorPlace::ended;
  return fetched;
}

bool cursor_value(Cursor &cursor, const ResultColumn &column, Value *value) {
  if (cursor.place != CursorPlace::on_row) return fail(status::record_not_found);
  if (cursor.results == nullptr) return row_value(cursor, column, value);
  const int number = static_cast<int>(&column - cursor.request.columns);
  *value = value_of_result(column, sort_value(*cursor.results, cursor.next_row - 1, number));
  return true;
}

void cursor_keep(Cursor &cursor) {
  cursor.pool_used = cursor.request.context.pool->used;
  cursor.pool_count = cursor.request.context.pool->count;
}

void cursor_close(Cursor *cursor) {
  const Guaranteed &guaranteed = cursor->join.plan.guaranteed;
  if (guaranteed.condition != nullptr) guaranteed.condition->kind = guaranteed.kind;
  access_pause(cursor->request.context.tables);
  if (cursor->sorted != nullptr) sort_store_destroy(cursor->sorted);
  if (cursor->results != nullptr) sort_store_destroy(cursor->results);
  groups_close(cursor->groups);
  cursor->sorted = cursor->results = nullptr;
}

}  // namespace tovik
