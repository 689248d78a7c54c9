#include "api/command_loop.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#endif

#include "frame/error.h"
#include "frame/param_text.h"
#include "platform/ascii.h"
#include "platform/found.h"

namespace tovik {

namespace {

constexpr int history_limit = 32;
constexpr int script_depth_limit = 32;  // scripts that run scripts
constexpr int line_size = 256;          // with the NUL: a piece without a line end ends the loop

enum class Command { sql, system, leave, run, rc };

struct HistoryEntry {
  int32_t number;
  Command kind;  // sql or system
  char *text;    // owned
};

struct Loop {
  Statement &statement;
  int32_t counter = 1;  // number of the next statement
  int script_depth = 0;
  Array<HistoryEntry> history;  // oldest first

  explicit Loop(Statement &runs_on) : statement(runs_on) {}
  ~Loop() {
    for (HistoryEntry &entry : history) mem_free(entry.text);
  }
};

struct CommandWord {
  const char *word;
  Command command;
};

// "!" is told apart first; the others in this order.
constexpr CommandWord command_words[] = {{"do", Command::system},  {"exit", Command::leave},
                                         {"stop", Command::leave}, {"quit", Command::leave},
                                         {"run", Command::run},    {"rc", Command::rc}};

// Told as it stands, without a line feed.
constexpr char extra_characters[] = "extra characters after end of valid command";

bool starts_with_word(const char *text, const char *word) {
  for (; *word != 0; ++text, ++word) {
    if (ascii_lower(*text) != *word) return false;
  }
  return true;
}

// The command at the start of text, whose leading blanks are skipped; *rest is what follows the word.
Command command_of(const char *text, const char **rest) {
  *rest = text;
  if (*text == '!') {
    *rest = text + 1;
    return Command::system;
  }
  for (const CommandWord &row : command_words) {
    if (!starts_with_word(text, row.word)) continue;
    *rest = text + strlen(row.word);
    return row.command;
  }
  return Command::sql;
}

char last_character(const char *text) {
  const char *last = text;
  for (const char *at = text; *at != 0; ++at) {
    if (!is_blank(*at)) last = at;
  }
  return *last;
}

// Cuts trailing blanks; with the semicolon also one ";" at the end and the blanks before it.
enum class Cut { blanks, semicolon };

void cut_end(char *text, Cut cut) {
  char *end = text + strlen(text);
  while (end > text && is_blank(end[-1])) --end;
  if (cut == Cut::semicolon && end > text && end[-1] == ';') {
    --end;
    while (end > text && is_blank(end[-1])) --end;
  }
  *end = 0;
}

// ---- reading one statement ----

// The text of the statement being read, and what the last character left open.
struct Collector {
  Array<char> text;
  bool comment = false, single_quote = false, double_quote = false;

  bool quoted() const { return single_quote || double_quote; }

  [[nodiscard]] bool append(char c) { return text.push(c) || fail(status::out_of_memory); }

  // One line up to its line end, which is not kept.
  [[nodiscard]] bool add_line(const char *line) {
    for (; *line != '\n'; ++line) {
      const char c = *line;
      const char before = text.empty() ? '\0' : text.back();
      if (comment) {
        if (c == '/' && last_in_comment_ == '*') comment = false;
        last_in_comment_ = c;
      } else if (c == '*' && before == '/' && !quoted()) {
        text.pop();
        comment = true;
        last_in_comment_ = '\0';
      } else {
        if (c == '\'' && !double_quote) single_quote = !single_quote;
        if (c == '"' && !single_quote) double_quote = !double_quote;
        if (!append(c)) return false;
      }
    }
    last_in_comment_ = '\0';
    return true;
  }

  [[nodiscard]] bool terminate() {
    if (!append('\0')) return false;
    text.pop();  // not part of the text, but behind it
    return true;
  }

