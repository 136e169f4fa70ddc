// getprop: `getprop` lists every property, `getprop KEY [DEFAULT]` prints one.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "phone/tools/journal.h"
#include "platform/linux/property_area.h"

int main(int argc, char** argv) {
  journal_call("/system/bin/getprop", argc, argv);
  PropertyArea area;
  if (!area.open()) {
    fprintf(stderr, "getprop: no property area: %s\n", strerror(errno));
    return 1;
  }
  if (argc > 3 || (argc > 1 && argv[1][0] == '-')) {
    fprintf(stderr, "usage: getprop [NAME [DEFAULT]]\n");
    return 1;
  }
  if (argc == 1) {
    for (const auto& property : area.all())
      printf("[%s]: [%s]\n", property.key.c_str(), property.value.c_str());
    return 0;
  }
  char value[92];
  const int length = area.get(argv[1], value);
  puts(length == 0 && argc == 3 ? argv[2] : value);
  return 0;
}
