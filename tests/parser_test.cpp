#include "sql/parse/parser.h"

#include <gtest/gtest.h>

#include <string>

#include "frame/env.h"
#include "frame/error.h"

using namespace tovik;

namespace {

std::string leaf(const Node &node) {
  const Value &value = *node.value;
  if ((value.type & TYPE_INTEGER) != 0)
    return std::to_string(value.integers[0]) + "," + std::to_string(value.integers[1]) + "," +
           std::to_string(value.integers[2]);
  std::string text = value.texts[0];
  if (value.texts[1] != nullptr)
    text += std::string(node.kind == node::table_name ? " " : ".") + value.texts[1];
  return text;
}

// A tree as text: column names and literals as they are written, any other node as its kind with its
// qualifier (:n), flags (!n), leaf (<...>) and children (1, 2 and 3 for first, second and third).
std::string dump(const Node *node) {
  if (node == nullptr) return "-";
  std::string text;
  switch (node->kind) {
    case value_kind::null:
      return "NULL";
    case value_kind::string:
      return "'" + leaf(*node) + "'";
    case value_kind::integer_text:
    case value_kind::decimal_text:
    case value_kind::exponent_text:
      return leaf(*node);
    case node::column_name:
    case node::qualified_column:
      text = leaf(*node);
      break;
    default:
      text = std::to_string(node->kind);
      if (node->value != nullptr && node->value->type != leaf_function) text += "<" + leaf(*node) + ">";
  }
  if (node->qual != 0) text += ":" + std::to_string(node->qual);
  if (node->flags != 0) text += "!" + std::to_string(node->flags);
  std::string children;
  const Node *const each[] = {node->first, node->second, node->third};
  for (int i = 0; i < 3; ++i)
    if (each[i] != nullptr) children += (children.empty() ? "" : " ") + std::to_string(i + 1) + dump(each[i]);
  return children.empty() ? text : text + "(" + children + ")";
}

const std::string item_prefix = "TEST_STMT ", condition_prefix = "SELECT FROM t WHERE ";

class ParserTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env_start(nullptr);
    resize(1 << 22);
  }
  void TearDown() override {
    memory_pool_destroy(pool_);
    err_clear();
    env_release();
  }
  void resize(int size) {
    memory_pool_destroy(pool_);
    pool_ = memory_pool_create(size);
    ASSERT_NE(nullptr, pool_);
  }

  // The root of a statement; null with the error record filled when the text is no statement.
  Node *root_of(const std::string &text) {
    err_clear();
    memory_pool_empty(*pool_);
    Node *root = nullptr;
    return parse(*pool_, text.c_str(), &root) ? root : nullptr;
  }

  // The tree behind a prefix; the root's when there is none.
  std::string tree(const std::string &prefix, const std::string &text) {
    const Node *root = root_of(prefix + text);
    if (error_record().count != 0) return "!" + std::to_string(error_record().last_code);
    if (prefix == item_prefix) return dump(root->second->third);
    return dump(prefix == condition_prefix ? condition_of(root) : root);
  }
  void expect(const std::string &prefix, std::initializer_list<std::pair<const char *, const char *>> cases) {
    for (const auto &[text, expected] : cases) EXPECT_EQ(expected, tree(prefix, text)) << text;
  }
  static const Node *condition_of(const Node *root) { return root->first->second->second->second->first; }

  MemoryPool *pool_ = nullptr;
};

}  // namespace

TEST_F(ParserTest, Statements) {
  expect("", {
                 {"INSERT INTO t VALUES 1, (2, 3)", "2013(12115<t> 22116(22128(12128(12128(23) 22) 21)))"},
                 {"SELECT a PRINT 'x', t.c > 1 z FROM t u, v WHERE a = 1",
                  "2017(12131(22107(12113(12113(22102<z> 3104(1t.c 21)) 22102<x> 3a)"
                  " 22106(12115<t u>(12115<v>) 22108(1101(1a 21))))))"},
                 {"CREATE t (a int NOT NULL AUTO_INCREMENT, c text(1,2,3,4)) init = 5, step TO -1, x = 's'",
                  "2004(12115<t> 22122(12122(2c(22123<4622,0,0>(22121<1,2,3>))) 2a:1!1(22123<67,0,0>)) "
                  "32133(12133(12133(2300(12132<x> 2's')) 2300(12132<step> 21002<-1,0,0>)) "
                  "2300(12132<init> 21002<5,0,0>)))"},
                 {"ALTER t ADD a int BEFORE b, c DELETE d, t.e",
                  "2000(12115<t> 22124(12127(2d(1t.e)) 22122(12122(2c) 2a(22123<67,0,0>) 32125(2b))))"},
             });
}

