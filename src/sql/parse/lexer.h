// The lexer: cuts the text of one statement into tokens, one per call. Texts of identifiers, numbers and
// strings are copied into the token buffer one after the other, each NUL-terminated.
#pragma once

#include <cstdint>

#include "frame/memory_pool.h"
#include "platform/charset/charset.h"

namespace tovik {

union TokenValue {
  const char *text;  // identifiers, numbers, strings
  int64_t number;    // keyword value or function number
};

struct Lexer {
  const char *cursor;      // next unread byte
  char *write;             // next free byte of the token buffer
  const Charset *charset;  // of the statement
  MemoryPool *pool;        // for what the token buffer does not hold
};

// buffer has lexer_buffer_slack bytes more than the text.
inline constexpr int lexer_buffer_slack = 10;
void lexer_start(Lexer &lexer, const char *text, char *buffer, MemoryPool &pool);

// The next token's number, 0 at the end of the text. A lexical failure records its status (170001 to 170006,
// 110002) and gives LEXERR, which no grammar rule accepts.
int lexer_next(Lexer &lexer, TokenValue *value);

}  // namespace tovik
