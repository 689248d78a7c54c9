// Cost per token: one class look-up per byte, one copy of the bytes that are kept.
#include "sql/parse/lexer.h"

#include "data/function/builtin.h"
#include "frame/charset_current.h"
#include "frame/error.h"
#include "sql/parse/character.h"
#include "sql/parse/grammar.h"
#include "sql/parse/keywords.h"

namespace tovik {

namespace {

enum CharClass : uint8_t {
  class_end,
  class_single,    // its own token
  class_operator,  // may take a second character
  class_blank,
  class_digit,
  class_letter,
  class_quote,
  class_undefined,
  class_multibyte,  // 0x80 and above
  class_control
};

struct ClassTable {
  uint8_t of[256];
};

constexpr ClassTable make_classes() {
  ClassTable table{};
  for (int c = 0; c < 256; ++c) table.of[c] = c >= 0x80 ? class_multibyte : class_control;
  auto put = [&table](const char *characters, uint8_t char_class) {
    for (const char *c = characters; *c != 0; ++c) table.of[static_cast<unsigned char>(*c)] = char_class;
  };
  put("%()*+,-./;=^", class_single);
  put("!<>|~", class_operator);
  put("\t\n\v\f\r ", class_blank);
  put("0123456789", class_digit);
  put("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_", class_letter);
  put("\"'", class_quote);
  put("#$&:?@[\\]`{}", class_undefined);
  table.of[0] = class_end;
  return table;
}

constexpr ClassTable classes = make_classes();

uint8_t class_of(char c) {
  return classes.of[static_cast<unsigned char>(c)];
}

int lexical_failure(StatusCode code) {
  err_set(code);
  return T_LEXERR;
}

void keep(Lexer &lexer, int count) {
  for (; count > 0; --count) *lexer.write++ = *lexer.cursor++;
}

void keep_digits(Lexer &lexer) {
  while (class_of(*lexer.cursor) == class_digit) keep(lexer, 1);
}

// Ends the word or number that starts at token in the buffer. Every token leaves a byte of the text unkept,
// which pays for its terminator, but one: a multibyte word directly behind it takes over. Such a token moves
// into the pool; null without room there.
const char *end_token(Lexer &lexer, char *token) {
  if (class_of(*lexer.cursor) != class_multibyte) {
    *lexer.write++ = 0;
    return token;
  }
  const int32_t length = static_cast<int32_t>(lexer.write - token);
  lexer.write = token;
  return memory_pool_text(*lexer.pool, token, length);
}

int read_number(Lexer &lexer, TokenValue *value) {
  char *const start = lexer.write;
  int token = T_INTNUM;
  keep_digits(lexer);
  if (*lexer.cursor == '.') {
    token = T_DECNUM;
    keep(lexer, 1);
    keep_digits(lexer);
    if (*lexer.cursor == 'e' || *lexer.cursor == 'E') {
      token = T_EXPNUM;
      keep(lexer, 1);
      if (*lexer.cursor == '+' || *lexer.cursor == '-') keep(lexer, 1);
      keep_digits(lexer);
    }
  }
  value->text = end_token(lexer, start);
  if (value->text == nullptr) return T_LEXERR;
  return class_of(*lexer.cursor) == class_letter ? lexical_failure(status::letter_in_number) : token;
}

int read_word(Lexer &lexer, TokenValue *value) {
  char *const start = lexer.write;
  while (class_of(*lexer.cursor) == class_letter || class_of(*lexer.cursor) == class_digit) keep(lexer, 1);
  const char *word = end_token(lexer, start);
  if (word == nullptr) return T_LEXERR;
  if (const Keyword *keyword = keyword_find(word); keyword != nullptr) {
    value->number = keyword->value;
    return keyword->token;
  }
  if (const BuiltinRow *function = builtin_find(word); function != nullptr) {
    value->number = function->number;
    return T_FUNC;
  }
  value->text = word;
  return T_IDENT;
}

int read_multibyte_word(Lexer &lexer) {
  const char *start = lexer.cursor;
  for (;;) {
    const uint8_t char_class = class_of(*lexer.cursor);
    if (char_class == class_multibyte) {
      const int size = character_size(*lexer.charset, lexer.cursor);
      if (size < 2) break;
      keep(lexer, size);
    } else if (char_class == class_letter || char_class == class_digit) {
      keep(lexer, 1);
    } else {
      break;
    }
  }
  if (lexer.cursor == start) return lexical_failure(status::unreadable_character);
  *lexer.write++ = 0;
  return T_IDENT;
}

char escaped(char c) {
  switch (c) {
    case 'a':
      return '\a';
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case 'v':
      return '\v';
    default:
      return c;
  }
}

// The cursor is on the opening quote. A text that ends first ends the string too.
int read_string(Lexer &lexer) {
  const char quote = *lexer.cursor++;
  while (*lexer.cursor != 0) {
    const int size = character_size(*lexer.charset, lexer.cursor);
    if (size > 1) {
      keep(lexer, size);
    } else if (*lexer.cursor == quote) {
      ++lexer.cursor;
      if (*lexer.cursor != quote) break;
      keep(lexer, 1);
    } else if (*lexer.cursor == '\\') {
      ++lexer.cursor;
      if (*lexer.cursor == 0) break;
      const int escaped_size = character_size(*lexer.charset, lexer.cursor);
      if (escaped_size > 1) {
        keep(lexer, escaped_size);
      } else {
        *lexer.write++ = escaped(*lexer.cursor++);
      }
    } else {
      keep(lexer, 1);
    }
  }
  *lexer.write++ = 0;
  return T_STRING;
}

int read_operator(Lexer &lexer) {
  const char first = *lexer.cursor++;
  const char second = *lexer.cursor;
  int token = 0;
  if (second == '=') {
    if (first == '!' || first == '~') token = T_NE;
    if (first == '<') token = T_LE;
    if (first == '>') token = T_GE;
  } else if (first == '<' && second == '>') {
    token = T_NE;
  } else if (first == '|' && second == '|') {
    token = T_CONCAT;
  }
  if (token == 0) return static_cast<unsigned char>(first);
  ++lexer.cursor;
  return token;
}

// Blanks and comments; false when a comment is not closed. "/**/" is a whole comment, "/*/" is none.
bool skip_blanks(Lexer &lexer) {
  for (;;) {
    while (class_of(*lexer.cursor) == class_blank) ++lexer.cursor;
    if (lexer.cursor[0] != '/' || lexer.cursor[1] != '*') return true;
    const char *end = strstr(lexer.cursor + 2, "*/");
    if (end == nullptr) return false;
    lexer.cursor = end + 2;
  }
}

}  // namespace

void lexer_start(Lexer &lexer, const char *text, char *buffer, MemoryPool &pool) {
  lexer.cursor = text;
  lexer.write = buffer;
  lexer.pool = &pool;
  lexer.charset = &charset_current();
}

int lexer_next(Lexer &lexer, TokenValue *value) {
  value->number = 0;
  if (!skip_blanks(lexer)) return lexical_failure(status::comment_unclosed);
  switch (class_of(*lexer.cursor)) {
    case class_end:
      return 0;
    case class_single:
      return static_cast<unsigned char>(*lexer.cursor++);
    case class_operator:
      return read_operator(lexer);
    case class_letter:
      return read_word(lexer, value);
    case class_digit:
      return read_number(lexer, value);
    case class_quote:
      value->text = lexer.write;
      return read_string(lexer);
    case class_multibyte:
      value->text = lexer.write;
      return read_multibyte_word(lexer);
    case class_undefined:
      return lexical_failure(status::undefined_character);
    default:
      return lexical_failure(status::control_character);
  }
}

}  // namespace tovik
