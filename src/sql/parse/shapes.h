// The shapes of the statement tree: which part of a statement, clause or operator stands in which field of
// its node. A shape names the parts; `of` reads them from a node, `make` builds a node that holds them, null
// with 52002 when the pool is exhausted. Only here does a part meet first, second or third: everyone else
// asks for it by name. A part that a statement leaves out is null. Shapes are read at each use and cost
// nothing: they hold no more than the fields that are asked for.
#pragma once

#include <utility>

#include "sql/parse/tree.h"

namespace tovik {

inline Node *node_with_qual(Node *made, uint16_t qual) {
  if (made != nullptr) made->qual = qual;
  return made;
}

// --- Names and lists

// A column: its name, or the names of its table and itself.
struct ColumnNameTree {
  const char *table, *column;

  static ColumnNameTree of(const Node &node) {
    if (node.kind == node::qualified_column) return {node_name(node), node_second_name(node)};
    return {nullptr, node_name(node)};
  }
  Node *make(MemoryPool &pool) const {
    if (table == nullptr) return node_text(pool, node::column_name, column);
    return node_text(pool, node::qualified_column, table, column);
  }
};

struct FileTree {
  const char *name;
  uint16_t mode;  // file_into ..

  static FileTree of(const Node &node) { return {node_name(node), node.qual}; }
  Node *make(MemoryPool &pool) const { return node_with_qual(node_text(pool, node::file_name, name), mode); }
};

// What is nothing but a list: INFO, TEST_STMT, values, assignments, the clauses of ALTER.
struct ListTree {
  Node *items;

  static ListTree of(const Node &node) { return {node.second}; }
  Node *make(MemoryPool &pool, uint16_t kind) const { return node_new(pool, kind, nullptr, items); }
};

// --- Operators

// Arithmetic, CONCAT, date parts, comparisons, AND, OR, NOT. An operator of one operand has it on the right.
struct OperatorTree {
  Node *left, *right;

  static OperatorTree of(const Node &node) { return {node.first, node.second}; }
  Node *make(MemoryPool &pool, uint16_t kind) const { return node_new(pool, kind, left, right); }

  bool is_unary() const { return left == nullptr; }
  Node *leading() const { return is_unary() ? right : left; }

  // Where the left operand goes, or the only one, of a node that was made before it.
  static Node **leading_place(Node &made, bool unary) { return unary ? &made.second : &made.first; }
};

inline void operator_swap(Node &node) {
  std::swap(node.first, node.second);
}

// Operators in a chain of leading operands carry the chain's links: the top one that of the lowest, every
// other that of the one above it.
inline Node *spine_lowest(const Node &top) {
  return top.third;
}
inline Node *spine_above(const Node &below) {
  return below.third;
}
inline void spine_link(Node &node, Node *linked) {
  node.third = linked;
}

// date + amount UNIT, date - amount UNIT: an operator with a unit.
struct DateTree {
  Node *date, *amount;
  uint16_t unit;

  static DateTree of(const Node &node) { return {node.first, node.second, node.qual}; }
  Node *make(MemoryPool &pool, uint16_t kind) const {
    return node_with_qual(node_new(pool, kind, date, amount), unit);
  }
};

// LIKE and the kinds of MATCH: an operator that NOT may stand before.
struct MatchTree {
  Node *text, *pattern;
  bool negated;

  static MatchTree of(const Node &node) { return {node.first, node.second, node.qual != 0}; }
  Node *make(MemoryPool &pool, uint16_t kind) const {
    return node_with_qual(node_new(pool, kind, text, pattern), negated ? 1 : 0);
  }
};

struct IsNullTree {
  Node *operand;
  bool negated;

  static IsNullTree of(const Node &node) { return {node.first, node.qual != 0}; }
  Node *make(MemoryPool &pool) const {
    Node *null = node_new(pool, value_kind::null);
    if (null == nullptr) return nullptr;
    return node_with_qual(node_new(pool, node::is_null, operand, null), negated ? 1 : 0);
  }
};

// tested IN (value items), tested IN (query).
struct InTree {
  Node *tested, *items, *subquery;
  bool negated;

