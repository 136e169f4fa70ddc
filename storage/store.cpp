#include "storage/store.h"

#include <limits.h>
#include <sys/vfs.h>

#include "model/paths.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";

void create_root(const char* path) {
  LOGW_AS("create_store_dir_if_needed", "%s not exists, create it.", path);
  creat_dir(path);
}

}  // namespace

int create_store_dir_if_needed() {
  struct statfs info;
  if (statfs(kSdcard, &info) != 0) return 0;  // shared storage is not mounted yet
  if (is_dir_exist(kMediaStoreDir) != 0 && statfs(kMediaRoot, &info) == 0) {
    create_root(kMediaStoreDir);
  }
  if (is_dir_exist(kStoreDir) != 0) create_root(kStoreDir);
  return 0;
}

int get_log_dir_sequence() {
  return get_count_prop(kSequenceProp, 0, INT_MAX - 1);  // the next one is a number too
}