 private:
  char last_in_comment_ = '\0';
};

// Is the text a whole statement at the end of its line?
bool finished(const char *text) {
  const char *start = skip_blanks(text);
  if (*start == 0) return true;  // nothing but blanks: dropped
  const char *rest;
  switch (command_of(start, &rest)) {
    case Command::system:
      return *skip_blanks(rest) != 0;
    case Command::leave:
      return true;
    default:
      return last_character(start) == ';';
  }
}

// no: the stream ends before a statement does.
Found collect(Loop &loop, FILE *in, Prompts prompts, Collector &collector) {
  if (prompts == Prompts::shown) system_driver.print("%d* ", loop.counter);
  for (;;) {
    char line[line_size];
    if (system_driver.stream_gets(line, sizeof line, in) == nullptr || strchr(line, '\n') == nullptr) {
      return Found::no;
    }
    if (!collector.add_line(line) || !collector.terminate()) return Found::failed;
    if (!collector.comment) {
      if (!collector.quoted() && finished(collector.text.data())) return Found::yes;
      if (!collector.append(' ')) return Found::failed;
    }
    if (prompts == Prompts::shown) system_driver.print(". ");
  }
}

// ---- history ----

[[nodiscard]] bool remember(Loop &loop, Command kind, const char *text) {
  char *copy = text_dup(text);
  if (copy == nullptr) return fail(status::out_of_memory);
  if (loop.history.size() == history_limit) {
    mem_free(loop.history[0].text);
    loop.history.remove(0);
  }
  if (!loop.history.push({loop.counter, kind, copy})) {
    mem_free(copy);
    return fail(status::out_of_memory);
  }
  return true;
}

// The entry that argument names, the newest for an empty one; null when there is none.
const HistoryEntry *history_entry(Loop &loop, const char *argument) {
  if (*argument == 0) return loop.history.empty() ? nullptr : &loop.history.back();
  const int32_t number = text_number(argument, 10);
  for (HistoryEntry &entry : loop.history) {
    if (entry.number == number) return &entry;
  }
  return nullptr;
}

void print_entry(const HistoryEntry &entry) {
  system_driver.print("%4d %s%s", entry.number, entry.text, "\n");
}

// ---- running ----

// text is changed: its final ";" goes.
[[nodiscard]] bool run_sql(Loop &loop, char *text) {
  if (!remember(loop, Command::sql, text)) return false;
  cut_end(text, Cut::semicolon);
  err_clear();
  const SqlResult parsed = sql_prepare(loop.statement, text, Execution::at_once);
  const bool done =
      parsed == SqlResult::nothing || (parsed == SqlResult::done && sql_execute(loop.statement));
  sql_clear(loop.statement);
  if (!done) err_format(nullptr, 0, nullptr);
  ++loop.counter;
  return true;
}

[[nodiscard]] bool run_system(Loop &loop, char *text) {
  const char *start = skip_blanks(text);
  if (*start == ';' && *skip_blanks(start + 1) == 0) {
    system_driver.print("expecting a system command%s", "\n");
    return true;
  }
  if (!remember(loop, Command::system, text)) return false;
  cut_end(text, Cut::semicolon);
  fflush(stdout);
  if (system(skip_blanks(text)) == -1) system_driver.print("%s%s", strerror(errno), "\n");
  ++loop.counter;
  return true;
}

[[nodiscard]] bool run_again(Loop &loop, const HistoryEntry &entry) {
  char *text = text_dup(entry.text);
  if (text == nullptr) return fail(status::out_of_memory);
  print_entry(entry);
  const bool ran = entry.kind == Command::system ? run_system(loop, text) : run_sql(loop, text);
  mem_free(text);
  return ran;
}

[[nodiscard]] bool run_loop(Loop &loop, FILE *in, Prompts prompts);

// name still has its opening quote; what is between that and the last character is the name.
[[nodiscard]] bool run_file(Loop &loop, char *name) {
  cut_end(name, Cut::blanks);
  const size_t length = strlen(name);
  if (length < 3) {
    system_driver.print("%s", extra_characters);
    return true;
  }
  name[length - 1] = 0;
  FILE *script =
      loop.script_depth == script_depth_limit ? nullptr : system_driver.stream_open(name + 1, "rb");
  if (script == nullptr) {
    system_driver.print("fopen error.'%s'%s", name + 1, "\n");
    return true;
  }
  ++loop.script_depth;
  const bool ran = run_loop(loop, script, Prompts::hidden);
  --loop.script_depth;
  system_driver.stream_close(script);
  return ran;
}

// argument: what follows the word, without the final ";".
[[nodiscard]] bool command_run(Loop &loop, char *argument) {
  if (*argument == '\'' || *argument == '"') return run_file(loop, argument);
  const HistoryEntry *entry = history_entry(loop, argument);
  if (entry != nullptr) return run_again(loop, *entry);
  system_driver.print("*** Error: invalid command%s", "\n");
  return true;
}

void command_rc(Loop &loop, const char *argument) {
  if (text_equal_nocase(argument, "all")) {
    for (const HistoryEntry &entry : loop.history) print_entry(entry);
    return;
  }
  if (const HistoryEntry *entry = history_entry(loop, argument); entry != nullptr) {
    print_entry(*entry);
  } else {
    system_driver.print("*** Error: no command%s", "\n");
  }
}

enum class Step { go_on, leave, failed };

Step step_of(bool ran) {
  return ran ? Step::go_on : Step::failed;
}

Step leave(const char *rest) {
  rest = skip_blanks(rest);
  while (*rest == ';' || is_blank(*rest)) ++rest;
  if (*rest == 0) return Step::leave;
  system_driver.print("%s", extra_characters);
  return Step::go_on;
}

Step run_collected(Loop &loop, char *text) {
  char *start = text + (skip_blanks(text) - text);
  if (*start == 0) return Step::go_on;
  const char *found;
  const Command command = command_of(start, &found);
  char *rest = start + (found - start);
  cut_end(start, Cut::blanks);
  if (command != Command::sql && *start != '!' && *rest != 0 && !is_blank(*rest) &&
      last_character(start) != ';') {
    system_driver.print("expecting a command");
    return Step::go_on;
  }
  switch (command) {
    case Command::sql:
      return step_of(run_sql(loop, text));
    case Command::system:
      return step_of(run_system(loop, rest));
    case Command::leave:
      return leave(rest);
    case Command::run:
      cut_end(rest, Cut::semicolon);
      return step_of(command_run(loop, rest + (skip_blanks(rest) - rest)));
    default:
      cut_end(rest, Cut::semicolon);
      command_rc(loop, skip_blanks(rest));
      return Step::go_on;
  }
}

bool run_loop(Loop &loop, FILE *in, Prompts prompts) {
  for (;;) {
    Collector collector;
    switch (collect(loop, in, prompts, collector)) {
      case Found::no:
        return true;
      case Found::failed:
        return false;
      default:
        break;
    }
    switch (run_collected(loop, collector.text.data())) {
      case Step::leave:
        return true;
      case Step::failed:
        return false;
      default:
        break;
    }
  }
}

}  // namespace

bool command_loop(Statement &statement, FILE *in, Prompts prompts) {
#if defined(_WIN32)
  _setmode(_fileno(stdin), _O_BINARY);
#endif
  Loop loop(statement);
  return run_loop(loop, in, prompts);
}

}  // namespace tovik
