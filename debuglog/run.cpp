#include "debuglog/run.h"

#include <errno.h>
#include <string.h>
#include <sys/mman.h>

#include "base/text.h"
#include "model/run_name.h"
#include "selflog/log.h"
#include "storage/utils.h"

char s_log_store_path[256];
char s_vendor_log_root_path[256];
char s_log_dir_name[32];
bool s_extended_logcat_count = false;
std::atomic<int32_t> s_self_log_collector_pid{0};

namespace {

constexpr char kLogSource[] = "commands";

// Two slots and the count of runs entered: a name is written into the unused slot, which becomes
// the current one when the count is raised. One process writes at a time: a size monitor that was
// told to end starts no run.
struct RunPage {
  using Word = std::atomic<uint64_t>;
  static constexpr size_t kWords = sizeof(s_log_dir_name) / sizeof(uint64_t);

  std::atomic<uint32_t> entered;  // slot `entered` % 2 is the current one
  Word slots[2][kWords];
};
static_assert(RunPage::Word::is_always_lock_free && std::atomic<uint32_t>::is_always_lock_free,
              "a killed process would leave a lock taken");

RunPage s_own_page;  // until it is shared
RunPage* s_page = &s_own_page;

void take_paths(const char* name) {
  copy_or_abort(s_log_dir_name, name);
  format_cut(s_log_store_path, "%s%s", kWorkingDir, s_log_dir_name);
  format_cut(s_vendor_log_root_path, "%s%s", kVendorRunsDir, s_log_dir_name);
}

}  // namespace

void share_current_run() {
  void* const page =
      mmap(nullptr, sizeof(RunPage), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    LOGE("no shared page: %s", strerror(errno));
    return;
  }
  s_page = static_cast<RunPage*>(page);  // zeroed by the kernel: no run yet
}

void enter_run(const char* name) {
  take_paths(name);
  uint64_t words[RunPage::kWords] = {};
  memcpy(words, s_log_dir_name, strlen(s_log_dir_name));
  const uint32_t next = s_page->entered.load() + 1;
  for (size_t i = 0; i < RunPage::kWords; i++) s_page->slots[next % 2][i].store(words[i]);
  s_page->entered.store(next);
}

std::string current_run_name() {
  for (;;) {
    const uint32_t entered = s_page->entered.load();
    uint64_t words[RunPage::kWords];
    for (size_t i = 0; i < RunPage::kWords; i++) words[i] = s_page->slots[entered % 2][i].load();
    if (s_page->entered.load() != entered) continue;  // the slot may have been written meanwhile
    char name[sizeof(words) + 1] = {};
    memcpy(name, words, sizeof(words));
    return name;
  }
}

bool follow_current_run() {
  const std::string name = current_run_name();
  if (name.empty() || name == s_log_dir_name) return false;
  take_paths(name.c_str());
  return true;
}

bool is_stored_run(const std::string& path) {
  return starts_with(path.c_str(), kStoreDir) &&
         run_number(std::string_view(path).substr(strlen(kStoreDir))) >= 0;
}
