// Not to compile: the two formats and their arguments disagree, and the contract's declarations let
// the compiler say so.
#include "host/host.h"

void disagreeing_formats();
void disagreeing_formats() {
  print_log("%s", 1);
  error("%s", 1);
}
