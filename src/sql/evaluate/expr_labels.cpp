// Labels: the readable form of a checked expression, as headers and column names show it. The tree is walked
// twice, to measure and to write, so that a label takes its own length from the pool.
#include <cstring>

#include "data/value/datetime.h"
#include "frame/error.h"
#include "sql/evaluate/expr_internal.h"

namespace tovik {

namespace {

constexpr const char *date_part_names[] = {"yearof",   "monthof",  "dayof",        "hourof",
                                           "minuteof", "secondof", "microsecondof"};
constexpr const char *unit_names[] = {"year", "month",  "week",   "day",
                                      "hour", "minute", "second", "microsecond"};

class LabelWriter {
 public:
  explicit LabelWriter(char *at) : at_(at) {}  // null: only measures

  int64_t length() const { return length_; }
  [[nodiscard]] bool write(const Node *node);

 private:
  void text(const char *text);
  [[nodiscard]] bool spine(const Node *top);
  void open(const Node &node);
  void sign(const Node &node);
  void close(const Node &node);
  [[nodiscard]] bool call(const Node *node);

  char *at_;
  int64_t length_ = 0;
};

// A character value that is no column.
bool quoted(const Node *operand) {
  switch (operand->kind) {
    case value_kind::string:
    case value_kind::date_literal:  // written as a text
    case node::concat:
      return true;
    case node::function_call:
      return (operand->value->declared & TYPE_CHARACTER) != 0;
    default:
      return false;
  }
}

// Quotes stand around the leading operand, and both of a concatenation.
bool quotes(const Node &node) {
  if (node.kind == node::concat) return true;
  const bool of_date =
      node_is_date_part(node.kind) || node.kind == node::date_add || node.kind == node::date_subtract;
  return of_date && quoted(OperatorTree::of(node).leading());
}

const char *signs(uint16_t kind) {
  switch (kind) {
    case node::add:
      return " + ";
    case node::subtract:
      return " - ";
    case node::multiply:
      return " * ";
    case node::divide:
      return " / ";
    case node::remainder:
      return " % ";
    case node::concat:
      return " concat '";
    case node::date_add:
      return " + (";
    default:
      return " - (";
  }
}

bool LabelWriter::write(const Node *node) {
  switch (node->kind) {
    case value_kind::null:
      text("NULL");
      return true;
    case value_kind::column:
    case value_kind::literal:
    case value_kind::string:
    case value_kind::date_literal:
    case node::file_name:
      if (node->value->label == nullptr) return fail(status::expr_label_text);
      text(node->value->label);
      return true;
    case node::function_call:
      return call(node);
    default:
      return spine_of(node->kind) != Spine::none ? spine(node) : fail(status::expr_label_text);
  }
}

void LabelWriter::text(const char *text) {
  const size_t length = strlen(text);
  if (at_ != nullptr) memcpy(at_ + length_, text, length);
  length_ += static_cast<int64_t>(length);
}

// What opens the labels of the operators stands in front, the outermost first; the rest of each follows its
// leading operand.
bool LabelWriter::spine(const Node *top) {
  const Node *const lowest = spine_lowest(*top);
  for (const Node *node = top; open(*node), node != lowest;) node = OperatorTree::of(*node).leading();
  if (!write(OperatorTree::of(*lowest).leading())) return false;
  for (const Node *node = lowest;; node = spine_above(*node)) {
    const OperatorTree tree = OperatorTree::of(*node);
    sign(*node);
    if (!tree.is_unary() && !write(tree.right)) return false;
    close(*node);
    if (node == top) return true;
  }
}

bool signed_literal(const Node &node) {
  return node.kind == node::negation && OperatorTree::of(node).right->kind == value_kind::literal;
}

void LabelWriter::open(const Node &node) {
  if (signed_literal(node)) return text("-");
  text(node.kind == node::negation ? "(- " : "(");
  if (node_is_date_part(node.kind)) {
    text(date_part_names[node.kind - node::date_part_first]);
    text(" ");
  }
  if (quotes(node)) text("'");
}

void LabelWriter::sign(const Node &node) {
  if (quotes(node)) text("'");
  if (!OperatorTree::of(node).is_unary()) text(signs(node.kind));
}

void LabelWriter::close(const Node &node) {
  if (signed_literal(node)) return;
  if (node.kind == node::concat) text("'");
  if (node.kind == node::date_add || node.kind == node::date_subtract) {
    text(" ");
    text(unit_names[DateTree::of(node).unit - unit_year]);
    text(")");
  }
  text(")");
}

bool LabelWriter::call(const Node *node) {
  const CallTree tree = CallTree::of(*node);
  text(builtin_row(tree.function)->name);
  text(tree.distinct ? "(DISTINCT " : "(");
  if (tree.arguments == nullptr && node->value->aggregate != nullptr) text("*");
  for (const Node *item : chain(tree.arguments)) {
    if (!write(ValueItemTree::of(*item).value)) return false;
    if (node_next(*item) != nullptr) text(", ");
  }
  text(")");
  return true;
}

}  // namespace

const char *expr_label(MemoryPool &pool, const Node *expression) {
  LabelWriter measured(nullptr);
  if (!measured.write(expression)) return nullptr;
  char *label = static_cast<char *>(memory_pool_alloc(pool, measured.length() + 1));
  if (label == nullptr) return fail_null(status::expr_label_memory);
  LabelWriter writer(label);
  if (!writer.write(expression)) return nullptr;
  label[writer.length()] = '\0';
  return label;
}

}  // namespace tovik
