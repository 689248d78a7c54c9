// The operations that need no character boundaries, shared by the character sets whose unit is a byte.
#pragma once

namespace tovik {

char *byte_text_copy(char *target, const char *source);
int byte_text_length(const char *text, bool with_terminator);
int byte_text_compare(const char *a, const char *b);
char *byte_text_append(char *target, const char *source);
void byte_text_clear(char *text);

}  // namespace tovik
