#include "phone/boot/sdcard.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <linux/fuse.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/uio.h>

#include <algorithm>
#include <map>
#include <unordered_map>
#include <utility>

#include "phone/boot/root_layout.h"
#include "phone/util.h"

namespace {

constexpr uint32_t kMaxPages = 256;
constexpr uint32_t kMaxWrite = kMaxPages * 4096;
// Plus a page for headers, as the kernel requires.
constexpr size_t kRequestBytes = kMaxWrite + 4096;
constexpr int kFirstOwnFd = 64;  // above every descriptor of the launcher
constexpr mode_t kFileMode = 0660, kDirectoryMode = S_ISGID | 0770;

struct Request {
  const fuse_in_header* header;
  const char* body;
  size_t size;

  template <typename In>
  const In& as() const {
    return *reinterpret_cast<const In*>(body);
  }
  // The NUL-terminated name after the first `skip` bytes.
  const char* name(size_t skip = 0) const { return body + skip; }
};

// The kernel knows a file by a number, the server by its place in the tree, as the platform's
// server does: renaming a directory moves everything below it.
struct Node {
  uint64_t parent = 0;
  std::string name;
  ino_t inode = 0;
  uint64_t lookups = 0;        // references that the kernel has
  bool gone = false;           // removed or replaced; reachable through `open` only
  std::vector<int> open = {};  // handles
};

class Server {
 public:
  Server(int fuse, int lower) : fuse_(fuse), lower_(lower) { nodes_[FUSE_ROOT_ID].lookups = 1; }
  [[noreturn]] void run();

 private:
  using Op = int (Server::*)(const Request&);  // 0 or -errno; the answer goes to reply_
  struct OpRow {
    uint32_t opcode;
    Op run;
  };
  static const OpRow kOps[];

  int init(const Request&);
  int lookup(const Request&);
  int forget(const Request&);
  int batch_forget(const Request&);
  int getattr(const Request&);
  int setattr(const Request&);
  int readlink(const Request&);
  int refuse(const Request&) { return -EPERM; }
  int mkdir(const Request&);
  int remove(const Request&);
  int rename(const Request&);
  int open(const Request&);
  int create(const Request&);
  int read(const Request&);
  int write(const Request&);
  int fallocate(const Request&);
  int release(const Request&);
  int readdir(const Request&);
  int statfs(const Request&);
  int nothing(const Request&) { return 0; }

  int serve(const Request& request);
  std::string path(uint64_t id, const char* name = nullptr) const;
  int handle_of(uint64_t id) const;
  int attributes(uint64_t id, fuse_attr* attr) const;
  int enter(uint64_t parent, const char* name, fuse_entry_out* entry);
  void drop(uint64_t id, uint64_t lookups);
  void detach(uint64_t parent, const std::string& name);
  int add_handle(uint64_t id, int fd, fuse_open_out* out);
  int rename_node(const Request& request, uint64_t new_parent, const char* name, unsigned flags);

  template <typename Out>
  Out* answer() {
    reply_.assign(sizeof(Out), '\0');
    return reinterpret_cast<Out*>(reply_.data());
  }

