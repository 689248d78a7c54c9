// Expressions parsed, checked and evaluated from their text, for the tests of the evaluator.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "data/value/datetime.h"
#include "frame/error.h"
#include "sql/evaluate/evaluator.h"
#include "sql/parse/parser.h"

namespace tovik::test {

inline std::string formatted(const char *format, double real) {
  char text[64];
  snprintf(text, sizeof text, format, real);
  return text;
}

// A value as SQL would write it; a double always has a point or an exponent.
inline std::string text_of(const Value &value) {
  if (value.is_null()) return "NULL";
  if (value.kind == value_kind::truth) {
    const Truth truth = static_cast<Truth>(value.integer);
    return truth == Truth::yes ? "true" : truth == Truth::no ? "false" : "unknown";
  }
  if ((value.type & TYPE_INTEGER) != 0) return std::to_string(value.integer);
  if ((value.type & TYPE_CHARACTER) != 0) {
    EXPECT_EQ('\0', value.text.text[value.text.length]);
    return "'" + std::string(value.text.text, static_cast<size_t>(value.text.length)) + "'";
  }
  if ((value.type & TYPE_DATETIME) != 0) {
    char text[24];
    EXPECT_TRUE(format_datetime(type::microtimestamp, value.datetime, text));
    return text;
  }
  const std::string text = formatted("%.12g", value.real);
  return text.find_first_of(".en") == std::string::npos ? text + ".0" : text;
}

struct Case {
  const char *expression;
  const char *result;
};

// The environment is started by the fixture that is derived from this one.
class ExpressionTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(nullptr, pool_ = memory_pool_create(16 << 20)); }
  void TearDown() override {
    memory_pool_destroy(pool_);
    err_clear();
  }

  EvalContext context() { return {&stack_, pool_, nullptr}; }

  // A failure as it shows up: its first status, behind "!" from the check and behind "?" from the evaluation.
  static std::string failure(char mark) {
    EXPECT_NE(0, error_record().count);
    return mark + std::to_string(error_record().entries[0].code);
  }

  // The tree of an expression, or of a condition; null when it cannot be parsed.
  Node *parse_item(const std::string &expression) {
    pool_->used = 0;
    Node *root = nullptr;
    err_clear();
    if (!parse(*pool_, ("TEST_STMT " + expression).c_str(), &root)) {
      err_clear();
      if (!parse(*pool_, ("TEST_STMT " + expression + " AS x").c_str(), &root)) return nullptr;
    }
    return root->second->third;
  }

  std::string result(const std::string &expression) {
    Node *item = parse_item(expression);
    if (item == nullptr) return "no statement";
    EvalContext evaluation = context();
    Value checked, value, again;
    if (!expr_check(evaluation, item, CheckLabels::none, &checked)) return failure('!');
    if (!expr_evaluate(evaluation, item, EvalMode::row, &value)) return failure('?');
    EXPECT_TRUE(stack_.values.empty());
    const bool as_checked =
        checked.is_null() ? value.is_null() : value.is_null() || value.type == checked.type;
    EXPECT_TRUE(as_checked) << expression << ": type " << checked.type << " became " << value.type;
    const std::string text = text_of(value);
    EXPECT_TRUE(expr_evaluate(evaluation, item, EvalMode::row, &again));
    EXPECT_EQ(text, text_of(again)) << "evaluated again: " << expression;
    return text;
  }

  std::string label(const std::string &expression) {
    EvalContext evaluation = context();
    Value checked;
    EXPECT_TRUE(expr_check(evaluation, parse_item(expression), CheckLabels::build, &checked));
    return checked.label;
  }

  // One or more expressions a case, with "; " between them.
  void expect(std::initializer_list<Case> cases) {
    for (const auto &[expressions, expected] : cases) {
      std::string all, rest = expressions;
      for (size_t at; (at = rest.find("; ")) != std::string::npos; rest.erase(0, at + 2))
        all += result(rest.substr(0, at)) + "; ";
      EXPECT_EQ(expected, all + result(rest)) << expressions;
    }
  }

  ValueStack stack_;
  MemoryPool *pool_ = nullptr;
};

}  // namespace tovik::test
