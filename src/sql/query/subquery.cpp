// Invariant: a kept result is that of the rows on which it depends. It depends on the row of the nearest
// query whose columns it names, and on those around that one; a query that runs again therefore forgets what
// the queries directly inside it kept, unless they depend on no row at all.
//
// Cost of a test of kept values: one comparison with the lowest or the highest of them, or a binary search.
#include "sql/query/subquery.h"

#include "frame/error.h"
#include "sql/query/query.h"
#include "sql/query/sort_form.h"

namespace tovik {

enum class Kept { nothing, result, too_large };

struct Subquery {
  SubqueryUse use;
  Query *query;
  Kept kept;
  bool any_row, any_null;  // in the result
  SortStore *values;       // what else is in it, each once; null: nothing
  Subquery *next;          // of the same scope
};

namespace {

// ---- running ----

// An open subquery. Its end closes it, and gives back what it took from the pool.
class Run {
 public:
  Run(EvalContext &context, Subquery &subquery)
      : pool_(*context.pool), scope_(pool_), query_(*subquery.query) {
    query_.stack = context.stack;
    open_ = tables_stand() && query_open(query_);
    query_.planning = Planning::silent;
  }
  ~Run() {
    if (query_.cursor != nullptr) cursor_close(query_.cursor);
    query_.cursor = nullptr;
  }
  Run(const Run &) = delete;
  Run &operator=(const Run &) = delete;

  bool failed() const { return !open_; }
  Found next() { return query_fetch(query_); }
  Found next(Value *value);  // the row's first; of the class in which it is computed with

  // The last value outlives the rows that follow, up to the end of the run.
  bool keep(Value *value) {
    if (!value->is_null() && datum_kind(value->type) == DatumKind::text) {
      value->text.text = memory_pool_text(pool_, value->text.text, value->text.length);
      if (value->text.text == nullptr) return false;
    }
    cursor_keep(*query_.cursor);
    return true;
  }

 private:
  // No index of a definition that was replaced meanwhile is used.
  bool tables_stand() {
    for (const TableAccess *access = query_.tables; access != nullptr; access = access->next) {
      if (!access_stands(*access)) return fail(status::table_missing);
      if (access_outdated(*access)) query_.planning = Planning::none;
    }
    return true;
  }

