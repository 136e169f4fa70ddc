#include "tests/support/fake_service.h"

#include <dirent.h>
#include <grp.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "phone/util.h"

static constexpr const char* kSwitch = "FAKE_SERVICE";
static constexpr const char* kSocketVariable = "ANDROID_SOCKET_harrowmossd";

std::vector<std::string> fake_service_options() {
  return {"--daemon", std::filesystem::read_symlink("/proc/self/exe"), "--env",
          std::string(kSwitch) + "=1"};
}

static void note_everything() {
  std::string notes;
  const auto note = [&notes](const std::string& name, const std::string& value) {
    notes += name + "=" + value + "\n";
  };
  char text[PATH_MAX];
  note("pid", std::to_string(getpid()));
  note("ppid", std::to_string(getppid()));
  note("sid", std::to_string(getsid(0)));
  snprintf(text, sizeof text, "%03o", umask(0));
  note("umask", text);
  note("cwd", getcwd(text, sizeof text));
  std::string open_files;
  DIR* descriptors = opendir("/proc/self/fd");
  while (const dirent* entry = readdir(descriptors)) {
    const int fd = atoi(entry->d_name);
    if (entry->d_name[0] == '.' || fd == dirfd(descriptors)) continue;
    const ssize_t n =
        readlink((std::string("/proc/self/fd/") + entry->d_name).c_str(), text, sizeof text);
    const std::string target(text, n > 0 ? n : 0);
    open_files += target.substr(0, target.find('[')) + " ";
  }
  closedir(descriptors);
  note("fds", open_files);
  gid_t groups[64];
  const int count = getgroups(64, groups);
  std::string numbers = std::to_string(getgid());
  for (int i = 0; i < count; i++) numbers += " " + std::to_string(groups[i]);
  note("groups", numbers);
  for (char** variable = environ; *variable != nullptr; variable++)
    notes += "env." + std::string(*variable) + "\n";
  write_file(kFakeServiceNotes, notes, 0644);
}

static void leave_processes() {
  if (fork() == 0) {
    setsid();
    prctl(PR_SET_NAME, kFakeServiceLeaves[0]);
    signal(SIGTERM, SIG_IGN);
    while (true) pause();
  }
  if (fork() == 0) {
    if (fork() == 0) {
      prctl(PR_SET_NAME, kFakeServiceLeaves[1]);
      while (true) pause();
    }
    _exit(0);
  }
  if (fork() == 0) {
    execl("/system/bin/sleep", kFakeServiceLeaves[2], "1000000", nullptr);
    _exit(127);
  }
}

// Before main(): in the phone this binary is a service, not a test runner.
__attribute__((constructor)) static void become_fake_service() {
  const char* socket_number = getenv(kSocketVariable);
  if (getenv(kSwitch) == nullptr || socket_number == nullptr) return;
  note_everything();
  leave_processes();
  if (listen(atoi(socket_number), 5) != 0) _exit(1);
  while (true) pause();
}
