#include <dirent.h>
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <iterator>
#include <string>

#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "base/thread.h"
#include "debuglog/logcat.h"
#include "debuglog/workers.h"
#include "feedback/feedback.h"
#include "model/feedback_sources.h"
#include "model/log_buffers.h"
#include "selflog/log.h"
#include "storage/copied.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr int kDumpPollMs = 1000;
constexpr int kDumpPolls = 6;
constexpr int kTooManyTraces = 500;

// Dump thread: the last lines of one buffer into <dir>/general.
void dump_buffer(const char* dir, const char* buffer) {
  char path[256];
  format_cut(path, "%s/%s", dir, "general");
  if (is_dir_exist(path) != 0) creat_dir(path);
  build_logcat_file_name(buffer, path);
  creat_file(path);
  LOGD_AS("get_general_log", "catch %s > %s", buffer, path);
  run_shell(ShellText(kLogcat)
                .raw(" -d -v threadtime,usec -t")
                .arg(kDumpLines)
                .raw(" -b")
                .arg(buffer)
                .raw(" -f")
                .target(path));
}

// One buffer's dump, and the thread that it runs on.
struct Dump {
  const char* dir;
  const char* buffer;
  pthread_t thread;
  bool has_thread;
};

void* run_dump(void* arg) {
  const Dump* job = static_cast<const Dump*>(arg);
  dump_buffer(job->dir, job->buffer);
  return nullptr;
}

// Without a thread the dump is made right here.
void start_dump(Dump* job) {
  const int error = pthread_create(&job->thread, nullptr, run_dump, job);
  job->has_thread = error == 0;
  if (job->has_thread) return;
  LOGE_AS("get_general_log", "no thread for %s: %s", job->buffer, strerror(error));
  run_dump(job);
}

// The general worker's body: six threads, one for each buffer.
[[noreturn]] void dump_all_buffers(const char* dir) {
  set_process_name("general");
  Dump dumps[std::size(kLogBuffers)];
  {
    const ScopedSignalBlocker for_the_threads;
    for (size_t i = 0; i < std::size(kLogBuffers); i++) {
      dumps[i] = {dir, kLogBuffers[i], {}, false};
      start_dump(&dumps[i]);
    }
  }
  char general[256];
  format_cut(general, "%s/%s", dir, "general");
  get_logcat_control_message(general);
  for (size_t i = 0; i < std::size(kLogBuffers); i++) {
    LOGD_AS("get_general_log", "wait thread %d to finish.", static_cast<int>(i));
    if (dumps[i].has_thread) pthread_join(dumps[i].thread, nullptr);
    LOGD_AS("get_general_log", "thread %d finished.", static_cast<int>(i));
  }
  LOGD_AS("get_general_log", "process %d all threads finished.", getpid());
  end_process(0);
}

void trim_trace_files() {
  ScopedDir stream(opendir(kAnrDir));
  if (!stream.valid()) {
    LOGE("cannot open /data/anr/");
    return;
  }
  int count = 0;
  while (const dirent* entry = readdir(stream.get())) {
    if (entry->d_name[0] != '.') count++;
  }
  if (count < kTooManyTraces) return;
  LOGE("too many trace files, clear /data/anr/");
  run_shell("rm -f /data/anr/*");
}

}  // namespace

int get_general_log(const char* dir) {
  LOGD("get general log");
  const std::string copied = place_of_copy(kGeneralDir, dir) + "/boot_fail.log";
  copy_dir(kGeneralDir, dir);
  if (is_copied(kStagedBootFailLog, copied.c_str())) {
    run_shell(ShellText("rm -f").removal(kStagedBootFailLog));
  }
  const pid_t pid = fork_process(Group::kNew);
  if (pid == 0) dump_all_buffers(dir);
  int ret = 0;
  if (pid < 1) {
    LOGE("failed to fork child. err:%d(%s).", errno, strerror(errno));
    ret = -1;
  } else {
    const int polls = await_request_child(__func__, pid, kDumpPollMs, kDumpPolls);
    LOGD("wait child %d to finish wastes %d secs", pid, polls);
  }
  trim_trace_files();
  return ret;
}

int stop_general_log() {
  LOGD("function invoked");
  for (int slot = 1; s_general_group != nullptr && slot <= kGroupSlots; slot++) {
    const pid_t pid = s_general_group[slot];
    if (pid < 1) continue;
    signal_process(pid, SIGTERM);
    LOGE("wait s_general_group begin, wait pid %d \n", pid);
    int status = 0;
    const pid_t ret = wait_for(pid, &status);
    LOGD("wait s_general_group over. status=%d, return:%d, errno:%d, pid:%d", status, ret, errno,
         pid);
    s_general_group[slot] = 0;
  }
  LOGE("stop general log over");
  return delete_dir(kGeneralDir);
}
