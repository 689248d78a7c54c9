// The parser: one statement's text to its tree. The grammar is grammar.y.
#pragma once

#include "sql/parse/lexer.h"
#include "sql/parse/tree.h"

namespace tovik {

struct ParseContext {
  MemoryPool &pool;
  Lexer lexer;
  Node *root;  // null for a lone ";"
};

inline constexpr int parser_stack_start = 200;
inline constexpr int parser_stack_limit = 10000;

// Parses text; *root is null when it holds nothing to execute. Token texts and nodes come from pool. False
// with 70007 (no room for the token buffer), 171001, 52002 or a lexical status.
[[nodiscard]] bool parse(MemoryPool &pool, const char *text, Node **root);

}  // namespace tovik
