/* A program of somebody else's, written in what C and C++ have in common. */
#include <stdio.h>
#include <tovik_types.h>

int main(int argc, char **argv) {
  if (argc != 2) return 2;
  printf("%s: DateTimeRec takes %d bytes\n", argv[1], (int)sizeof(DateTimeRec));
  return sizeof(DateTimeRec) == 12 ? 0 : 1;
}
