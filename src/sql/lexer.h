// The lexer: cuts the text of one statement into tokens, one per call. Texts of identifiers, numbers and
// strings are copied into the token buffer one after the other, each NUL-terminated.
#pragma once

#include <cstdint>

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
};

// buffer has room for every token that the text can hold (parser.cpp).
void lexer_start(Lexer &lexer, const char *text, char *buffer);

// The next token's number, 0 at the end of the text. A lexical failure records its status (170001 to 170006)
// and gives LEXERR, which no grammar rule accepts.
int lexer_next(Lexer &lexer, TokenValue *value);

}  // namespace tovik
