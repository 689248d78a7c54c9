#include "sql/parser.h"

#include <cstring>

#include "frame/error.h"
#include "sql/grammar.h"

namespace tovik {

// A kept token needs its bytes and a NUL. Only a word or number directly followed by a multibyte word leaves
// no byte for its NUL (five bytes kept of four: "1", two bytes, a separator); a quarter more covers that.
static int64_t token_buffer_size(const char *text) {
  const int64_t length = static_cast<int64_t>(strlen(text));
  return length + length / 4 + 10;
}

bool parse(MemoryPool &pool, const char *text, Node **root) {
  char *buffer = static_cast<char *>(memory_pool_alloc(pool, token_buffer_size(text)));
  if (buffer == nullptr) return fail(status::sql_memory);
  ParseContext context{pool, {}, nullptr};
  lexer_start(context.lexer, text, buffer);
  if (grammar_parse(context) != 0) return false;
  *root = context.root;
  return true;
}

}  // namespace tovik
