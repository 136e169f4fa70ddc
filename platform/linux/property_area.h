// The shared memory behind property_get and property_set: one mapping, hashed by name.
//
// Readers make no system call and take no lock. Each entry holds two value slots and a counter; a
// writer fills the slot that is not shown and then advances the counter, so a writer that is killed
// at any point leaves the old or the new value whole. Writers serialise with a file lock, which
// dies with its owner, taken with all signals blocked because handlers set properties too.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

class PropertyArea {
 public:
  // `root` goes before every path: "" inside a phone, "/proc/PID/root" to look in from outside.
  explicit PropertyArea(std::string root = "");
  ~PropertyArea();
  PropertyArea(const PropertyArea&) = delete;
  PropertyArea& operator=(const PropertyArea&) = delete;

  // Makes an empty area and its directory (init at boot only). False with errno on failure.
  bool create();
  // Maps an existing area. False with errno on failure.
  bool open();

  // The length of the value in bytes, copied into `value` (92 bytes); 0 with "" when unset.
  int get(const char* key, char* value) const;
  // 0 or -1, the rules of property_set. Persistent keys also go to
  // /data/property/persistent_properties (temporary file, fsync, rename) and every set is appended
  // to /dev/bench/properties.log as "pid key=value\n", in the order in which the sets took effect
  // and before the value shows. In both files a newline in a value is written as \n and a backslash
  // as two. A long "ro." value stands in the log as it reads.
  int set(const char* key, const char* value);

  // Loads /data/property/persistent_properties; missing or damaged lines are skipped.
  // Not logged: it is no set of anybody's.
  void load_persistent();

  // Counts every set. wait() returns the new count once it differs from `seen`, or `seen` after
  // `timeout_ms` (0 or less: at once). A writer killed just after its value showed was not counted.
  uint32_t serial() const;
  uint32_t wait(uint32_t seen, int timeout_ms) const;

  struct Property {
    std::string key;
    std::string value;
  };
  std::vector<Property> all() const;  // sorted by key

 private:
  struct Map;
  Map* map_ = nullptr;
  std::string root_;
};
