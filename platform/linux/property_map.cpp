#include "platform/linux/property_map.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/futex.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "base/scoped.h"

namespace {

constexpr char kAreaDirectory[] = "/dev/__properties__";
constexpr char kArea[] = "/dev/__properties__/area";
constexpr char kNewArea[] = "/dev/__properties__/area.new";

// FNV-1a, 32 bits: short keys with common beginnings spread well.
uint32_t hash_of(const char* key) {
  uint32_t hash = 2166136261u;
  for (; *key != '\0'; ++key) hash = (hash ^ static_cast<uint8_t>(*key)) * 16777619u;
  return hash;
}

bool holds_zero_byte(uint64_t word) {
  return ((word - 0x0101010101010101u) & ~word & 0x8080808080808080u) != 0;
}

void fill_slot(std::atomic<uint64_t>* slot, const char* value) {
  uint64_t words[kPropertyWords] = {};
  memcpy(words, value, strlen(value));
  for (size_t i = 0; i < kPropertyWords; i++) {
    slot[i].store(words[i], std::memory_order_release);
  }
}

// Bytes that an entry for `key` takes, a multiple of 8.
size_t entry_size(const char* key) {
  return (offsetof(PropertyEntry, key) + strlen(key) + 1 + 7) & ~size_t{7};
}

PropertyMap* map_file(int fd, int protection) {
  void* memory = mmap(nullptr, kPropertyAreaSize, protection, MAP_SHARED, fd, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<PropertyMap*>(memory);
}

}  // namespace

RootedPath::RootedPath(const char* root, const char* path) : text_(), valid_(false) {
  const size_t root_size = strlen(root);
  const size_t path_size = strlen(path);
  if (root_size + path_size >= sizeof(text_)) return;
  memcpy(text_, root, root_size);
  memcpy(text_ + root_size, path, path_size + 1);
  valid_ = true;
}

bool create_property_map(const char* root) {
  const RootedPath directory(root, kAreaDirectory);
  const RootedPath area(root, kArea);
  const RootedPath fresh(root, kNewArea);
  const RootedPath lock(root, kPropertyLock);
  // chmod: the modes below must not depend on the umask of init.
  if (mkdir(directory.text(), 0755) != 0 && errno != EEXIST) return false;
  if (chmod(directory.text(), 0755) != 0) return false;
  const ScopedFd lock_fd(open(lock.text(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock_fd.valid()) return false;
  const ScopedFd fd(open(fresh.text(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!fd.valid() || fchmod(fd.get(), 0644) != 0) return false;
  if (ftruncate(fd.get(), kPropertyAreaSize) != 0) return false;
  PropertyMap* map = map_file(fd.get(), PROT_READ | PROT_WRITE);
  if (map == nullptr) return false;
  map->magic = kPropertyMagic;
  map->used.store(sizeof(PropertyMap), std::memory_order_release);
  unmap_properties(map);
  return rename(fresh.text(), area.text()) == 0;
}

PropertyMap* map_properties(const char* root, bool writable) {
  const RootedPath area(root, kArea);
  const ScopedFd fd(open(area.text(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC));
  if (!fd.valid()) return nullptr;
  struct stat info;
  if (fstat(fd.get(), &info) != 0) return nullptr;
  if (info.st_size != static_cast<off_t>(kPropertyAreaSize)) {
    errno = EINVAL;
    return nullptr;
  }
  PropertyMap* map = map_file(fd.get(), writable ? PROT_READ | PROT_WRITE : PROT_READ);
  if (map != nullptr && map->magic != kPropertyMagic) {
    unmap_properties(map);
    errno = EINVAL;
    return nullptr;
  }
  return map;
}

void unmap_properties(PropertyMap* map) {
  if (map != nullptr) munmap(map, kPropertyAreaSize);
}

const PropertyEntry* find_property(const PropertyMap* map, const char* key) {
  const uint32_t hash = hash_of(key);
  uint32_t offset = map->buckets[hash % kPropertyBuckets].load(std::memory_order_acquire);
  while (offset != 0) {
    const PropertyEntry* entry = map->entry(offset);
    if (entry->hash == hash && strcmp(entry->key, key) == 0) return entry;
    offset = entry->next;
  }
  return nullptr;
}

int read_property_entry(const PropertyEntry& entry, char* value) {
  union {
    uint64_t words[kPropertyWords];
    char text[kPropertyWords * sizeof(uint64_t)];
  } copy;
  uint32_t counter = entry.counter.load(std::memory_order_acquire);
  for (;;) {
    const std::atomic<uint64_t>* slot = entry.slots[counter & 1];
    for (size_t i = 0; i < kPropertyWords; i++) {
      copy.words[i] = slot[i].load(std::memory_order_acquire);
      if (holds_zero_byte(copy.words[i])) break;
    }
    const uint32_t now = entry.counter.load(std::memory_order_acquire);
    if (now == counter) break;
    counter = now;
  }
  copy.text[kPropertyValueMax] = '\0';
  const size_t length = strlen(copy.text);
  memcpy(value, copy.text, length + 1);
  return static_cast<int>(length);
}

void replace_property_value(PropertyEntry* entry, const char* value) {
  const uint32_t counter = entry->counter.load(std::memory_order_acquire);
  fill_slot(entry->slots[(counter + 1) & 1], value);
  entry->counter.store(counter + 1, std::memory_order_release);
}

bool property_fits(const PropertyMap* map, const char* key) {
  return entry_size(key) <= kPropertyAreaSize - map->used.load(std::memory_order_acquire);
}

void add_property(PropertyMap* map, const char* key, const char* value) {
  const uint32_t offset = map->used.load(std::memory_order_acquire);
  PropertyEntry* entry = map->entry(offset);
  entry->hash = hash_of(key);
  std::atomic<uint32_t>& bucket = map->buckets[entry->hash % kPropertyBuckets];
  entry->next = bucket.load(std::memory_order_acquire);
  entry->counter.store(0, std::memory_order_release);
  fill_slot(entry->slots[0], value);
  memcpy(reinterpret_cast<char*>(entry) + offsetof(PropertyEntry, key), key, strlen(key) + 1);
  // In this order: a writer killed in between leaves a hole, never an entry that the next
  // overwrites.
  map->used.store(offset + static_cast<uint32_t>(entry_size(key)), std::memory_order_release);
  bucket.store(offset, std::memory_order_release);
}

void announce_property_change(PropertyMap* map) {
  map->serial.fetch_add(1, std::memory_order_acq_rel);
  syscall(SYS_futex, &map->serial, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

uint32_t wait_for_property_change(const PropertyMap* map, uint32_t seen, int timeout_ms) {
  timespec deadline = {};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += timeout_ms / 1000;
  deadline.tv_nsec += (timeout_ms % 1000) * 1000000L;
  if (deadline.tv_nsec >= 1000000000L) {
    deadline.tv_nsec -= 1000000000L;
    ++deadline.tv_sec;
  }
  for (;;) {
    const uint32_t serial = map->serial.load(std::memory_order_acquire);
    if (serial != seen || timeout_ms <= 0) return serial;
    // FUTEX_WAIT_BITSET takes the time when to give up instead of how long to wait.
    const long result = syscall(SYS_futex, &map->serial, FUTEX_WAIT_BITSET, seen, &deadline,
                                nullptr, FUTEX_BITSET_MATCH_ANY);
    if (result != 0 && errno == ETIMEDOUT) return map->serial.load(std::memory_order_acquire);
  }
}
