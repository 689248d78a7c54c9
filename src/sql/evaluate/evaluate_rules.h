// What the sources of the evaluation pass share. evaluate and evaluate_truth only hand a node on to the rule
// of its kind; the rules go down to the operands by them, and leave what they do with operands' values to
// functions that go down no further. Each of the three stands in a source of its own, so that the compiler
// keeps their frames apart: a level of an expression takes the stack of one rule, which holds its operands
// and no buffers.
#pragma once

#include "sql/evaluate/expr_internal.h"

namespace tovik {

struct Evaluation {
  EvalContext &context;
};

bool evaluate(Evaluation &evaluation, const Node *node, Value *result);
bool evaluate_truth(Evaluation &evaluation, const Node *node, Truth *truth);

// --- Rules of values

bool evaluate_spine(Evaluation &evaluation, const Node *top, Value *result);
bool evaluate_concatenation(Evaluation &evaluation, const Node *top, Value *result);
bool evaluate_call(Evaluation &evaluation, const Node *node, Value *result);
bool evaluate_condition(Evaluation &evaluation, const Node *node, Value *result);

// --- Rules of conditions

bool evaluate_comparison(Evaluation &evaluation, const Node *node, Truth *truth);
bool evaluate_matching(Evaluation &evaluation, const Node *node, Truth *truth);
bool evaluate_in(Evaluation &evaluation, const Node *node, Truth *truth);
bool evaluate_is_null(Evaluation &evaluation, const Node *node, Truth *truth);
bool evaluate_between(Evaluation &evaluation, const Node *node, Truth *truth);
bool evaluate_logical(Evaluation &evaluation, const Node *top, Truth *truth);

// --- Rules of conditions that test a subquery

bool evaluate_subquery_comparison(Evaluation &evaluation, const Node *node, Truth *truth);
bool evaluate_in_subquery(Evaluation &evaluation, const Node *node, Truth *truth);
bool evaluate_exists(Evaluation &evaluation, const Node *node, Truth *truth);

inline Truth opposite(Truth truth) {
  return static_cast<Truth>(truth == Truth::unknown ? -1 : 1 - static_cast<int>(truth));
}

// --- Operands' values

inline constexpr Value null_value{value_kind::null, 0, 0, value_null, {}, nullptr};

// The value of a node: in the tree when it is a literal, else computed into space. Null on failure.
inline const Value *operand_of(Evaluation &evaluation, const Node *node, Value *space) {
  switch (node->kind) {
    case value_kind::literal:
    case value_kind::string:
    case value_kind::date_literal:
      return node->value;
    case value_kind::null:
      return &null_value;
    default:
      return evaluate(evaluation, node, space) ? space : nullptr;
  }
}

// An operand and the space of its value.
class Operand {
 public:
  Operand(Evaluation &evaluation, const Node *node) : value_(operand_of(evaluation, node, &space_)) {}
  Operand(const Operand &) = delete;
  Operand &operator=(const Operand &) = delete;

  bool failed() const { return value_ == nullptr; }
  const Value &operator*() const { return *value_; }

 private:
  Value space_;
  const Value *value_;
};

// What an operator makes of its operands' values. result may be left itself.

inline void set_null(Value *result, TypeCode type) {
  *result = null_value;
  result->kind = value_kind::computed;
  result->type = type;
}

inline void set_computed(Value *result, TypeCode type, uint16_t flags) {
  result->kind = value_kind::computed;
  result->type = type;
  result->declared = 0;
  result->flags = flags;
  result->label = nullptr;
}

inline void set_number(Value *result, int64_t integer, uint16_t flags) {
  set_computed(result, type::bigint, flags);
  result->integer = integer;
}

inline void set_number(Value *result, double real, uint16_t flags) {
  set_computed(result, type::float64, flags);
  result->real = real;
}

// An operator of the value family; right of one with one operand is that operand.
bool compute(const Node &node, const Value &left, const Value &right, Value *result);

// The texts of the values behind each other, NULLs left out.
bool join_texts(MemoryPool &pool, const Value *values, int count, Value *result);

// By LIKE or a kind of MATCH, neither value being NULL.
bool match_texts(uint16_t kind, const Value &text, const Value &pattern, bool *matches);

}  // namespace tovik
