#include "selflog/props.h"

#include <cutils/properties.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

#include "base/text.h"
#include "selflog/log.h"

namespace {

constexpr char kLogSource[] = "utils";

int int_of(const char* key, const char* def) {
  char value[PROPERTY_VALUE_MAX] = {};
  property_get(key, value, def);
  return atoi(value);
}

}  // namespace

int get_int_prop(const char* key, int def) {
  char text[8];
  const int length = snprintf(text, sizeof(text), "%d", def);
  if (length < 0 || static_cast<size_t>(length) >= sizeof(text)) abort();
  return int_of(key, text);
}

int get_count_prop(const char* key, int def, int most) {
  const std::string value = get_string_prop(key, "");
  if (value.empty()) return def;
  const int number = read_count(value, most, -1);
  if (number != -1) return number;
  LOGE("%s is %s, taken for %d", key, value.c_str(), def);
  return def;
}

std::string get_name_prop(const char* key, const char* def) {
  std::string name = get_string_prop(key, def);
  const auto is_no_part = [](char c) { return c == ' ' || c == '/'; };
  std::replace_if(name.begin(), name.end(), is_no_part, '-');
  return name;
}

std::string get_string_prop(const char* key, const char* def) {
  char value[PROPERTY_VALUE_MAX] = {};
  return property_get(key, value, "") > 0 ? value : def;
}

bool is_prop_on(const char* key, const char* def) {
  char value[PROPERTY_VALUE_MAX] = {};
  property_get(key, value, def);
  return starts_with(value, "on");
}

int get_logger_types() {
  return int_of(kTypeProp, "1");
}

bool has_logger_type(int mask) {
  return (get_logger_types() & mask) != 0;
}

bool is_logger_enabled() {
  return is_prop_on(kEnableProp, "off");
}

bool is_in_cts() {
  return get_int_prop("persist.sys.zelka.cts.mode", 0) != 0 ||
         get_int_prop("sys.zelka.cts.mode", 0) != 0;
}

bool is_in_monkey() {
  return get_string_prop("sys.zelka.monkey", "false") == "true";
}

bool is_poweroffcharge() {
  return is_prop_on("sys.poweroffcharge.control", "off");
}
