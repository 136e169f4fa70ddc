// Any text from a client: UTF-16 becomes terminated UTF-8 of the expected length, and a shell reads
// an escaped name unchanged.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "daemon/harrowmoss.h"
#include "storage/shell.h"

namespace {

void require(bool holds) {
  if (!holds) abort();
}

size_t utf8_length(const std::vector<char16_t>& units) {
  size_t length = 0;
  for (const char16_t unit : units) length += unit != 0 && unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
  return length;
}

void check_utf8(const uint8_t* data, size_t size) {
  std::vector<char16_t> units(size / sizeof(char16_t));
  if (!units.empty()) memcpy(units.data(), data, units.size() * sizeof(char16_t));
  const char16_t none = 0;  // data() of an empty vector may be null
  char* text = strndup16to8(units.empty() ? &none : units.data(), units.size());
  require(text != nullptr && strlen(text) == utf8_length(units));
  free(text);
}

// Unquoted text as a shell reads it: a backslash makes the next byte literal; no other byte is
// special.
std::string as_the_shell_reads(const std::string& text) {
  static constexpr char kSpecial[] = " \t\"'`$&|;<>()*?[]{}~!^";
  std::string read;
  for (size_t i = 0; i < text.size(); i++) {
    require(strchr(kSpecial, text[i]) == nullptr);
    if (text[i] == '\\') i++;
    require(i < text.size());
    read += text[i];
  }
  return read;
}

void check_escaping(const uint8_t* data, size_t size) {
  std::string name(reinterpret_cast<const char*>(data), size);
  name.resize(strlen(name.c_str()));
  const ShellText command = ShellText("").arg(name);
  require(command.can_be_given() == (name.find('\n') == std::string::npos));
  if (command.can_be_given()) require(as_the_shell_reads(command.c_str() + 1) == name);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  check_utf8(data, size);
  check_escaping(data, size);
  return 0;
}
