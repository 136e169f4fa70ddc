#pragma once

#include <string>

#include "platform/linux/property_area.h"

// The value of a property; "" when it is not set.
inline std::string get_property(const PropertyArea& properties, const char* key) {
  char value[92];
  properties.get(key, value);
  return value;
}