  static InTree of(const Node &node) { return {node.first, node.third, node.second, node.qual != 0}; }
  Node *make(MemoryPool &pool) const {
    return node_with_qual(node_new(pool, node::in, tested, subquery, items), negated ? 1 : 0);
  }
};

// Two comparisons, of the same tested expression when the grammar builds them.
struct BetweenTree {
  Node *lower, *upper;
  bool negated;

  static BetweenTree of(const Node &node) { return {node.first, node.second, node.qual != 0}; }
  Node *make(MemoryPool &pool) const {
    return node_with_qual(node_new(pool, node::between, lower, upper), negated ? 1 : 0);
  }
};

struct CallTree {
  uint16_t function;
  bool distinct = false;      // of the arguments of an aggregate
  Node *arguments = nullptr;  // value items

  static CallTree of(const Node &node) { return {node.qual, (node.flags & 1) != 0, node.third}; }
  Node *make(MemoryPool &pool) const {
    Node *made = node_with_qual(node_integers(pool, node::function_call, 0), function);
    if (made == nullptr) return nullptr;
    made->flags = distinct ? 1 : 0;
    made->third = arguments;
    made->value->type = leaf_function;
    return made;
  }
};

// A query inside a condition. any: SOME too; none: its only value, or the list of IN.
enum class Quantifier : uint32_t { none, any, all };

struct SubqueryTree {
  Node *query;
  Quantifier quantifier;

  static SubqueryTree of(const Node &node) {
    if (node.qual != 0) return {node.third, Quantifier::all};
    return {node.third, node.flags != 0 ? Quantifier::any : Quantifier::none};
  }
  Node *make(MemoryPool &pool) const {
    Node *made = node_new(pool, node::subquery, nullptr, nullptr, query);
    if (made != nullptr) made->flags = quantifier == Quantifier::any ? 1 : 0;
    return node_with_qual(made, quantifier == Quantifier::all ? 1 : 0);
  }
};

// The operands of whatever stands in an expression or condition.
struct OperandsTree {
  Node *leading, *following;
  Node *items;    // value items
  bool subquery;  // there is a query among them

  static OperandsTree of(const Node &node) {
    switch (node.kind) {
      case node::function_call:
        return {nullptr, nullptr, CallTree::of(node).arguments, false};
      case node::in:
        return {InTree::of(node).tested, nullptr, InTree::of(node).items,
                InTree::of(node).subquery != nullptr};
      case node::query:
      case node::subquery:
        return {nullptr, nullptr, nullptr, true};
      default:
        break;
    }
    const OperatorTree tree = OperatorTree::of(node);
    return {tree.leading(), tree.is_unary() ? nullptr : tree.right, nullptr, false};
  }
};

// What the check pass leaves in such a node, and in a query that stands as a condition (EXISTS): the query in
// its prepared form. False when there is no room.
[[nodiscard]] inline bool node_keep_subquery(MemoryPool &pool, Node &node, Subquery *subquery) {
  node.value = memory_pool_new<Value>(pool);
  if (node.value != nullptr) node.value->subquery = subquery;
  return node.value != nullptr;
}
inline Subquery &node_subquery(const Node &node) {
  return *node.value->subquery;
}

// --- Items of lists

// Of VALUES, of IN and of the arguments of a call.
struct ValueItemTree {
  Node *value;

  static ValueItemTree of(const Node &item) { return {item.second}; }
  Node *make(MemoryPool &pool) const { return node_new(pool, node::value_item, nullptr, value); }
};

// column = value or option = value, in an item of that kind.
struct AssignmentTree {
  const char *name;
  Node *value;

  static AssignmentTree of(const Node &item) {
    const Node &pair = *item.second;
    return {node_name(*pair.first), pair.second};
  }
  Node *make(MemoryPool &pool, uint16_t item_kind) const {
    const bool option = item_kind == node::option_item;
    Node *named = node_text(pool, option ? node::option_name : node::column_name, name);
    if (named == nullptr) return nullptr;
    Node *pair = node_new(pool, node::assignment, named, value);
    return pair == nullptr ? nullptr : node_new(pool, item_kind, nullptr, pair);
  }
};

struct SelectItemTree {
  Node *expression, *alias;

