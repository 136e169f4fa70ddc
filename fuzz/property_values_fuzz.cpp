// Whatever text a property holds, the typed reads agree with it: a number that fits is that number,
// a mask's bits are that number's bits, "on..." is on, and only an empty text is the default.
#include <cutils/properties.h>
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "fuzz/require.h"
#include "platform/linux/bench_phone.h"
#include "selflog/props.h"

namespace {

constexpr char kPropertiesLog[] = "/dev/bench/properties.log";

void check_number(const char* text, int read, int def) {
  const long long number = text[0] != '\0' ? strtoll(text, nullptr, 10) : def;
  require(number < INT_MIN || number > INT_MAX || read == number);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  require_bench_phone();
  std::string text(reinterpret_cast<const char*>(data), size);
  text.resize(strlen(text.c_str()));
  const bool fits = text.size() < PROPERTY_VALUE_MAX;
  for (const char* key : {"fuzz.value", kTypeProp, kEnableProp})
    require(property_set(key, text.c_str()) == (fits ? 0 : -1));
  (void)!truncate(kPropertiesLog, 0);  // every set is a line of it
  if (!fits) return 0;
  check_number(text.c_str(), get_int_prop("fuzz.value", -123456), -123456);
  check_number(text.c_str(), get_logger_types(), 1);
  for (int bit = 1; bit > 0 && bit < INT_MAX / 2; bit *= 2)
    require(has_logger_type(bit) == ((get_logger_types() & bit) != 0));
  require(is_logger_enabled() == (text.compare(0, 2, "on") == 0));
  require(is_prop_on("fuzz.value", "on") == (text.empty() || is_logger_enabled()));
  require(get_string_prop("fuzz.value", "none") == (text.empty() ? "none" : text));
  return 0;
}
