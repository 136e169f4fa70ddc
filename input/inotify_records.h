// Records of one read() from an inotify descriptor.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/inotify.h>

// Calls `visit(mask, name)` for each record with a name among the `size` bytes at `bytes`, which
// need no alignment; `name` has its NUL. A record that is not whole ends the walk.
template <typename Visit>
void for_each_named_record(const char* bytes, size_t size, Visit visit) {
  while (size >= sizeof(inotify_event)) {
    inotify_event record;
    memcpy(&record, bytes, sizeof(record));
    const char* name = bytes + sizeof(record);
    size -= sizeof(record);
    if (record.len > size) return;
    if (strnlen(name, record.len) < record.len && name[0] != '\0') visit(record.mask, name);
    bytes = name + record.len;
    size -= record.len;
  }
}