  MemoryPool &pool_;
  PoolScope scope_;
  Query &query_;
  bool open_;
};

Found Run::next(Value *value) {
  const Found fetched = next();
  if (fetched != Found::yes) return fetched;
  const ResultColumn &column = query_.columns[0];
  if (!cursor_value(*query_.cursor, column, value)) return Found::failed;
  if (column.kind == ResultKind::column) {
    value->kind = value_kind::column;
    value->declared = column.type;
  }
  value->type = computing_type(column.kind == ResultKind::column ? column.type : value->type);
  return Found::yes;
}

// The value of the result's only row, NULL without a row.
bool only_value(Run &run, Value *value) {
  value->flags = value_null;
  switch (run.next(value)) {
    case Found::no:
      return true;
    case Found::yes:
      break;
    default:
      return false;
  }
  if (!run.keep(value)) return false;
  const Found second = run.next();
  if (second == Found::yes) return fail(status::value_count_columns);
  return second == Found::no;
}

bool test_list(Run &run, uint16_t comparison, const Value &tested, Truth *truth) {
  *truth = Truth::no;
  for (Value value;;) {
    const Found fetched = run.next(&value);
    if (fetched != Found::yes) return fetched == Found::no;
    Truth meets;
    if (!value_compare(comparison, tested, value, &meets)) return false;
    if (meets == Truth::no) continue;
    *truth = meets;
    if (meets == Truth::yes || tested.is_null()) return true;
  }
}

bool test_running(EvalContext &context, Subquery &subquery, uint16_t comparison, const Value *tested,
                  Truth *truth) {
  Run run(context, subquery);
  if (run.failed()) return false;
  if (subquery.use == SubqueryUse::list) return test_list(run, comparison, *tested, truth);
  if (subquery.use == SubqueryUse::value) {
    Value value;
    return only_value(run, &value) && value_compare(comparison, *tested, value, truth);
  }
  const Found first = run.next();
  *truth = first == Found::yes ? Truth::yes : Truth::no;
  return first != Found::failed;
}

// ---- keeping ----

// Does the result hold for every row of the query around?
bool keepable(const Subquery &subquery) {
  const QueryScope &scope = subquery.query->scope;
  return scope.nearest < scope.nesting - 1;
}

void drop_result(Subquery &subquery) {
  sort_store_destroy(subquery.values);
  subquery.values = nullptr;
  subquery.kept = Kept::nothing;
  subquery.any_row = subquery.any_null = false;
}

// Values of a class that is known per row only, and bytes, have no order among them.
bool ordered(const ResultColumn &column) {
  return (column.type & TYPE_BINARY) == 0 && (column.flags & value_mixed) == 0;
}

// As which values are kept; those of a date column compare to its precision.
TypeCode kept_type(const ResultColumn &column) {
  if (!ordered(column)) return type::blob;
  const bool date_column = column.kind == ResultKind::column && (column.type & TYPE_DATETIME) != 0;
  return date_column ? column.type : computing_type(column.type);
}

Value kept_value(const Subquery &subquery, int number) {
  const ResultColumn &column = subquery.query->columns[0];
  const void *form = sort_value(*subquery.values, number, 0);
  if (!ordered(column)) return value_of_mixed_form(form);
  Value value = value_of_sort_form(kept_type(column), form);
  if (column.kind == ResultKind::column) value.kind = value_kind::column;
  value.type = computing_type(value.type);
  return value;
}

int kept_count(const Subquery &subquery) {
  return subquery.values == nullptr ? 0 : subquery.values->rows.size();
}

// False when there is no room, with nothing recorded.
bool keep_value(MemoryPool &pool, Subquery &subquery, const Value &value) {
  const ErrorScope no_failure_of_the_statement;
  const ResultColumn &column = subquery.query->columns[0];
  if (subquery.values == nullptr) {
    const SortColumn kept{kept_type(column), 0};
    subquery.values = sort_store_create(&kept, 1, 0);
    if (subquery.values == nullptr) return false;
  }
  const void *form = nullptr;
  const bool formed = ordered(column) ? sort_form(pool, value, kept_type(column), &form)
                                      : (form = mixed_form(pool, value)) != nullptr;
  return formed && sort_store_distinct(*subquery.values, &form);
}

bool order_values(Subquery &subquery) {
  const SortDirection ascending = SortDirection::ascending;
  if (subquery.values == nullptr || !ordered(subquery.query->columns[0])) return true;
  const ErrorScope no_failure_of_the_statement;
  return sort_execute(*subquery.values, &ascending, 1);
}

// Keeps the values that are left of a run; *fits tells whether there is room for all of them.
bool keep_values(MemoryPool &pool, Run &run, Subquery &subquery, bool *fits) {
  for (*fits = true; *fits;) {
    Value value;
    const Found fetched = run.next(&value);
    if (fetched != Found::yes) {
      *fits = order_values(subquery);
      return fetched == Found::no;
    }
    subquery.any_row = true;
    if (value.is_null()) {
      subquery.any_null = true;
    } else {
      *fits = keep_value(pool, subquery, value);
    }
  }
  return true;
}

bool keep_result(EvalContext &context, Subquery &subquery) {
  Run run(context, subquery);
  if (run.failed()) return false;
  bool fits = true;
  if (subquery.use == SubqueryUse::list) {
    if (!keep_values(*context.pool, run, subquery, &fits)) return false;
  } else if (subquery.use == SubqueryUse::value) {
    Value value;
    if (!only_value(run, &value)) return false;
    fits = value.is_null() || keep_value(*context.pool, subquery, value);
  } else {
    const Found first = run.next();
    if (first == Found::failed) return false;
    subquery.any_row = first == Found::yes;
  }
  if (!fits) drop_result(subquery);
  subquery.kept = fits ? Kept::result : Kept::too_large;
  return true;
}

// ---- kept values ----

bool test_each(const Subquery &subquery, uint16_t comparison, const Value &tested, Truth *truth) {
  for (int number = 0; number < kept_count(subquery) && *truth != Truth::yes; ++number) {
    Truth meets;
    if (!value_compare(comparison, tested, kept_value(subquery, number), &meets)) return false;
    *truth = either(*truth, meets);
  }
  return true;
}

// The number of the first value that is not below tested, or else of the last.
bool find_place(const Subquery &subquery, const Value &tested, int *place) {
  int low = 0, high = kept_count(subquery) - 1;
  while (low < high) {
    const int middle = low + (high - low) / 2;
    Truth above;
    if (!value_compare(node::greater, tested, kept_value(subquery, middle), &above)) return false;
    if (above == Truth::yes) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  *place = low;
  return true;
}

// Of values in order, one settles what holds for any of them; inequality takes the lowest and the highest.
bool test_ordered(const Subquery &subquery, uint16_t comparison, const Value &tested, Truth *truth) {
  const int last = kept_count(subquery) - 1;
  const bool below = comparison == node::less || comparison == node::less_equal;
  int place = below ? last : 0;
  if (comparison == node::equal && !find_place(subquery, tested, &place)) return false;
  if (!value_compare(comparison, tested, kept_value(subquery, place), truth)) return false;
  if (comparison != node::not_equal || *truth == Truth::yes) return true;
  return value_compare(comparison, tested, kept_value(subquery, last), truth);
}

bool test_kept(const Subquery &subquery, uint16_t comparison, const Value *tested, Truth *truth) {
  if (subquery.use == SubqueryUse::existence) {
    *truth = subquery.any_row ? Truth::yes : Truth::no;
    return true;
  }
  const bool empty = kept_count(subquery) == 0;
  *truth = Truth::unknown;
  if (subquery.use == SubqueryUse::value)
    return empty || value_compare(comparison, *tested, kept_value(subquery, 0), truth);
  *truth = Truth::no;
  const auto test = ordered(subquery.query->columns[0]) ? test_ordered : test_each;
  if (!empty && !test(subquery, comparison, *tested, truth)) return false;
  if (subquery.any_null) *truth = either(*truth, Truth::unknown);
  return true;
}

// ---- what conditions ask for ----

Subquery *subquery_prepare(EvalContext &context, const SubqueryPlace &place, Value *column) {
  Subquery *subquery = memory_pool_new<Subquery>(*context.pool);
  if (subquery == nullptr) return nullptr;
  subquery->use = place.use;
  if (!query_prepare_inside(context, place, &subquery->query)) {
    query_release(subquery->query);
    return nullptr;
  }
  subquery->next = context.scope->subqueries;
  context.scope->subqueries = subquery;
  Query &query = *subquery->query;
  if (place.use == SubqueryUse::existence) return subquery;
  if (query.column_count != 1) return fail_null(status::value_count_columns);
  *column = {};
  column->type = computing_type(query.columns[0].type);
  column->flags = query.columns[0].flags & value_null;
  return subquery;
}

bool subquery_test(EvalContext &context, Subquery &subquery, uint16_t comparison, const Value *tested,
                   Truth *truth) {
  // A group is no row on which it could depend.
  if (context.group != nullptr && !keepable(subquery)) return fail(status::unsupported);
  if (keepable(subquery) && subquery.kept == Kept::nothing && !keep_result(context, subquery)) return false;
  return subquery.kept == Kept::result ? test_kept(subquery, comparison, tested, truth)
                                       : test_running(context, subquery, comparison, tested, truth);
}

constexpr SubqueryOps subquery_ops = {subquery_prepare, subquery_test};

template <class Matches>
bool any_table(const QueryScope &scope, Matches matches) {
  for (const Subquery *each = scope.subqueries; each != nullptr; each = each->next) {
    for (const TableAccess *access = each->query->tables; access != nullptr; access = access->next)
      if (matches(*access)) return true;
    if (any_table(each->query->scope, matches)) return true;
  }
  return false;
}

}  // namespace

QueryScope scope_of(Catalog &catalog, QueryScope *outer) {
  QueryScope scope{};
  scope.ops = &subquery_ops;
  scope.catalog = &catalog;
  scope.outer = outer;
  scope.nesting = outer == nullptr ? 0 : outer->nesting + 1;
  scope.nearest = -1;
  return scope;
}

void subqueries_forget(QueryScope &scope) {
  for (Subquery *each = scope.subqueries; each != nullptr; each = each->next)
    if (each->query->scope.nearest >= 0) drop_result(*each);
}

void subqueries_release(QueryScope *scope) {
  for (Subquery *each = scope->subqueries; each != nullptr; each = each->next) {
    drop_result(*each);
    query_release(each->query);
  }
  scope->subqueries = nullptr;
}

bool subqueries_outdated(const QueryScope &scope) {
  return any_table(scope, access_outdated);
}

bool subqueries_read(const QueryScope &scope, const Table &table) {
  return any_table(scope,
                   [&table](const TableAccess &access) { return access.handle->table->id == table.id; });
}

}  // namespace tovik
