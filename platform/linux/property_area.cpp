#include "platform/linux/property_area.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/scoped.h"
#include "platform/linux/property_map.h"

struct PropertyArea::Map {
  PropertyMap* shared;
  bool writable;
};

namespace {

// The whole file, "" when it cannot be read.
std::string contents(const char* path) {
  std::string text;
  const ScopedFd fd(open(path, O_RDONLY | O_CLOEXEC));
  char buffer[4096];
  ssize_t size = 0;
  while (fd.valid() && (size = read(fd.get(), buffer, sizeof(buffer))) > 0) {
    text.append(buffer, static_cast<size_t>(size));
  }
  return text;
}

// Undoes the escapes of a saved value. False when it is damaged.
bool unescape(const std::string& text, std::string* value) {
  value->clear();
  for (size_t i = 0; i < text.size(); i++) {
    char c = text[i];
    if (c == '\0') return false;
    if (c == '\\') {
      if (++i == text.size() || (text[i] != 'n' && text[i] != '\\')) return false;
      c = text[i] == 'n' ? '\n' : '\\';
    }
    value->push_back(c);
  }
  return true;
}

}  // namespace

PropertyArea::PropertyArea(std::string root) : root_(std::move(root)) {}

PropertyArea::~PropertyArea() {
  if (map_ != nullptr) unmap_properties(map_->shared);
  delete map_;
}

bool PropertyArea::create() {
  return create_property_map(root_.c_str()) && open();
}

bool PropertyArea::open() {
  bool writable = true;
  PropertyMap* shared = map_properties(root_.c_str(), true);
  if (shared == nullptr && (errno == EACCES || errno == EPERM || errno == EROFS)) {
    writable = false;
    shared = map_properties(root_.c_str(), false);
  }
  if (shared == nullptr) return false;
  if (map_ != nullptr) unmap_properties(map_->shared);
  delete map_;
  map_ = new Map{shared, writable};
  return true;
}

int PropertyArea::get(const char* key, char* value) const {
  const PropertyEntry* entry = map_ == nullptr ? nullptr : find_property(map_->shared, key);
  if (entry != nullptr) return read_property_entry(*entry, value);
  value[0] = '\0';
  return 0;
}

int PropertyArea::set(const char* key, const char* value) {
  if (map_ == nullptr || !map_->writable) return -1;
  return write_property(map_->shared, root_.c_str(), key, value, true);
}

void PropertyArea::load_persistent() {
  if (map_ == nullptr || !map_->writable) return;
  const std::string text = contents(RootedPath(root_.c_str(), kPersistentProperties).text());
  size_t start = 0;
  // A last line without its newline was cut off in the middle.
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    const size_t equals = text.find('=', start);
    if (equals == std::string::npos || equals > end) continue;
    const std::string key = text.substr(start, equals - start);
    if (key.compare(0, strlen(kPersistentPrefix), kPersistentPrefix) != 0) continue;
    if (key.find('\0') != std::string::npos) continue;
    std::string value;
    if (!unescape(text.substr(equals + 1, end - equals - 1), &value)) continue;
    write_property(map_->shared, root_.c_str(), key.c_str(), value.c_str(), false);
  }
}

uint32_t PropertyArea::serial() const {
  return map_ == nullptr ? 0 : map_->shared->serial.load(std::memory_order_acquire);
}

uint32_t PropertyArea::wait(uint32_t seen, int timeout_ms) const {
  return map_ == nullptr ? seen : wait_for_property_change(map_->shared, seen, timeout_ms);
}

std::vector<PropertyArea::Property> PropertyArea::all() const {
  std::vector<Property> properties;
  if (map_ == nullptr) return properties;
  map_->shared->for_each([&](const PropertyEntry& entry) {
    char value[kPropertyValueMax + 1];
    read_property_entry(entry, value);
    properties.push_back({entry.key, value});
  });
  std::sort(properties.begin(), properties.end(),
            [](const Property& a, const Property& b) { return a.key < b.key; });
  return properties;
}