TEST_F(ParserTest, ConditionsAndExpressions) {
  expect(condition_prefix,
         {
             {"a ! MATCH 'x*' OR a NOT !SMATCH b", "401(1113(1a 2'x*') 2114:1(1a 2b))"},
             {"a NOT IN ((1, NULL))", "108:1(1a 32128(12128(2NULL) 21))"},
             {"x NOT BETWEEN 1 EXCLUSIVE TO 5", "110:1(1104(1x 21) 2105(1x 25))"},
             {"a = 1 OR b = 2 AND NOT c = 3", "401(1101(1a 21) 2400(1101(1b 22) 2402(2101(1c 23))))"},
             {"a > ALL (SELECT b FROM u)", "104(1a 22110:1(32131(22107(12113(3b) 22106(12115<u>)))))"},
             {"a = b = c", "!171001"},
         });
  // The tested expression stands under both comparisons of a BETWEEN.
  const Node *between = condition_of(root_of("SELECT FROM t WHERE a + 1 BETWEEN 1 AND 2"));
  EXPECT_EQ(between->first->first, between->second->first);
  expect(item_prefix, {
                          {"a || b + c", "3(1301(1a 2b) 2c)"},
                          {"-a * b - - -c", "4(15(12(2a) 2b) 22(22(2c)))"},
                          {"a + 1 day - b * 2 month", "516:508(1515:510(1a 21) 25(1b 22))"},
                          {"SUM(DISTINCT a + 1)", "2129:61!1(32128(23(1a 21)))"},
                      });
}

TEST_F(ParserTest, SyntaxErrors) {
  for (const char *text :
       {"", "SELECT a > 1 FROM t", "COMMIT", "; ;", "DROP t; DROP u", "CREATE TIMESERIES INDEX i t (a)",
        "CREATE t ()", "INSERT t VALUES (1, (2, 3))", "SELECT FROM t INTO f", "SELECT FROM t WHERE a",
        "SELECT FROM t HAVING a = 1", "SELECT a, FROM t", "TEST_STMT (a", "TEST_STMT ABS()"}) {
    EXPECT_EQ(nullptr, root_of(text)) << text;
    EXPECT_EQ(status::syntax_error, error_record().last_code) << text;
  }
  // A lexical failure is recorded first, the syntax error after it.
  EXPECT_EQ(nullptr, root_of("SELECT # FROM t"));
  EXPECT_EQ(status::undefined_character, error_record().entries[0].code);
  EXPECT_EQ(status::syntax_error, error_record().entries[1].code);
}

TEST_F(ParserTest, StacksGrowToTheirLimit) {
  const auto nested = [](size_t depth) {
    return "TEST_STMT " + std::string(depth, '(') + "a" + std::string(depth, ')');
  };
  EXPECT_NE(nullptr, root_of(nested(9990)));
  EXPECT_EQ(nullptr, root_of(nested(10010)));
  EXPECT_EQ(status::syntax_error, error_record().entries[0].code);

  // A chain of operators leans to the left and takes no stack.
  std::string chain = "TEST_STMT a";
  for (int i = 0; i < 20000; ++i) chain += "+a";
  EXPECT_NE(nullptr, root_of(chain));
}

// Whatever the pool's size, a parse that does not fit says so.
TEST_F(ParserTest, ExhaustedPool) {
  const std::string text = "SELECT a + 1, COUNT(*) x FROM t WHERE a IN (1, 'b') ORDER BY a";
  int size = 16;
  for (; resize(size), root_of(text) == nullptr; size += 16) {
    ASSERT_EQ(status::pool_limit, error_record().entries[0].code) << size;
    const StatusCode last = error_record().last_code;
    ASSERT_TRUE(last == status::sql_memory || last == status::value_memory) << size << ": " << last;
  }
  EXPECT_GT(size, 800);
}
