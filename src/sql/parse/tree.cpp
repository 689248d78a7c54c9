#include "sql/parse/tree.h"

#include <utility>

#include "frame/error.h"

namespace tovik {

int node_count(const Node *list) {
  int count = 0;
  for (; list != nullptr; list = node_next(*list)) ++count;
  return count;
}

Node *list_start(Node *item) {
  if (item != nullptr) item->first = item;
  return item;
}

Node *list_append(Node *last, Node *item) {
  if (item == nullptr) return nullptr;
  item->first = last->first;
  return last->first = item;
}

Node *list_join(Node *last, Node *other_last) {
  std::swap(last->first, other_last->first);
  return other_last;
}

Node *list_close(Node *last) {
  if (last == nullptr) return nullptr;
  Node *head = last->first;
  last->first = nullptr;
  return head;
}

Node *node_new(MemoryPool &pool, uint16_t kind, Node *first, Node *second, Node *third) {
  Node *made = memory_pool_new<Node>(pool);
  if (made == nullptr) return fail_null(status::value_memory);
  made->kind = kind;
  made->first = first;
  made->second = second;
  made->third = third;
  return made;
}

static Node *node_with_leaf(MemoryPool &pool, uint16_t kind, TypeCode type) {
  Node *made = node_new(pool, kind);
  if (made == nullptr) return nullptr;
  made->value = memory_pool_new<Value>(pool);
  if (made->value == nullptr) return fail_null(status::value_memory);
  made->value->kind = kind;
  made->value->type = type;
  return made;
}

Node *node_text(MemoryPool &pool, uint16_t kind, const char *text, const char *second_text) {
  Node *made = node_with_leaf(pool, kind, type::character);
  if (made == nullptr) return nullptr;
  made->value->texts[0] = text;
  made->value->texts[1] = second_text;
  return made;
}

Node *node_integers(MemoryPool &pool, uint16_t kind, int64_t a, int64_t b, int64_t c) {
  Node *made = node_with_leaf(pool, kind, type::bigint);
  if (made == nullptr) return nullptr;
  made->value->integers[0] = a;
  made->value->integers[1] = b;
  made->value->integers[2] = c;
  return made;
}

}  // namespace tovik
