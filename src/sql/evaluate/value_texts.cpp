// Values as texts: their form, joined, and matched with patterns.
#include <cstring>

#include "data/value/datetime.h"
#include "data/value/number_text.h"
#include "frame/error.h"
#include "sql/evaluate/evaluate_rules.h"
#include "sql/evaluate/pattern.h"

namespace tovik {

bool value_text(const Value &value, char *buffer, TextRef *text) {
  const TypeCode code = value.declared != 0 ? value.declared : value.type;
  switch (datum_kind(value.type)) {
    case DatumKind::text:
      *text = value.text;
      return true;
    case DatumKind::integer:
      integer_to_text(value.integer, buffer);
      break;
    case DatumKind::real:
      double_to_text(value.real, code == type::float32 ? float32_precision : float64_precision, buffer);
      break;
    case DatumKind::datetime:
      if (!format_datetime((code & TYPE_DATETIME) != 0 ? code : value.type, value.datetime, buffer))
        return false;
      break;
  }
  *text = {buffer, static_cast<int32_t>(strlen(buffer))};
  return true;
}

namespace {

// Calls take for the text of each of the values, leaving NULLs out.
template <class Take>
bool each_text(const Value *values, int count, Take take) {
  for (const Value *value = values; value != values + count; ++value) {
    if (value->is_null()) continue;
    if (type_numeric(value->type)) return fail(status::not_concatenable);
    char buffer[number_text_size];
    TextRef text;
    if (!value_text(*value, buffer, &text)) return false;
    take(text);
  }
  return true;
}

}  // namespace

bool join_texts(MemoryPool &pool, const Value *values, int count, Value *result) {
  int64_t length = 0;
  bool null = true;
  const auto measure = [&](const TextRef &text) {
    length += text.length;
    null = false;
  };
  if (!each_text(values, count, measure)) return false;
  if (null) {
    set_null(result, type::character);
    return true;
  }
  char *joined = static_cast<char *>(memory_pool_alloc(pool, length + 1));
  if (joined == nullptr) return false;
  char *end = joined;
  const auto append = [&end](const TextRef &text) {
    memcpy(end, text.text, static_cast<size_t>(text.length));
    end += text.length;
  };
  if (!each_text(values, count, append)) return false;
  *end = '\0';
  set_computed(result, type::character, 0);
  result->text = {joined, static_cast<int32_t>(length)};
  return true;
}

bool match_texts(uint16_t kind, const Value &text, const Value &pattern, bool *matches) {
  char text_buffer[number_text_size], pattern_buffer[number_text_size];
  TextRef matched, wanted;
  if (!value_text(text, text_buffer, &matched) || !value_text(pattern, pattern_buffer, &wanted)) return false;
  if (kind == node::like) {
    *matches = pattern_like(matched.text, wanted.text);
    return true;
  }
  const bool negated = kind == node::not_match || kind == node::not_smatch;
  const bool fold = kind == node::match || kind == node::not_match;
  if (!pattern_match(matched.text, wanted.text, fold, matches)) return false;
  *matches = *matches != negated;
  return true;
}

}  // namespace tovik
