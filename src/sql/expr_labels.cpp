// Labels: the readable form of a checked expression, as headers and column names show it. The tree is walked
// twice, to measure and to write, so that a label takes its own length from the pool whatever its depth.
#include <cstring>

#include "data/datetime.h"
#include "frame/error.h"
#include "sql/expr_internal.h"

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
  [[nodiscard]] bool between(const char *before, const Node *operand, const char *after);
  [[nodiscard]] bool binary(const Node *node, const char *before, const char *sign, const char *after);
  [[nodiscard]] bool date_part(const Node *node);
  [[nodiscard]] bool date_arithmetic(const Node *node);
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

bool LabelWriter::write(const Node *node) {
  switch (node->kind) {
    case value_kind::null:
      text("NULL");
      return true;
    case value_kind::column:
    case value_kind::literal:
    case value_kind::string:
    case value_kind::date_literal:
      if (node->value->label == nullptr) return fail(status::expr_label_text);
      text(node->value->label);
      return true;
    case node::negation:
      return node->second->kind == value_kind::literal ? between("-", node->second, "")
                                                       : between("(- ", node->second, ")");
    case node::add:
      return binary(node, "(", " + ", ")");
    case node::subtract:
      return binary(node, "(", " - ", ")");
    case node::multiply:
      return binary(node, "(", " * ", ")");
    case node::divide:
      return binary(node, "(", " / ", ")");
    case node::remainder:
      return binary(node, "(", " % ", ")");
    case node::concat:
      return binary(node, "('", "' concat '", "')");
    case node::date_add:
    case node::date_subtract:
      return date_arithmetic(node);
    case node::function_call:
      return call(node);
    default:
      return node_is_date_part(node->kind) ? date_part(node) : fail(status::expr_label_text);
  }
}

void LabelWriter::text(const char *text) {
  const size_t length = strlen(text);
  if (at_ != nullptr) memcpy(at_ + length_, text, length);
  length_ += static_cast<int64_t>(length);
}

bool LabelWriter::between(const char *before, const Node *operand, const char *after) {
  text(before);
  if (!write(operand)) return false;
  text(after);
  return true;
}

bool LabelWriter::binary(const Node *node, const char *before, const char *sign, const char *after) {
  return between(before, node->first, sign) && between("", node->second, after);
}

bool LabelWriter::date_part(const Node *node) {
  const bool quotes = quoted(node->second);
  text("(");
  text(date_part_names[node->kind - node::date_part_first]);
  return quotes ? between(" '", node->second, "')") : between(" ", node->second, ")");
}

bool LabelWriter::date_arithmetic(const Node *node) {
  const bool quotes = quoted(node->first);
  if (!between(quotes ? "('" : "(", node->first, quotes ? "' " : " ")) return false;
  if (!between(node->kind == node::date_add ? "+ (" : "- (", node->second, " ")) return false;
  text(unit_names[node->qual - unit_year]);
  text("))");
  return true;
}

bool LabelWriter::call(const Node *node) {
  text(builtin_row(node->qual)->name);
  text((node->flags & function_distinct) != 0 ? "(DISTINCT " : "(");
  if (node->third == nullptr && node->value->accumulator != nullptr) text("*");
  for (const Node *item = node->third; item != nullptr; item = item->first) {
    if (!between("", item->second, item->first == nullptr ? "" : ", ")) return false;
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
