// What the passes of the evaluator share.
#pragma once

#include "sql/evaluate/evaluator.h"
#include "sql/parse/shapes.h"

namespace tovik {

// Set by the check pass in the flags of an AND, OR or IN: once its result is settled, the operands that are
// left need not be evaluated. They hold no aggregate call, and for AND and OR nothing that can fail but for
// lack of memory or a damaged database.
inline constexpr uint32_t node_stops_early = 0x10000;

// Set by the check pass in the flags of a whole condition nothing of which can fail but for lack of memory or
// a damaged database.
inline constexpr uint32_t node_cannot_fail = 0x20000;

// The classes of which operands of a comparison must have one in common.
inline bool type_same_class(TypeCode a, TypeCode b) {
  if (type_numeric(a)) return type_numeric(b);
  return (a & b & (TYPE_CHARACTER | TYPE_BINARY | TYPE_DATETIME)) != 0;
}

inline bool node_is_arithmetic(uint16_t kind) {
  return kind >= node::add && kind <= node::remainder;
}

inline bool node_is_comparison(uint16_t kind) {
  return kind >= node::equal && kind <= node::greater_equal;
}

// Of equal, not_equal, less, greater, less_equal, greater_equal: a bit for each order that meets it, which
// are less, equal, greater.
inline constexpr uint8_t orders_met[] = {0b010, 0b101, 0b001, 0b100, 0b011, 0b110};

inline bool node_is_matching(uint16_t kind) {
  return kind == node::match || (kind >= node::smatch && kind <= node::like);
}

inline bool node_is_date_part(uint16_t kind) {
  return kind >= node::date_part_first && kind <= node::date_part_last;
}

// Spines. The leading operand of an operator - its left, or its only one - is often an operator again: a
// chain of AND or +, a row of signs. The walks go over such a spine in a loop, so that only what stands to
// the right of an operator, or in a call, takes stack. Its nodes are of one family; the check pass links
// them: spine_lowest of the top node, spine_above of every other.
enum class Spine { none, conjunction, truth, text, value };

inline Spine spine_of(uint16_t kind) {
  if (kind == node::concat) return Spine::text;
  if (kind == node::logical_and) return Spine::conjunction;  // whose parts may be evaluated apart
  if (kind == node::logical_or || kind == node::logical_not) return Spine::truth;
  const bool value = kind == node::negation || node_is_arithmetic(kind) || node_is_date_part(kind) ||
                     kind == node::date_add || kind == node::date_subtract;
  return value ? Spine::value : Spine::none;
}

// What is pushed while it lives leaves the stack again at its end.
class StackScope {
 public:
  explicit StackScope(ValueStack &stack) : stack_(stack), base_(stack.values.size()) {}
  ~StackScope() { (void)stack_.values.resize(base_); }
  StackScope(const StackScope &) = delete;
  StackScope &operator=(const StackScope &) = delete;

  const Value *values() const { return stack_.values.data() + base_; }  // until the next push

 private:
  ValueStack &stack_;
  int base_;
};

// A column of the query to which the expression belongs, not of one around it.
inline bool own_column(const EvalContext &context, const ColumnRef &column) {
  return access_place(context.tables, column.row) >= 0;
}

// The label of a checked expression, in the pool; null with 50012 or 50013.
const char *expr_label(MemoryPool &pool, const Node *expression);

}  // namespace tovik
