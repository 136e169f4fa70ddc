#include "phone/boot/root.h"

#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "phone/boot/root_layout.h"
#include "phone/boot/sdcard.h"
#include "phone/boot/sysrq.h"
#include "phone/util.h"
#include "platform/linux/bench_phone.h"

namespace {

// Debian's library directories. Of the host the phone sees only these; /lib* are links into them,
// as on the host.
constexpr const char* kHostLibraries[] = {"/usr/lib", "/usr/lib32", "/usr/lib64", "/usr/libx32"};

// Records the first failure; the steps after it do nothing.
class Builder {
 public:
  Builder(std::string root, std::string* error) : root_(std::move(root)), error_(error) {}

  bool ok() const { return error_->empty(); }
  std::string at(const std::string& path) const { return root_ + path; }

  bool check(bool done, const std::string& what) {
    if (!done && ok()) *error_ = errno_text(what);
    return done;
  }
  void tmpfs(const std::string& path, const std::string& options) {
    if (!ok()) return;
    check(mount("tmpfs", at(path).c_str(), "tmpfs", MS_NOSUID, options.c_str()) == 0,
          "mount tmpfs on " + path);
  }
  // Binds a host file or directory; `read_only` takes effect at once.
  void bind(const std::string& host, const std::string& path, bool read_only) {
    if (!ok()) return;
    struct stat st;
    if (!check(stat(host.c_str(), &st) == 0, "stat " + host)) return;
    const std::string target = at(path);
    if (S_ISDIR(st.st_mode)) {
      check(make_dirs(target, 0755), "make " + path);
    } else {
      check(make_parents(target), "make the directory of " + path);
      Fd fd(open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0755));
      check(fd.ok(), "make " + path);
    }
    // MS_REC: a user namespace must not uncover what mounts below hide.
    check(ok() && mount(host.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
          "bind " + host + " to " + path);
    if (read_only) this->read_only(path, AT_RECURSIVE);
  }
  void read_only(const std::string& path, unsigned flags) {
    if (!ok()) return;
    struct mount_attr attributes = {};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    check(mount_setattr(AT_FDCWD, at(path).c_str(), flags, &attributes, sizeof attributes) == 0,
          "make " + path + " read-only");
  }
  void directory(const DirectoryRow& row) {
    if (!ok()) return;
    const std::string path = at(row.path);
    check(make_dirs(path, row.mode) && chmod(path.c_str(), row.mode) == 0 &&
              chown(path.c_str(), row.uid, row.gid) == 0,
          std::string("make ") + row.path);
  }
  void link(const std::string& text, const std::string& path) {
    if (!ok()) return;
    check(symlink(text.c_str(), at(path).c_str()) == 0, "link " + path);
  }
  void file(const std::string& path, std::string_view text, mode_t mode) {
    if (ok()) check(write_file(at(path), text, mode), "write " + path);
  }
  void copy(const std::string& host, const std::string& path) {
    if (!ok()) return;
    umount2(at(path).c_str(), UMOUNT_NOFOLLOW);  // a bound host program is replaced; EINVAL if none
    check(copy_file(host, at(path)), "copy " + host + " to " + path);
  }

