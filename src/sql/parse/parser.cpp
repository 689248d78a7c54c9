#include "sql/parse/parser.h"

#include <cstring>

#include "frame/error.h"
#include "sql/parse/grammar.h"

namespace tovik {

bool parse(MemoryPool &pool, const char *text, Node **root) {
  const int64_t size = static_cast<int64_t>(strlen(text)) + lexer_buffer_slack;
  char *buffer = static_cast<char *>(memory_pool_alloc(pool, size));
  if (buffer == nullptr) return fail(status::sql_memory);
  ParseContext context{pool, {}, nullptr};
  lexer_start(context.lexer, text, buffer, pool);
  if (grammar_parse(context) != 0) return false;
  *root = context.root;
  return true;
}

}  // namespace tovik
