// Whatever is set, a set that succeeded is read back whole and one that was refused changes
// nothing; a reboot keeps the persistent properties and no others, and survives any saved file.
#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>

#include "base/scoped.h"
#include "fuzz/require.h"
#include "platform/linux/property_area.h"

namespace {

constexpr char kRoot[] = "/data/local/tmp/area";
constexpr char kSaved[] = "/data/local/tmp/area/data/property/persistent_properties";
constexpr char kLog[] = "/data/local/tmp/area/dev/bench/properties.log";
constexpr size_t kLongest = 91;
constexpr char kLongText[] = "Must use __system_property_read_callback() to read";
using properties = std::map<std::string, std::string>;

bool begins_with(const std::string& text, const char* prefix) {
  return text.compare(0, strlen(prefix), prefix) == 0;
}

properties all(const PropertyArea& area) {
  properties found;
  for (const auto& property : area.all()) found[property.key] = property.value;
  return found;
}

void set(PropertyArea* area, const std::string& key, const std::string& value, properties* model) {
  const bool read_only = begins_with(key, "ro.");
  const bool done = area->set(key.c_str(), value.c_str()) == 0;
  if (done) require(read_only ? model->count(key) == 0 : value.size() <= kLongest);
  if (done) (*model)[key] = value.size() <= kLongest ? value : kLongText;
  char shown[kLongest + 1];
  const auto held = model->find(key);
  require(area->get(key.c_str(), shown) == static_cast<int>(strlen(shown)));
  require(shown == (held == model->end() ? "" : held->second));
}

void check_reboot(properties before) {
  for (auto it = before.begin(); it != before.end();)
    it = begins_with(it->first, "persist.") ? std::next(it) : before.erase(it);
  PropertyArea area(kRoot);
  require(area.create());
  area.load_persistent();
  require(all(area) == before);
}

void check_damaged_file(const std::string& bytes) {
  {
    const scoped_fd fd(open(kSaved, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    require(write(fd.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  }
  PropertyArea area(kRoot);
  require(area.create());
  area.load_persistent();
  for (const auto& [key, value] : all(area))
    require(begins_with(key, "persist.") && value.size() <= kLongest);
}

}  // namespace

// Input: "key=value" texts, each with a NUL. The whole of it is a damaged file as well.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  for (const char* dir : {"", "/dev", "/dev/bench", "/data", "/data/property"})
    mkdir((std::string(kRoot) + dir).c_str(), 0700);
  unlink(kSaved);
  unlink(kLog);
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  properties model;
  {
    PropertyArea area(kRoot);
    require(area.create());
    for (size_t at = 0; at < size; at += strlen(bytes.c_str() + at) + 1) {
      const std::string line = bytes.c_str() + at;
      const size_t equals = line.find('=');
      if (equals == std::string::npos) continue;
      set(&area, line.substr(0, equals), line.substr(equals + 1), &model);
    }
    require(all(area) == model);
  }
  check_reboot(model);
  check_damaged_file(bytes);
  return 0;
}
