#include "sql/statement/definitions.h"

#include <cstdio>
#include <cstring>

#include "data/table/column_rules.h"
#include "frame/error.h"
#include "frame/param_text.h"

namespace tovik {

namespace {

constexpr int64_t type_parameter_limit = INT16_MAX;

bool read_type_parameters(const Node *parameters, ColumnDefinition &column) {
  if (parameters == nullptr) return true;
  const int64_t *written = parameters->value->integers;
  if (written[0] < 1) return fail(status::type_parameter_1);
  int16_t *fields[] = {&column.p1, &column.p2, &column.p3};
  for (int i = 0; i < 3; ++i) {
    if (written[i] > type_parameter_limit || written[i] < -type_parameter_limit)
      return fail(status::type_parameter_1);
    *fields[i] = static_cast<int16_t>(written[i]);
  }
  return true;
}

// An integer option value within its bounds, or the option's status.
bool read_option(const Node &value, int64_t limit, StatusCode failure, int64_t *number) {
  if (value.kind != value_kind::literal) return fail(failure);
  *number = value.value->integers[0];
  return (*number >= 1 && *number <= limit) || fail(failure);
}

}  // namespace

bool name_copy(char (&field)[name_size], const char *name, int limit) {
  if (static_cast<int>(strlen(name)) > limit) return false;
  snprintf(field, sizeof field, "%s", name);
  return true;
}

bool column_read(const Node &node, ColumnDefinition &column) {
  const ColumnDefinitionTree definition = ColumnDefinitionTree::of(node);
  const char *name = definition.name;
  if (name == nullptr || *name == 0) return fail(status::column_name_syntax);
  if (!name_copy(column.name, name, name_limit)) return fail(status::column_name_too_long);
  column.type = type::int32;
  column.not_null = definition.not_null;
  column.auto_increment = definition.auto_increment;
  if (definition.type != nullptr) {
    const ColumnTypeTree type = ColumnTypeTree::of(*definition.type);
    column.type = static_cast<TypeCode>(type.code);
    if (!read_type_parameters(type.parameters, column)) return false;
  }
  column_take_defaults(column);
  return true;
}

bool options_read(const Node *items, AutoIncrementOptions &options) {
  for (const Node *item : chain(items)) {
    const AssignmentTree option = AssignmentTree::of(*item);
    if (text_equal_nocase(option.name, "auto_increment_init")) {
      if (!read_option(*option.value, INT64_MAX, status::option_auto_increment_init, &options.init))
        return false;
    } else if (text_equal_nocase(option.name, "auto_increment_step")) {
      int64_t step;
      if (!read_option(*option.value, autoinc_step_limit, status::option_auto_increment_step, &step))
        return false;
      options.step = static_cast<int32_t>(step);
    }
  }
  return true;
}

}  // namespace tovik
