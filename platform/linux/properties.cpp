#include <cutils/properties.h>
#include <errno.h>
#include <string.h>

#include <atomic>

#include "platform/linux/bench_phone.h"
#include "platform/linux/property_map.h"

static_assert(PROPERTY_VALUE_MAX == kPropertyValueMax + 1, "one size of values");

namespace {

constexpr char kPhoneRoot[] = "";

// Mapped by the first use and kept. Apart, because most processes only read, and may only read.
std::atomic<PropertyMap*> s_readable{nullptr};
std::atomic<PropertyMap*> s_writable{nullptr};

// The mapping in `kept`, made by the first caller; null when there is no area (the next call tries
// again). No lock and no std::call_once: a handler may interrupt the first caller.
PropertyMap* mapping(std::atomic<PropertyMap*>* kept, bool writable) {
  PropertyMap* known = kept->load(std::memory_order_acquire);
  if (known != nullptr) return known;
  require_bench_phone();
  const int saved_errno = errno;
  PropertyMap* made = map_properties(kPhoneRoot, writable);
  errno = saved_errno;
  if (made == nullptr) return nullptr;
  if (kept->compare_exchange_strong(known, made, std::memory_order_acq_rel)) return made;
  unmap_properties(made);
  return known;
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
  const PropertyMap* map = mapping(&s_readable, false);
  const PropertyEntry* entry = map == nullptr || key == nullptr ? nullptr : find_property(map, key);
  const int length = entry == nullptr ? 0 : read_property_entry(*entry, value);
  if (length > 0) return length;
  if (default_value == nullptr) default_value = "";
  const size_t size = strnlen(default_value, kPropertyValueMax);
  memcpy(value, default_value, size);
  value[size] = '\0';
  return static_cast<int>(size);
}

int property_set(const char* key, const char* value) {
  PropertyMap* map = mapping(&s_writable, true);
  if (map == nullptr) return -1;
  const int saved_errno = errno;  // set from signal handlers too
  const int result = write_property(map, kPhoneRoot, key, value, true);
  errno = saved_errno;
  return result;
}