  static SelectItemTree of(const Node &item) { return {item.third, item.second}; }
  Node *make(MemoryPool &pool) const { return node_new(pool, node::select_item, nullptr, alias, expression); }
};

struct OrderItemTree {
  Node *column;
  bool descending;

  static OrderItemTree of(const Node &item) { return {item.second, item.qual != 0}; }
  Node *make(MemoryPool &pool) const {
    return node_with_qual(node_new(pool, node::order_item, nullptr, column), descending ? 1 : 0);
  }
};

// A column definition in its list; in ALTER with the column before which it comes.
struct ColumnItemTree {
  Node *definition;
  const char *before;

  static ColumnItemTree of(const Node &item) {
    return {item.second, item.third == nullptr ? nullptr : node_name(*item.third->second)};
  }
  Node *make(MemoryPool &pool) const {
    Node *made = node_new(pool, node::column_item, nullptr, definition);
    if (made == nullptr || before == nullptr) return made;
    Node *name = node_text(pool, node::column_name, before);
    if (name == nullptr) return nullptr;
    made->third = node_new(pool, node::before, nullptr, name);
    return made->third == nullptr ? nullptr : made;
  }
};

struct ColumnDefinitionTree {
  const char *name;
  Node *type = nullptr;
  bool not_null = false, auto_increment = false;

  static ColumnDefinitionTree of(const Node &node) {
    return {node_name(node), node.second, node.qual != 0, node.flags != 0};
  }
  Node *make(MemoryPool &pool) const {
    Node *made = node_with_qual(node_text(pool, node::column_name, name), not_null ? 1 : 0);
    if (made == nullptr) return nullptr;
    made->flags = auto_increment ? 1 : 0;
    made->second = type;
    return made;
  }
};

struct ColumnTypeTree {
  int64_t code;
  Node *parameters;  // a leaf of up to three integers

  static ColumnTypeTree of(const Node &node) { return {node.value->integers[0], node.second}; }
  Node *make(MemoryPool &pool) const {
    Node *made = node_integers(pool, node::column_type, code);
    if (made != nullptr) made->second = parameters;
    return made;
  }
};

// --- Clauses

struct WhereTree {
  Node *condition;

  static WhereTree of(const Node *where) { return {where == nullptr ? nullptr : where->first}; }
  Node *make(MemoryPool &pool) const { return node_new(pool, node::where, condition); }
};

// GROUP BY, HAVING or both.
struct GroupByTree {
  Node *columns;    // null without GROUP BY
  Node *condition;  // null without HAVING

  static GroupByTree of(const Node &group) { return {group.first, group.second}; }
  Node *make(MemoryPool &pool) const { return node_new(pool, node::group_by, columns, condition); }
};

struct QueryTree {
  Node *items;  // null for all columns
  bool distinct;
  Node *tables, *where;
  Node *group;  // null without GROUP BY and HAVING

  static QueryTree of(const Node &query) {
    const Node &list = *query.second, &from = *list.second;
    return {list.first, list.qual != 0, from.first, from.second, from.third};
  }
  Node *make(MemoryPool &pool) const {
    Node *from = node_new(pool, node::from, tables, where, group);
    if (from == nullptr) return nullptr;
    Node *list = node_with_qual(node_new(pool, node::select_list, items, from), distinct ? 1 : 0);
    return list == nullptr ? nullptr : node_new(pool, node::query, nullptr, list);
  }
};

// What INSERT and UPDATE take values from. The values are values, a list of assignments or a file.
struct SourceTree {
  Node *columns;  // the columns that values are for, when they are named
  Node *values;

