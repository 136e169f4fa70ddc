// setprop KEY VALUE
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "phone/tools/journal.h"
#include "platform/linux/property_area.h"

int main(int argc, char** argv) {
  journal_call("/system/bin/setprop", argc, argv);
  if (argc != 3) {
    fprintf(stderr, "usage: setprop NAME VALUE\n");
    return 1;
  }
  PropertyArea area;
  if (!area.open()) {
    fprintf(stderr, "setprop: no property area: %s\n", strerror(errno));
    return 1;
  }
  if (area.set(argv[1], argv[2]) == 0) return 0;
  fprintf(stderr, "setprop: failed to set property '%s' to '%s'\n", argv[1], argv[2]);
  return 1;
}
