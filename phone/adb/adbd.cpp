// adbd FD shell|root: serves adb on the listening socket FD. Started by init for --adb.
#include <stdlib.h>
#include <string.h>

#include "phone/adb/server.h"
#include "platform/linux/property_area.h"

int main(int argc, char** argv) {
  PropertyArea properties;
  if (argc != 3 || !properties.open()) return 1;
  std::string banner = "device::";
  char value[92];
  for (const char* key : {"ro.product.name", "ro.product.model", "ro.product.device"}) {
    properties.get(key, value);
    banner += std::string(key) + "=" + value + ";";
  }
  properties.get("ro.debuggable", value);
  AdbServer(Fd(atoi(argv[1])), banner + "features=shell_v2", strcmp(argv[2], "root") == 0,
            strcmp(value, "1") == 0)
      .run();
}
