#include "sql/evaluate/file_text.h"

#include <cstdio>
#include <cstring>

#include "frame/charset_current.h"
#include "frame/error.h"
#include "sql/evaluate/set_value.h"
#include "storage/io/user_file.h"

namespace tovik {

namespace {

using BytesHold = Held<char, mem_free>;

FileReader *open(const Node &node) {
  FileReaderHold file(file_reader_open(FileTree::of(node).name));
  if (file != nullptr && file->size >= INT32_MAX) return fail_null(status::out_of_memory);
  return file.release();
}

Value value_of(char *bytes, int64_t length, TypeCode declared) {
  bytes[length] = '\0';
  Value value{};
  value.kind = value_kind::computed;
  value.type = type::character;
  value.declared = declared;
  value.text = {bytes, static_cast<int32_t>(length)};
  return value;
}

bool check_text(const TextRef &text) {
  const bool whole = strlen(text.text) == static_cast<size_t>(text.length);
  return (whole && charset_current().valid(text.text)) || fail(status::code_conversion);
}

const char *file_label(MemoryPool &pool, const char *name) {
  constexpr char format[] = "DIRECT_FROM '%s'";
  const size_t size = sizeof format + strlen(name);
  char *label = static_cast<char *>(memory_pool_alloc(pool, static_cast<int64_t>(size)));
  if (label == nullptr) return fail_null(status::expr_label_memory);
  snprintf(label, size, format, name);
  return label;
}

}  // namespace

bool check_file(EvalContext &context, Node *node, Value *result) {
  if (node->value->kind == value_kind::computed) {
    *result = *node->value;
    return true;
  }
  const FileReaderHold file(open(*node));
  if (file == nullptr) return false;
  char *bytes = static_cast<char *>(memory_pool_alloc(*context.pool, file->size + 1));
  if (bytes == nullptr || !file_reader_all(*file, bytes)) return false;
  Value value = value_of(bytes, file->size, 0);
  value.label = file_label(*context.pool, FileTree::of(*node).name);
  if (value.label == nullptr || !check_text(value.text)) return false;
  *node->value = *result = value;
  return true;
}

bool set_file(MemoryPool &pool, const Node &node, RowHandle &row, const Column &column) {
  const FileReaderHold file(open(node));
  if (file == nullptr) return false;
  const BytesHold bytes(static_cast<char *>(mem_alloc(static_cast<size_t>(file->size) + 1)));
  if (bytes == nullptr) return fail(status::out_of_memory);
  if (!file_reader_all(*file, bytes.get())) return false;
  Value value = value_of(bytes.get(), file->size, column.type == type::blob ? type::blob : TypeCode{0});
  if (value.text.length == 0) value.flags = value_null;
  if (column.type != type::blob && !check_text(value.text)) return false;
  return set_computed(pool, value, row, column);
}

}  // namespace tovik
