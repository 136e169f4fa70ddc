// Whatever stands in an .rc file, init's reader ends, keeps only what init could run, and names a
// line of the file in every error.
#include <stdint.h>

#include <algorithm>
#include <string_view>

#include "fuzz/require.h"
#include "phone/rc_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const long lines = std::count(text.begin(), text.end(), '\n') + 1;
  const RcFile file = parse_rc(text);
  for (const RcService& service : file.services) {
    require(!service.command.empty() && service.command[0][0] == '/');
    for (const RcSocket& socket : service.sockets)
      require(socket.type != 0 && socket.mode <= 07777 &&
              socket.name.find('/') == std::string::npos);
  }
  for (const RcAction& action : file.actions) {
    require(!action.event.empty() || !action.properties.empty());
    for (const RcCommand& command : action.commands)
      require(command.words.size() > 1 && command.line >= 1 && command.line <= lines);
    for (const RcProperty& property : action.properties) {
      const auto holds = [&](const std::string& key) { return key; };
      property_trigger_fires(action, property.key, property.value, holds);
    }
  }
  for (const std::string& error : file.errors) {
    const long line = atol(error.c_str() + sizeof("line ") - 1);
    require(line >= 1 && line <= lines);
  }
  return 0;
}