  static SourceTree of(Node &source) {
    if (source.kind == node::column_name) return {&source, source.second};
    return {nullptr, &source};
  }
  bool is_file() const { return values->kind == node::file_name; }
  Node *make() const {
    if (columns == nullptr) return values;
    columns->second = values;
    return columns;
  }
};

// UNIQUE or two integers; TIMESERIES stands around it.
struct IndexKindTree {
  const Node *base;
  bool timeseries;

  static IndexKindTree of(const Node &kind) {
    if (kind.kind == node::index_timeseries) return {kind.first, true};
    return {&kind, false};
  }
  static Node *make_timeseries(MemoryPool &pool, Node *base) {
    return node_new(pool, node::index_timeseries, base);
  }
};

// --- Statements

struct InsertTree {
  Node *table, *source;

  static InsertTree of(const Node &root) { return {root.first, root.second}; }
  Node *make(MemoryPool &pool) const { return node_new(pool, node::insert, table, source); }
};

struct UpdateTree {
  Node *table, *source, *where;

  static UpdateTree of(const Node &root) { return {root.first, root.second, root.third}; }
  Node *make(MemoryPool &pool) const { return node_new(pool, node::update, table, source, where); }
};

struct DeleteTree {
  Node *table, *where;

  static DeleteTree of(const Node &root) { return {root.first, root.second}; }
  Node *make(MemoryPool &pool) const { return node_new(pool, node::delete_rows, table, where); }
};

struct SelectTree {
  Node *query;
  Node *order;  // items
  Node *file;

  static SelectTree of(const Node &root) {
    const Node *by = root.second;
    if (by != nullptr && by->kind == node::order_by) return {root.first, by->first, by->second};
    return {root.first, nullptr, root.second};
  }
  Node *make(MemoryPool &pool) const {
    if (order == nullptr) return node_new(pool, node::select, query, file);
    Node *by = node_new(pool, node::order_by, order, file);
    return by == nullptr ? nullptr : node_new(pool, node::select, query, by);
  }
};

struct CreateTableTree {
  Node *table, *columns, *options;

  static CreateTableTree of(const Node &root) { return {root.first, root.second, root.third}; }
  Node *make(MemoryPool &pool) const { return node_new(pool, node::create_table, table, columns, options); }
};

struct CreateIndexTree {
  Node *kind;
  const char *name;
  Node *table, *columns;

  static CreateIndexTree of(const Node &root) {
    const Node &index = *root.second;
    return {root.first, node_name(index), index.first, index.first->first};
  }
  Node *make(MemoryPool &pool) const {
    Node *index = node_text(pool, node::index_name, name);
    if (index == nullptr) return nullptr;
    index->first = table;
    table->first = columns;
    return node_new(pool, node::create_index, kind, index);
  }
};

// DROP TABLE, DROP INDEX and EMPTY: the name of what goes. ECHO: its literal.
struct TargetTree {
  Node *target;

  static TargetTree of(const Node &root) { return {root.second}; }
  Node *make(MemoryPool &pool, uint16_t kind) const { return node_new(pool, kind, nullptr, target); }
};

struct DescribeTree {
  Node *table;  // null for the database
  bool all;

  static DescribeTree of(const Node &root) { return {root.second, root.qual != 0}; }
  Node *make(MemoryPool &pool, uint16_t kind) const {
    return node_with_qual(node_new(pool, kind, nullptr, table), all ? 1 : 0);
  }
};

struct RenameTree {
  Node *old_name, *new_name;

  static RenameTree of(const Node &root) { return {root.first, root.second}; }
  Node *make(MemoryPool &pool, uint16_t kind) const { return node_new(pool, kind, old_name, new_name); }
};

struct AlterTree {
  Node *table;
  Node *actions;  // each a list

  static AlterTree of(const Node &root) { return {root.first, root.second}; }
  Node *make(MemoryPool &pool) const { return node_new(pool, node::alter, table, actions); }
};

struct SetTree {
  Node *name, *value;

  static SetTree of(const Node &root) { return {root.first, root.second}; }
  Node *make(MemoryPool &pool) const { return node_new(pool, node::set, name, value); }
};

}  // namespace tovik