 private:
  std::string root_;
  std::string* error_;
};

void add_host_libraries(Builder* b) {
  for (const char* library : kHostLibraries) {
    struct stat st;
    if (lstat(library, &st) != 0) continue;
    b->bind(library, library, true);
    b->link(library + 1, library + strlen("/usr"));  // /lib -> usr/lib
  }
}

// Where Debian has installed a program.
std::string host_program(const std::string& name) {
  for (const char* place : {"/usr/bin/", "/usr/sbin/", "/bin/", "/sbin/"}) {
    if (access((place + name).c_str(), X_OK) == 0) return place + name;
  }
  return "/usr/bin/" + name;  // for the error message
}

void add_programs(Builder* b, const PhoneParts& parts) {
  for (const ProgramRow& row : kOwnPrograms) b->bind(parts.tools + "/" + row.from, row.to, true);
  for (const ProgramRow& row : kHostPrograms) b->bind(host_program(row.from), row.to, true);
  for (const char* applet : kToyboxApplets) b->link("toybox", std::string("/system/bin/") + applet);
  for (const char* script : kScripts) b->copy(parts.tools + script, script);
  for (const char* source : kPolicySources) b->copy(parts.tools + source, source);
  if (!parts.daemon.empty()) b->bind(parts.daemon, kPhoneDaemon, true);
  if (!parts.client.empty()) b->bind(parts.client, kPhoneClient, true);
}

void add_devices(Builder* b) {
  for (const char* node : kDeviceNodes) {
    if (access(node, F_OK) == 0) b->bind(node, node, false);
  }
  if (!b->ok()) return;
  b->check(mount("devpts", b->at("/dev/pts").c_str(), "devpts", MS_NOSUID | MS_NOEXEC,
                 "newinstance,ptmxmode=0666,mode=0620") == 0,
           "mount devpts on /dev/pts");
  b->link("pts/ptmx", "/dev/ptmx");
  b->link("/proc/self/fd", "/dev/fd");
  b->file(kBenchPhoneMarker, "bench phone\n", 0444);
  for (const char* name : {"calls.log", "properties.log", "init.log", "sysrq"})
    b->file(std::string("/dev/bench/") + name, "", 0666);
}

// A new /proc for the pid namespace. What could affect the machine is masked or read-only.
void add_proc(Builder* b) {
  if (!b->ok()) return;
  b->check(
      mount("proc", b->at("/proc").c_str(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0,
      "mount proc");
  if (!b->ok()) return;
  std::string error;
  if (!mask_sysrq_trigger(b->at("/proc"), b->at("/dev/bench/sysrq"), &error)) {
    errno = EPERM;
    b->check(false, error);
  }
  // Kernel settings are the machine's.
  if (access(b->at("/proc/sys").c_str(), F_OK) == 0) {
    b->check(mount(b->at("/proc/sys").c_str(), b->at("/proc/sys").c_str(), nullptr,
                   MS_BIND | MS_REC, nullptr) == 0,
             "bind /proc/sys");
    b->read_only("/proc/sys", 0);
  }
}

void add_canned_files(Builder* b) {
  for (const FileRow& row : kCannedFiles) b->file(row.path, row.text, row.mode);
  for (const char* fifo : kFifos) {
    if (!b->ok()) return;
    b->check(make_parents(b->at(fifo)) && mkfifo(b->at(fifo).c_str(), 0600) == 0,
             std::string("make ") + fifo);
  }
}

// /sdcard: /data/media/0 as apps see it, or a bind mount of it without FUSE or if `plain`.
void add_sdcard(Builder* b, bool plain) {
  if (!b->ok()) return;
  Fd lower(open(b->at("/data/media/0").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const std::string sdcard = b->at("/sdcard");
  if (!plain && mount_sdcard(lower.get(), sdcard.c_str())) return;
  b->check(mount(b->at("/data/media/0").c_str(), sdcard.c_str(), nullptr, MS_BIND, nullptr) == 0,
           "show /data/media/0 as /sdcard");
}

// Stacks the old root under the new one, then unmounts it.
bool become_root(const PhoneParts& parts) {
  Fd old_root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (chdir(parts.mount_point.c_str()) != 0) return false;
  if (syscall(SYS_pivot_root, ".", ".") != 0) return false;
  unlinkat(old_root.get(), parts.mount_point.c_str() + 1, AT_REMOVEDIR);
  return umount2(".", MNT_DETACH) == 0 && chdir("/") == 0;
}

}  // namespace

bool find_phone_parts(const PhoneOptions& options, PhoneParts* parts, std::string* error) {
  char self[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self);
  if (length <= 0 || length == sizeof self) {
    *error = errno_text("cannot read /proc/self/exe");
    return false;
  }
  parts->tools.assign(self, length);
  parts->tools.resize(parts->tools.rfind('/'));
  parts->daemon = parts->tools + "/../daemon/harrowmossd";
  parts->client = parts->tools + "/../client/harrowmossctl";
  if (!options.daemon.empty()) {
    char resolved[PATH_MAX];
    parts->daemon =
        realpath(options.daemon.c_str(), resolved) != nullptr ? resolved : options.daemon;
  }
  if (access(parts->client.c_str(), X_OK) != 0) parts->client.clear();
  if (access(parts->daemon.c_str(), X_OK) == 0) return true;
  if (options.services || !options.daemon.empty()) {
    *error = "no daemon at " + parts->daemon + ": build it, or use --no-daemon";
    return false;
  }
  parts->daemon.clear();
  return true;
}

bool enter_phone_root(const PhoneParts& parts, const PhoneOptions& options, std::string* error) {
  umask(0);
  Builder b(parts.mount_point, error);
  b.check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "make mounts private");
  b.tmpfs("", "mode=0755,size=1g");  // for what --file copies
  for (const DirectoryRow& row : kRootDirectories) b.directory(row);
  for (const LinkRow& row : kRootLinks) b.link(row.text, row.path);
  if (options.loose.count("tmp") == 1) {
    b.directory({"/tmp", 01777, kAidRoot, kAidRoot});
    b.tmpfs("/tmp", "mode=1777,size=64m");
  }
  for (const MountRow& row : kMounts) b.tmpfs(row.path, row.options);
  // 0771 on a phone; SELinux policy lets few services create entries in it.
  const char* data_mode = options.loose.count("data") == 1 ? "0771" : "0751";
  b.tmpfs("/data",
          std::string("uid=1000,gid=1000,mode=") + data_mode + ",size=" + options.data_size);
  for (const DirectoryRow& row : kDirectories) b.directory(row);
  for (const LinkRow& row : kLateLinks) b.link(row.text, row.path);
  if (!options.one_pool)
    b.tmpfs("/data/media/0", "mode=0770,uid=1023,gid=1023,size=" + options.sdcard_size);
  add_sdcard(&b, options.loose.count("sdcard") == 1);
  add_host_libraries(&b);
  add_programs(&b, parts);
  add_devices(&b);
  add_proc(&b);
  add_canned_files(&b);
  for (const auto& [host, path] : options.files) b.copy(host, path);
#ifdef HARROWMOSS_PROFILES  // where the coverage build's programs write their counters
  b.bind(HARROWMOSS_PROFILES, HARROWMOSS_PROFILES, false);
#endif
  b.read_only("", 0);
  if (b.ok()) b.check(become_root(parts), "change the root");
  return b.ok();
}
