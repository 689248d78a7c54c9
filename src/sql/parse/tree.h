// The statement tree: every node has the same fields; what they hold depends on its kind and is told by the
// shapes (shapes.h). The items of a list chain through `first`. Nodes and texts live in the statement's
// memory pool and go with it.
#pragma once

#include "data/value/value.h"
#include "frame/memory_pool.h"

namespace tovik {

struct Node {
  uint16_t kind;
  uint16_t qual;   // a NOT or DISTINCT flag, a direction, a unit, a function number, a file mode
  uint32_t flags;  // AUTO_INCREMENT of a column definition, DISTINCT of a function's arguments
  Node *first, *second, *third;
  Value *value;  // leaf, or null
};

namespace node {

// Operators of expressions.
inline constexpr uint16_t negation = 2, add = 3, subtract = 4, multiply = 5, divide = 6, remainder = 7;
inline constexpr uint16_t concat = 301;
inline constexpr uint16_t date_part_first = 500, date_part_last = 506;  // yearof .. microsecondof
inline constexpr uint16_t date_add = 515, date_subtract = 516;          // qual: unit code

// Conditions.
inline constexpr uint16_t equal = 101, not_equal = 102, less = 103, greater = 104, less_equal = 105,
                          greater_equal = 106;
inline constexpr uint16_t match = 107, smatch = 112, not_match = 113, not_smatch = 114, like = 115;
inline constexpr uint16_t in = 108;
inline constexpr uint16_t is_null = 109;
inline constexpr uint16_t between = 110;
inline constexpr uint16_t logical_and = 400, logical_or = 401, logical_not = 402;
inline constexpr uint16_t always_true = 600;  // put by the planner for what an index access guarantees

// Assignments and options.
inline constexpr uint16_t assignment = 300;

// Leaves: value_kind::null .. exponent_text.

// Statements (roots).
inline constexpr uint16_t statement_first = 2000, statement_last = 2021;
inline constexpr uint16_t alter = 2000, begin = 2001, commit = 2002, create_index = 2003, create_table = 2004,
                          delete_rows = 2005, describe_db = 2006, describe_table = 2007, drop_index = 2008,
                          drop_table = 2009, echo = 2010, empty = 2011, info = 2012, insert = 2013,
                          rename_attr = 2014, rename_table = 2015, rollback = 2016, select = 2017, set = 2018,
                          show = 2019, test_stmt = 2020, update = 2021;

// Clauses.
inline constexpr uint16_t info_item = 2101, alias = 2102, column_name = 2103, index_name = 2104,
                          parameter_name = 2105, from = 2106, select_list = 2107, where = 2108,
                          subquery = 2110, order_by = 2111, order_item = 2112, select_item = 2113,
                          qualified_column = 2114, table_name = 2115, values = 2116, assignment_item = 2117,
                          assignment_list = 2118, index_timeseries = 2119, index_unique = 2120,
                          integers = 2121, column_item = 2122, column_type = 2123, alter_add = 2124,
                          before = 2125, alter_change = 2126, alter_delete = 2127, value_item = 2128,
                          function_call = 2129, file_name = 2130, query = 2131, option_name = 2132,
                          option_item = 2133, alter_set = 2134, group_by = 2135;

}  // namespace node

inline constexpr TypeCode leaf_function = 0x2000;  // leaf type of a function call

// File-name node qualifiers.
inline constexpr uint16_t file_into = 1, file_dump_into = 2, file_load = 3, file_direct_from = 4;

// Lists.
inline Node *node_next(const Node &item) {
  return item.first;
}
int node_count(const Node *list);

// for (Node *item : chain(list)): the items of a list, which may be null.
template <class AnyNode>
struct Chain {
  AnyNode *head;

  struct Iterator {
    AnyNode *at;
    AnyNode *operator*() const { return at; }
    Iterator &operator++() {
      at = node_next(*at);
      return *this;
    }
    bool operator!=(const Iterator &other) const { return at != other.at; }
  };
  Iterator begin() const { return {head}; }
  Iterator end() const { return {nullptr}; }
};

template <class AnyNode>
Chain<AnyNode> chain(AnyNode *list) {
  return {list};
}

// A list under construction is held by its last item, which points back at the head; list_close turns it into
// a chain and gives the head. An item that could not be made is null, and so is the list then.
Node *list_start(Node *item);
Node *list_append(Node *last, Node *item);
Node *list_join(Node *last, Node *other_last);
Node *list_close(Node *last);

// Node makers: null with 52002 when the pool is exhausted. Children may be null; which is which, shapes tell.
Node *node_new(MemoryPool &pool, uint16_t kind, Node *first = nullptr, Node *second = nullptr,
               Node *third = nullptr);
Node *node_text(MemoryPool &pool, uint16_t kind, const char *text, const char *second_text = nullptr);
Node *node_integers(MemoryPool &pool, uint16_t kind, int64_t a, int64_t b = 0, int64_t c = 0);

inline const char *node_name(const Node &node) {
  return node.value->texts[0];
}
inline const char *node_second_name(const Node &node) {
  return node.value->texts[1];
}

}  // namespace tovik
