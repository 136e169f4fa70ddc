// The bytes that all processes of a bench phone share: the table behind PropertyArea, without any
// allocation, so that property_get and property_set may run in signal handlers.
//
// Entries are only ever added, and a value is changed by filling the slot that is not shown before
// the counter moves to it. Every store that a reader may meet is atomic; the words of a value are
// stored with release and loaded with acquire, which orders them against the counter without
// fences (thread sanitizers cannot see those).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>

constexpr size_t kPropertyValueMax = 91;         // bytes, without the terminating NUL
constexpr size_t kPropertyWords = 12;            // 8-byte words of a slot: 92 bytes, rounded up
constexpr size_t kPropertyBuckets = 1024;        // a phone has about 700 properties
constexpr size_t kPropertyAreaSize = 512 << 10;  // bytes; about 2000 properties
constexpr uint32_t kPropertyMagic = 0x50524f50;  // "PROP"

// Taken by every writer, see property_writer.cpp.
constexpr char kPropertyLock[] = "/dev/__properties__/lock";

// Lines "key=value\n" of the properties that outlive a boot. A newline in a value is written as \n,
// a backslash as two, here and in the properties log.
constexpr char kPersistentProperties[] = "/data/property/persistent_properties";
constexpr char kPersistentPrefix[] = "persist.";

struct PropertyEntry {
  uint32_t next;                  // offset of the next entry of the bucket, 0 at its end
  std::atomic<uint32_t> counter;  // changes so far; the lowest bit names the slot that is shown
  std::atomic<uint64_t> slots[2][kPropertyWords];  // values with zeros up to the end
  uint32_t hash;
  char key[4];  // with its NUL; as long as needed
};

struct PropertyMap {
  uint32_t magic;
  std::atomic<uint32_t> serial;  // every set; a shared futex
  std::atomic<uint32_t> used;    // bytes, from the start of the map
  uint32_t reserved;
  std::atomic<uint32_t> buckets[kPropertyBuckets];  // offset of the first entry, 0 when empty

  const PropertyEntry* entry(uint32_t offset) const {
    return reinterpret_cast<const PropertyEntry*>(reinterpret_cast<const char*>(this) + offset);
  }
  PropertyEntry* entry(uint32_t offset) {
    return reinterpret_cast<PropertyEntry*>(reinterpret_cast<char*>(this) + offset);
  }

  // Calls visit(entry) for every published property, in no particular order.
  template <typename Visit>
  void for_each(Visit visit) const {
    for (const auto& bucket : buckets) {
      uint32_t offset = bucket.load(std::memory_order_acquire);
      for (; offset != 0; offset = entry(offset)->next) visit(*entry(offset));
    }
  }
};
static_assert(std::atomic<uint64_t>::is_always_lock_free, "shared between processes");
static_assert(sizeof(PropertyMap) % alignof(PropertyEntry) == 0, "entries follow at once");

// Where a path of the phone is found from here: `root` followed by `path`.
class RootedPath {
 public:
  RootedPath(const char* root, const char* path);
  bool valid() const {
    return valid_;
  }  // false when too long; then text() is "", which opens nothing
  const char* text() const { return text_; }

 private:
  char text_[1024];
  bool valid_;
};

// Makes an empty area, its directory and its lock file, and moves it into place at once. False with
// errno on failure.
bool create_property_map(const char* root);

// Maps the area, for reading alone unless `writable`. Null with errno; unmap_property_map() frees
// it.
PropertyMap* map_properties(const char* root, bool writable);
void unmap_properties(PropertyMap* map);

// The entry of `key`, or null.
const PropertyEntry* find_property(const PropertyMap* map, const char* key);

// Copies the value shown into `value` (92 bytes) and returns its length. Repeats the copy when a
// writer was faster; a dead writer cannot hold it up.
int read_property_entry(const PropertyEntry& entry, char* value);

// The writer's side, to be called with the lock of property_writer.cpp held.
// Gives `entry` another value of at most 91 bytes.
void replace_property_value(PropertyEntry* entry, const char* value);
// True when an entry for `key` still fits.
bool property_fits(const PropertyMap* map, const char* key);
// Adds an entry; property_fits() has been asked.
void add_property(PropertyMap* map, const char* key, const char* value);
// Counts a set and wakes those who wait for it.
void announce_property_change(PropertyMap* map);

// Waits until `map->serial` differs from `seen`; PropertyArea::wait().
uint32_t wait_for_property_change(const PropertyMap* map, uint32_t seen, int timeout_ms);

// property_set() on a map opened for writing: 0 or -1. `record`: append the set to the properties
// log and save persistent keys; false while the saved ones are loaded.
int write_property(PropertyMap* map, const char* root, const char* key, const char* value,
                   bool record);
