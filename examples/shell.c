/* The smallest console: runs the statements of a script, or those typed, on a database that it makes when
 * there is none.
 *
 *   shell DIRECTORY [SCRIPT]
 */
#include <stdio.h>

#include "kld_api.h"

int main(int argc, char **argv) {
  char where[512];
  if (argc != 2 && argc != 3) {
    fprintf(stderr, "usage: shell DIRECTORY [SCRIPT]\n");
    return 2;
  }
  FILE *in = argc == 3 ? fopen(argv[2], "rb") : stdin;
  if (in == NULL) {
    perror(argv[2]);
    return 1;
  }
  snprintf(where, sizeof where, "NAME=shell;PATH=\"%s\"", argv[1]);
  if (kld_api_init("HVI_SQL_SEL_SEP=', '") != 0) return 1;
  int result = kld_cmd_exec(NULL, KLD_CMD_EXISTS, where, NULL) == 1
                   ? 0
                   : kld_cmd_exec(NULL, KLD_CMD_CREATE, where, NULL);
  if (result == 0) result = kld_cmd_exec(in, argc == 3 ? KLD_CMD_SCRIPT : KLD_CMD_INTERACTIVE, where, NULL);
  kld_api_end();
  return result == 0 ? 0 : 1;
}