  int fuse_, lower_;
  uint64_t next_ = FUSE_ROOT_ID + 1;
  std::unordered_map<uint64_t, Node> nodes_;
  std::map<std::pair<uint64_t, std::string>, uint64_t> by_name_;
  std::map<int, std::vector<std::pair<std::string, fuse_dirent>>> listings_;  // by handle
  std::string reply_;
};

// An opcode without a row gives ENOSYS; the kernel then works without it, as for access(), flush()
// and extended attributes.
const Server::OpRow Server::kOps[] = {
    {FUSE_INIT, &Server::init},           {FUSE_LOOKUP, &Server::lookup},
    {FUSE_FORGET, &Server::forget},       {FUSE_BATCH_FORGET, &Server::batch_forget},
    {FUSE_GETATTR, &Server::getattr},     {FUSE_SETATTR, &Server::setattr},
    {FUSE_READLINK, &Server::readlink},   {FUSE_SYMLINK, &Server::refuse},
    {FUSE_MKNOD, &Server::refuse},        {FUSE_LINK, &Server::refuse},
    {FUSE_MKDIR, &Server::mkdir},         {FUSE_UNLINK, &Server::remove},
    {FUSE_RMDIR, &Server::remove},        {FUSE_RENAME, &Server::rename},
    {FUSE_RENAME2, &Server::rename},      {FUSE_OPEN, &Server::open},
    {FUSE_OPENDIR, &Server::open},        {FUSE_CREATE, &Server::create},
    {FUSE_READ, &Server::read},           {FUSE_WRITE, &Server::write},
    {FUSE_FALLOCATE, &Server::fallocate}, {FUSE_RELEASE, &Server::release},
    {FUSE_RELEASEDIR, &Server::release},  {FUSE_READDIR, &Server::readdir},
    {FUSE_STATFS, &Server::statfs},       {FUSE_FSYNC, &Server::nothing},
    {FUSE_FSYNCDIR, &Server::nothing},
};

int failure(int result) {
  return result < 0 ? -errno : 0;
}

void fill(const struct stat& st, fuse_attr* attr) {
  attr->ino = st.st_ino;
  attr->size = st.st_size;
  attr->blocks = st.st_blocks;
  attr->atime = st.st_atim.tv_sec;
  attr->mtime = st.st_mtim.tv_sec;
  attr->ctime = st.st_ctim.tv_sec;
  attr->atimensec = st.st_atim.tv_nsec;
  attr->mtimensec = st.st_mtim.tv_nsec;
  attr->ctimensec = st.st_ctim.tv_nsec;
  attr->mode = st.st_mode;
  attr->nlink = st.st_nlink;
  attr->uid = st.st_uid;
  attr->gid = st.st_gid;
  attr->rdev = st.st_rdev;
  attr->blksize = st.st_blksize;
}

// ---- Nodes ----

// Relative to the lower directory.
std::string Server::path(uint64_t id, const char* name) const {
  std::string text = name == nullptr ? "" : name;
  for (; id != FUSE_ROOT_ID;) {
    const Node& node = nodes_.at(id);
    text = text.empty() ? node.name : node.name + "/" + text;
    id = node.parent;
  }
  return text.empty() ? "." : text;
}

// A handle of a removed file; -1: the file has a path.
int Server::handle_of(uint64_t id) const {
  const Node& node = nodes_.at(id);
  return node.gone && !node.open.empty() ? node.open.back() : -1;
}

int Server::attributes(uint64_t id, fuse_attr* attr) const {
  struct stat st;
  const int fd = handle_of(id);
  if (fd < 0 && nodes_.at(id).gone) return -ENOENT;
  if ((fd >= 0 ? fstat(fd, &st) : fstatat(lower_, path(id).c_str(), &st, AT_SYMLINK_NOFOLLOW)) != 0)
    return -errno;
  fill(st, attr);
  return 0;
}

// Answers with the node of `name`: the known one if it is still the same file. All validity times
// stay 0, because the files are also changed through /data/media.
int Server::enter(uint64_t parent, const char* name, fuse_entry_out* entry) {
  struct stat st;
  if (fstatat(lower_, path(parent, name).c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return -errno;
  const auto known = by_name_.find({parent, name});
  uint64_t id = known == by_name_.end() ? 0 : known->second;
  if (id != 0 && nodes_.at(id).inode != st.st_ino) {
    detach(parent, name);
    id = 0;
  }
  if (id == 0) {
    id = next_++;
    nodes_[parent].lookups++;  // a child references its parent
    Node& node = nodes_[id];
    node.parent = parent;
    node.name = name;
    node.inode = st.st_ino;
    by_name_[{parent, name}] = id;
  }
  nodes_[id].lookups++;
  entry->nodeid = id;
  fill(st, &entry->attr);
  return 0;
}

void Server::detach(uint64_t parent, const std::string& name) {
  const auto found = by_name_.find({parent, name});
  if (found == by_name_.end()) return;
  nodes_[found->second].gone = true;
  by_name_.erase(found);
}

void Server::drop(uint64_t id, uint64_t lookups) {
  while (id != FUSE_ROOT_ID) {
    const auto found = nodes_.find(id);
    if (found == nodes_.end()) return;
    Node& node = found->second;
    node.lookups -= std::min(lookups, node.lookups);
    if (node.lookups > 0) return;
    const uint64_t parent = node.parent;
    if (!node.gone) by_name_.erase({parent, node.name});
    nodes_.erase(found);
    id = parent;
    lookups = 1;
  }
}

int Server::lookup(const Request& r) {
  return enter(r.header->nodeid, r.name(), answer<fuse_entry_out>());
}

int Server::forget(const Request& r) {
  drop(r.header->nodeid, r.as<fuse_forget_in>().nlookup);
  return 0;
}

int Server::batch_forget(const Request& r) {
  const auto* all = reinterpret_cast<const fuse_forget_one*>(r.body + sizeof(fuse_batch_forget_in));
  for (uint32_t i = 0; i < r.as<fuse_batch_forget_in>().count; i++)
    drop(all[i].nodeid, all[i].nlookup);
  return 0;
}

int Server::getattr(const Request& r) {
  return attributes(r.header->nodeid, &answer<fuse_attr_out>()->attr);
}

// Sets size and times; owner and mode are ignored.
int Server::setattr(const Request& r) {
  const auto& in = r.as<fuse_setattr_in>();
  const uint64_t id = r.header->nodeid;
  const int fd = (in.valid & FATTR_FH) != 0 ? static_cast<int>(in.fh) : handle_of(id);
  const std::string file = path(id);
  if ((in.valid & FATTR_SIZE) != 0) {
    const off_t size = static_cast<off_t>(in.size);
    Fd opened(fd >= 0 ? -1 : openat(lower_, file.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    if (ftruncate(fd >= 0 ? fd : opened.get(), size) != 0) return -errno;
  }
  if ((in.valid & (FATTR_ATIME | FATTR_MTIME)) != 0) {
    const auto time = [&](uint32_t given, uint32_t now, uint64_t seconds, uint32_t ns) {
      const long when = (in.valid & now) != 0 ? UTIME_NOW : static_cast<long>(ns);
      return timespec{static_cast<time_t>(seconds), (in.valid & given) != 0 ? when : UTIME_OMIT};
    };
    const timespec times[] = {time(FATTR_ATIME, FATTR_ATIME_NOW, in.atime, in.atimensec),
                              time(FATTR_MTIME, FATTR_MTIME_NOW, in.mtime, in.mtimensec)};
    const int result =
        fd >= 0 ? futimens(fd, times) : utimensat(lower_, file.c_str(), times, AT_SYMLINK_NOFOLLOW);
    if (result != 0) return -errno;
  }
  return getattr(r);
}

int Server::readlink(const Request& r) {
  char text[4096];
  const ssize_t length = readlinkat(lower_, path(r.header->nodeid).c_str(), text, sizeof text);
  if (length < 0) return -errno;
  reply_.assign(text, static_cast<size_t>(length));
  return 0;
}

// ---- Names ----

int Server::mkdir(const Request& r) {
  const char* name = r.name(sizeof(fuse_mkdir_in));
  const std::string directory = path(r.header->nodeid, name);
  if (mkdirat(lower_, directory.c_str(), 0770) != 0 ||
      fchownat(lower_, directory.c_str(), kAidMedia, kAidMedia, AT_SYMLINK_NOFOLLOW) != 0 ||
      fchmodat(lower_, directory.c_str(), kDirectoryMode, 0) != 0)
    return -errno;
  return enter(r.header->nodeid, name, answer<fuse_entry_out>());
}

int Server::remove(const Request& r) {
  const int flags = r.header->opcode == FUSE_RMDIR ? AT_REMOVEDIR : 0;
  if (unlinkat(lower_, path(r.header->nodeid, r.name()).c_str(), flags) != 0) return -errno;
  detach(r.header->nodeid, r.name());
  return 0;
}

int Server::rename_node(const Request& r, uint64_t parent, const char* name, unsigned flags) {
  const uint64_t old_parent = r.header->nodeid;
  const char* new_name = name + strlen(name) + 1;
  if (flags > 1) return -EINVAL;  // RENAME_NOREPLACE only
  if (renameat2(lower_, path(old_parent, name).c_str(), lower_, path(parent, new_name).c_str(),
                flags) != 0)
    return -errno;
  const auto found = by_name_.find({old_parent, name});
  const uint64_t id = found == by_name_.end() ? 0 : found->second;
  if (id != 0 && parent == old_parent && strcmp(name, new_name) == 0) return 0;
  detach(parent, new_name);
  if (id == 0) return 0;
  by_name_.erase(found);
  by_name_[{parent, new_name}] = id;
  nodes_[parent].lookups++;
  nodes_[id].parent = parent;
  nodes_[id].name = new_name;
  drop(old_parent, 1);
  return 0;
}

int Server::rename(const Request& r) {
  if (r.header->opcode == FUSE_RENAME)
    return rename_node(r, r.as<fuse_rename_in>().newdir, r.name(sizeof(fuse_rename_in)), 0);
  const auto& in = r.as<fuse_rename2_in>();
  return rename_node(r, in.newdir, r.name(sizeof(fuse_rename2_in)), in.flags);
}

// ---- Files ----

// A handle is a descriptor. Direct I/O: what is written through /data/media is visible at once.
int Server::add_handle(uint64_t id, int fd, fuse_open_out* out) {
  if (fd < 0) return -errno;
  nodes_[id].open.push_back(fd);
  out->fh = static_cast<uint64_t>(fd);
  out->open_flags = FOPEN_DIRECT_IO;
  return 0;
}

int Server::open(const Request& r) {
  const bool directory = r.header->opcode == FUSE_OPENDIR;
  const int asked = static_cast<int>(r.as<fuse_open_in>().flags);
  const int flags = directory ? O_RDONLY | O_DIRECTORY : asked & (O_ACCMODE | O_TRUNC | O_APPEND);
  fuse_open_out* out = answer<fuse_open_out>();
  const std::string file = path(r.header->nodeid);
  const int result = add_handle(r.header->nodeid,
                                openat(lower_, file.c_str(), flags | O_NOFOLLOW | O_CLOEXEC), out);
  if (directory) out->open_flags = 0;
  return result;
}

int Server::create(const Request& r) {
  const auto& in = r.as<fuse_create_in>();
  const char* name = r.name(sizeof in);
  const int flags = static_cast<int>(in.flags) & (O_ACCMODE | O_TRUNC | O_APPEND | O_EXCL);
  Fd fd(openat(lower_, path(r.header->nodeid, name).c_str(),
               flags | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!fd.ok() || fchown(fd.get(), kAidMedia, kAidMedia) != 0 || fchmod(fd.get(), kFileMode) != 0)
    return -errno;
  reply_.assign(sizeof(fuse_entry_out) + sizeof(fuse_open_out), '\0');
  auto* entry = reinterpret_cast<fuse_entry_out*>(reply_.data());
  const int result = enter(r.header->nodeid, name, entry);
  if (result != 0) return result;
  return add_handle(entry->nodeid, fd.release(),
                    reinterpret_cast<fuse_open_out*>(reply_.data() + sizeof(fuse_entry_out)));
}

int Server::read(const Request& r) {
  const auto& in = r.as<fuse_read_in>();
  reply_.resize(in.size);
  const ssize_t got =
      pread(static_cast<int>(in.fh), reply_.data(), in.size, static_cast<off_t>(in.offset));
  if (got < 0) return -errno;
  reply_.resize(static_cast<size_t>(got));
  return 0;
}

int Server::write(const Request& r) {
  const auto& in = r.as<fuse_write_in>();
  const ssize_t written =
      pwrite(static_cast<int>(in.fh), r.name(sizeof in), in.size, static_cast<off_t>(in.offset));
  if (written < 0) return -errno;
  answer<fuse_write_out>()->size = static_cast<uint32_t>(written);
  return 0;
}

int Server::fallocate(const Request& r) {
  const auto& in = r.as<fuse_fallocate_in>();
  return failure(::fallocate(static_cast<int>(in.fh), static_cast<int>(in.mode),
                             static_cast<off_t>(in.offset), static_cast<off_t>(in.length)));
}

int Server::release(const Request& r) {
  const int fd = static_cast<int>(r.as<fuse_release_in>().fh);
  const auto node = nodes_.find(r.header->nodeid);
  if (node != nodes_.end()) {
    std::vector<int>& all = node->second.open;
    all.erase(std::remove(all.begin(), all.end(), fd), all.end());
  }
  listings_.erase(fd);
  close(fd);
  return 0;
}

// Offset 0 reads the directory again; an offset is the number of entries before it.
int Server::readdir(const Request& r) {
  const auto& in = r.as<fuse_read_in>();
  auto& listing = listings_[static_cast<int>(in.fh)];
  if (in.offset == 0) {
    listing.clear();
    DIR* stream =
        fdopendir(openat(static_cast<int>(in.fh), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (stream == nullptr) return -errno;
    while (const dirent* found = ::readdir(stream)) {
      fuse_dirent entry = {};
      entry.ino = found->d_ino;
      entry.namelen = static_cast<uint32_t>(strlen(found->d_name));
      entry.type = found->d_type;
      listing.emplace_back(found->d_name, entry);
    }
    closedir(stream);
  }
  reply_.clear();
  for (uint64_t at = in.offset; at < listing.size(); at++) {
    auto& [name, entry] = listing[at];
    entry.off = at + 1;
    const size_t length = FUSE_DIRENT_SIZE(&entry);
    if (reply_.size() + length > in.size) break;
    const size_t begin = reply_.size();
    reply_.append(reinterpret_cast<const char*>(&entry), FUSE_NAME_OFFSET);
    reply_ += name;
    reply_.resize(begin + length);
  }
  return 0;
}

int Server::statfs(const Request&) {
  struct statfs info;
  if (fstatfs(lower_, &info) != 0) return -errno;
  fuse_kstatfs* out = &answer<fuse_statfs_out>()->st;
  out->blocks = info.f_blocks;
  out->bfree = info.f_bfree;
  out->bavail = info.f_bavail;
  out->files = info.f_files;
  out->ffree = info.f_ffree;
  out->bsize = static_cast<uint32_t>(info.f_bsize);
  out->frsize = static_cast<uint32_t>(info.f_frsize);
  out->namelen = static_cast<uint32_t>(info.f_namelen);
  return 0;
}

// ---- Requests ----

int Server::init(const Request& r) {
  const auto& in = r.as<fuse_init_in>();
  fuse_init_out* out = answer<fuse_init_out>();
  out->major = FUSE_KERNEL_VERSION;
  out->minor = std::min<uint32_t>(in.minor, FUSE_KERNEL_MINOR_VERSION);
  out->flags = in.flags & (FUSE_BIG_WRITES | FUSE_ATOMIC_O_TRUNC | FUSE_MAX_PAGES);
  out->max_write = kMaxWrite;
  out->max_pages = kMaxPages;
  return 0;
}

int Server::serve(const Request& request) {
  for (const OpRow& row : kOps) {
    if (row.opcode == request.header->opcode) return (this->*row.run)(request);
  }
  return -ENOSYS;
}

void Server::run() {
  alignas(8) static char buffer[kRequestBytes];
  while (true) {
    const ssize_t size = ::read(fuse_, buffer, sizeof buffer);
    if (size < 0 && (errno == EINTR || errno == ENOENT || errno == EAGAIN)) continue;
    if (size < static_cast<ssize_t>(sizeof(fuse_in_header))) _exit(0);  // unmounted
    const auto* header = reinterpret_cast<const fuse_in_header*>(buffer);
    reply_.clear();
    const int result = serve({header, buffer + sizeof *header, size - sizeof *header});
    const uint32_t opcode = header->opcode;
    if (opcode == FUSE_FORGET || opcode == FUSE_BATCH_FORGET || opcode == FUSE_INTERRUPT) continue;
    if (result != 0) reply_.clear();
    fuse_out_header out = {};
    out.len = static_cast<uint32_t>(sizeof out + reply_.size());
    out.error = result;
    out.unique = header->unique;
    iovec parts[] = {{&out, sizeof out}, {reply_.data(), reply_.size()}};
    (void)!writev(fuse_, parts, 2);  // fails if the requesting process was killed
  }
}

}  // namespace

bool mount_sdcard(int lower, const char* mount_point) {
  Fd fuse(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
  if (!fuse.ok()) return false;
  const std::string options =
      "fd=" + std::to_string(fuse.get()) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
  if (mount("/dev/fuse", mount_point, "fuse", MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_NOATIME,
            options.c_str()) != 0)
    return false;
  const pid_t server = fork();
  if (server == 0) {
    prctl(PR_SET_NAME, "sdcard");
    setsid();
    umask(0);
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int fd = 0; fd <= 2; fd++) dup2(null, fd);
    const int low = fcntl(lower, F_DUPFD_CLOEXEC, kFirstOwnFd);
    const int device = fcntl(fuse.get(), F_DUPFD_CLOEXEC, kFirstOwnFd);
    close_range(3, kFirstOwnFd - 1, 0);  // descriptors inherited from the launcher
    close_range(std::max(low, device) + 1, ~0u, 0);
    Server(device, low).run();
  }
  return server > 0;
}
