// The console: ordinary options and exit statuses over kld_cmd_exec.
//
// Exit status: 0 success, 1 a statement or the database failed (in a script: its last statement), 2 wrong
// usage.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "kld_api.h"

namespace {

constexpr int exit_done = 0, exit_failed = 1, exit_usage = 2;

constexpr char help[] =
    "usage: tovik [OPTION]... DATABASE [STATEMENT]\n"
    "\n"
    "DATABASE is a path without suffix (shop, /data/shop) or a parameter string "
    "(NAME=shop;CACHE_SIZE_DAT=1024).\n"
    "With STATEMENT it runs that statement; otherwise it reads statements, each ended by \";\", from "
    "standard\n"
    "input.\n"
    "\n"
    "  -c, --create           create the database first; without STATEMENT do nothing else\n"
    "  -r, --remove           remove the database\n"
    "  -e, --exists           exit with 0 when the database exists, else with 1\n"
    "  -f, --file FILE        run the statements of FILE\n"
    "  -s, --set PARAMETERS   environment parameters (HVI_SQL_SEL_SEP=', ';HVI_SQL_SEL_HDR=OFF)\n"
    "  -h, --help             print this\n"
    "  -V, --version          print the version\n"
    "\n"
    "Exit status: 0 success; 1 a statement or the database failed (in a script: its last statement); 2 "
    "wrong\n"
    "usage.\n";

struct Options {
  bool create = false, remove = false, exists = false;
  const char *file = nullptr;
  const char *settings = nullptr;
  const char *database = nullptr;
  const char *statement = nullptr;
};

int usage(const char *problem, const char *what) {
  fprintf(stderr, "tovik: %s%s\nTry 'tovik --help'.\n", problem, what);
  return exit_usage;
}

bool is(const char *argument, const char *brief, const char *full) {
  return strcmp(argument, brief) == 0 || strcmp(argument, full) == 0;
}

// -1: go on; otherwise the exit status.
int read_options(int argc, char **argv, Options &options) {
  bool only_operands = false;
  for (int i = 1; i < argc; ++i) {
    const char *argument = argv[i];
    const bool option = !only_operands && argument[0] == '-' && argument[1] != 0;
    const char **value = nullptr;
    if (!option) {
      if (options.database == nullptr) {
        options.database = argument;
      } else if (options.statement == nullptr) {
        options.statement = argument;
      } else {
        return usage("more than one statement: ", argument);
      }
    } else if (strcmp(argument, "--") == 0) {
      only_operands = true;
    } else if (is(argument, "-h", "--help")) {
      fputs(help, stdout);
      return exit_done;
    } else if (is(argument, "-V", "--version")) {
      return kld_cmd_exec(nullptr, KLD_CMD_VERSION, nullptr, nullptr) == 0 ? exit_done : exit_failed;
    } else if (is(argument, "-c", "--create")) {
      options.create = true;
    } else if (is(argument, "-r", "--remove")) {
      options.remove = true;
    } else if (is(argument, "-e", "--exists")) {
      options.exists = true;
    } else if (is(argument, "-f", "--file")) {
      value = &options.file;
    } else if (is(argument, "-s", "--set")) {
      value = &options.settings;
    } else {
      return usage("unknown option: ", argument);
    }
    if (value == nullptr) continue;
    if (++i == argc) return usage("a value must follow ", argument);
    *value = argv[i];
  }
  return options.database == nullptr ? usage("no database given", "") : -1;
}

// A path becomes a parameter string; PATH takes what stands before the last separator.
std::string parameters_of(const char *database) {
  if (strchr(database, '=') != nullptr) return database;
  std::string path = database;
  if (path.size() > 4 && path.compare(path.size() - 4, 4, ".dat") == 0) path.resize(path.size() - 4);
  return "NAME=\"" + path + "\"";
}

int done(int result) {
  return result == 0 ? exit_done : exit_failed;
}

int run_loop(const Options &options, const std::string &parameters) {
  FILE *in = stdin;
  if (options.file != nullptr && (in = fopen(options.file, "rb")) == nullptr) {
    perror(options.file);
    return exit_failed;
  }
  const bool interactive = options.file == nullptr && isatty(fileno(stdin)) != 0;
  int result =
      kld_cmd_exec(in, interactive ? KLD_CMD_INTERACTIVE : KLD_CMD_SCRIPT, parameters.c_str(), nullptr);
  if (in != stdin) fclose(in);
  if (result == 0 && !interactive) result = kld_api_get_error(nullptr, nullptr, nullptr, nullptr);
  return done(result);
}

int run(const Options &options) {
  const std::string parameters = parameters_of(options.database);
  if (options.exists) {
    return kld_cmd_exec(nullptr, KLD_CMD_EXISTS, parameters.c_str(), nullptr) == 1 ? exit_done : exit_failed;
  }
  if (options.remove) return done(kld_cmd_exec(nullptr, KLD_CMD_REMOVE, parameters.c_str(), nullptr));
  if (options.create) {
    if (kld_cmd_exec(nullptr, KLD_CMD_CREATE, parameters.c_str(), nullptr) != 0) return exit_failed;
    if (options.statement == nullptr && options.file == nullptr) return exit_done;
  }
  if (options.statement == nullptr) return run_loop(options, parameters);
  return done(kld_cmd_exec(nullptr, KLD_CMD_STATEMENT, parameters.c_str(), options.statement));
}

}  // namespace

int main(int argc, char **argv) {
  Options options;
  if (const int status = read_options(argc, argv, options); status >= 0) return status;
  if (kld_api_init(options.settings) != 0) {
    kld_api_print_error("tovik");
    return exit_failed;
  }
  const int status = run(options);
  kld_api_end();
  return status;
}
