#include "storage/linked_move.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>

#include "base/process.h"
#include "base/text.h"
#include "model/data_room.h"
#include "model/move_trees.h"
#include "selflog/log.h"
#include "storage/measure.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr int kMostSpareNames = 100;
constexpr size_t kMostNamed = 8;  // leftovers in one line

// Every move of the daemon that takes the only copy to another file system.
struct Crossing {
  const char* from;
  const char* to;
};
constexpr Crossing kCrossings[] = {
    {kWorkingDir, kStoreDir}, {kTraceDir, kStoreTraceDir}, {"/cache", kGeneralDir},  // kBootFailLog
};

std::string linking(const std::string& name) {
  return std::string(kLinkingPrefix) + name;
}

std::string moving(const std::string& name) {
  return std::string(kMovingPrefix) + name;
}

ScopedFd open_directory(const std::string& path) {
  return ScopedFd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

std::string without_end_slashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

bool is_crossing(const std::string& from, const std::string& to) {
  return std::any_of(std::begin(kCrossings), std::end(kCrossings), [&](const Crossing& row) {
    return from == without_end_slashes(row.from) && to == without_end_slashes(row.to);
  });
}

// Adds the names in the open directory that `wanted` accepts; false when they are not all.
template <typename Wanted>
bool add_names(int directory, Wanted wanted, std::vector<std::string>* names) {
  ScopedFd own(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ScopedDir stream(own.valid() ? fdopendir(own.get()) : nullptr);
  if (!stream.valid()) return false;
  own.release();
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream.get());
    if (entry == nullptr) return errno == 0;
    if (wanted(std::string_view(entry->d_name))) names->emplace_back(entry->d_name);
  }
}

// Whether mv cannot rename from one directory to the other: rename() does not leave a mount either.
bool crosses(int from, int to) {
  struct statx a;
  struct statx b;
  constexpr unsigned kMask = STATX_TYPE | STATX_MNT_ID;
  if (statx(from, "", AT_EMPTY_PATH, kMask, &a) != 0) return true;
  if (statx(to, "", AT_EMPTY_PATH, kMask, &b) != 0) return true;
  return a.stx_dev_major != b.stx_dev_major || a.stx_dev_minor != b.stx_dev_minor ||
         a.stx_mnt_id != b.stx_mnt_id;
}

bool share_pool(int from, const std::string& to) {
  struct stat a;
  struct stat b;
  return starts_with(to.c_str(), "/sdcard/") && fstat(from, &a) == 0 && stat(kMediaRoot, &b) == 0 &&
         a.st_dev == b.st_dev;
}

// ---- Making links. ----

bool make_private(int parent, const char* name) {
  return mkdirat(parent, name, 0700) == 0;
}

// As the daemon makes others.
bool make_shared(int parent, const char* name) {
  if (mkdirat(parent, name, 0777) != 0) return false;
  const ScopedFd fd(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return fd.valid() && fchown(fd.get(), kSdcardOwner, kSdcardOwner) == 0 &&
         fchmod(fd.get(), 0777) == 0;
}

bool link_files(int base, const TreeList& tree) {
  const std::string& name = tree[kTreeTop].name;
  TreeCursor source(base, tree, name);
  TreeCursor links(base, tree, linking(name), make_private);
  if (links.at(kTreeTop) == -1) return false;
  for (size_t i = kTreeTop + 1; i < tree.size(); i++) {
    if (!is_file(tree[i])) continue;  // a link, a FIFO or a device holds no bytes of its own
    const int from = source.at_parent(i);
    if (from == -1 && is_absent(errno)) continue;  // gone before the command
    const int to = from == -1 ? -1 : links.at_parent(i);
    if (to == -1) return false;
    if (linkat(from, source.name(i), to, links.name(i), 0) != 0 && errno != ENOENT) return false;
  }
  return renameat(base, linking(name).c_str(), base, moving(name).c_str()) == 0;
}

// Gives all files of `tree` their second names. False, with errno and nothing left, when one cannot
// have it. A file by itself needs no tree: its link is there at once, or not.
bool link_tree(int base, const TreeList& tree) {
  const std::string& name = tree[kTreeTop].name;
  if (is_file(tree[kTreeTop])) {
    return linkat(base, name.c_str(), base, moving(name).c_str(), 0) == 0 || errno == ENOENT;
  }
  if (!S_ISDIR(tree[kTreeTop].type)) return true;
  struct stat info;
  if (fstatat(base, moving(name).c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
    errno = EEXIST;  // could not be settled
    return false;
  }
  if (link_files(base, tree)) return true;
  const int saved_errno = errno;
  remove_listed(base, linking(name), tree);
  errno = saved_errno;
  return false;
}

// ---- Settling. ----

// The files of a name that have not arrived after its command.
struct Shortage {
  std::vector<int64_t> now;     // sizes of the links
  std::vector<size_t> missing;  // nodes
  int64_t bytes = 0;            // of them, that are not at the target
};

// Writes the whole file again over the beginning of it that arrived.
bool copy_again(int from, const char* link, int to, const char* name) {
  const ScopedFd in(openat(from, link, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  const ScopedFd out(openat(to, name, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat info;
  if (!in.valid() || !out.valid() || fstat(in.get(), &info) != 0) return false;
  for (int64_t left = info.st_size; left > 0;) {
    const ssize_t sent = sendfile(out.get(), in.get(), nullptr, static_cast<size_t>(left));
    if (sent == 0 || (sent < 0 && errno != EINTR)) return false;
    left -= std::max<ssize_t>(sent, 0);
  }
  return true;
}

Shortage compare(int base, int target, const TreeList& tree) {
  const std::string& name = tree[kTreeTop].name;
  Shortage found;
  found.now = sizes_at(base, moving(name), tree);
  const std::vector<int64_t> there = sizes_at(target, name, tree);
  TreeCursor links(base, tree, moving(name));
  TreeCursor arrived(target, tree, name);
  for (size_t i = kTreeTop; i < tree.size(); i++) {
    if (!is_file(tree[i])) continue;
    Arrival state = judge_arrival(tree[i].size, found.now[i], there[i]);
    if (state == Arrival::kGrown) {
      const int from = links.at_parent(i);
      const int to = arrived.at_parent(i);
      if (!copy_again(from, links.name(i), to, arrived.name(i))) state = Arrival::kMissing;
    }
    if (state != Arrival::kMissing) continue;
    found.missing.push_back(i);
    found.bytes += std::max(found.now[i], tree[i].size) - std::max<int64_t>(there[i], 0);
  }
  return found;
}

// The same when nothing of the target can be relied on.
Shortage all_of(int base, const TreeList& tree) {
  Shortage found;
  found.now = sizes_at(base, moving(tree[kTreeTop].name), tree);
  for (size_t i = kTreeTop; i < tree.size(); i++) {
    if (!is_file(tree[i]) || found.now[i] == kAbsent) continue;
    found.missing.push_back(i);
    found.bytes += std::max<int64_t>(found.now[i], 0);
  }
  return found;
}

bool is_same_file(int a, const char* a_name, int b, const char* b_name) {
  struct stat one;
  struct stat other;
  return fstatat(a, a_name, &one, AT_SYMLINK_NOFOLLOW) == 0 &&
         fstatat(b, b_name, &other, AT_SYMLINK_NOFOLLOW) == 0 && one.st_dev == other.st_dev &&
         one.st_ino == other.st_ino;
}

// Gives a link its name in the source, or one beside it when another file has taken that.
bool link_back(int from, const char* link, int to, const char* name) {
  std::string free_name = name;
  for (int i = 1; i <= kMostSpareNames; i++) {
    if (linkat(from, link, to, free_name.c_str(), 0) == 0) return true;
    if (errno != EEXIST) return errno == ENOENT;  // deleted on purpose meanwhile
    if (is_same_file(from, link, to, free_name.c_str())) return true;
    free_name = std::string(name) + ".moved-" + std::to_string(i);
  }
  return false;
}

bool put_back(int base, const TreeList& tree, const std::vector<size_t>& missing) {
  const std::string& name = tree[kTreeTop].name;
  TreeCursor links(base, tree, moving(name));
  TreeCursor source(base, tree, name, make_shared);
  bool all = true;
  for (const size_t i : missing) {
    const int from = links.at_parent(i);
    if (from == -1 && is_absent(errno)) continue;  // deleted on purpose meanwhile
    const int to = from == -1 ? -1 : source.at_parent(i);
    all = to != -1 && link_back(from, links.name(i), to, source.name(i)) && all;
  }
  return all;
}

// Removes what is shorter at the target than its link: the whole file is in the source again.
void remove_short(int target, const TreeList& tree, const Shortage& found) {
  TreeCursor arrived(target, tree, tree[kTreeTop].name);
  for (const size_t i : found.missing) {
    const int fd = arrived.at_parent(i);
    struct stat info;
    if (fd == -1 || fstatat(fd, arrived.name(i), &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (S_ISREG(info.st_mode) && info.st_size < found.now[i]) unlinkat(fd, arrived.name(i), 0);
  }
}

// Settles the trees of the directory `from`, whose descriptor is `base`. True when all arrived.
bool settle_trees(int base, const std::string& from, const std::string& to,
                  const std::vector<TreeList>& trees) {
  const ScopedFd target = open_directory(to);
  std::string trouble = target.valid() ? "" : strerror(errno);
  std::vector<Shortage> found;
  for (const TreeList& tree : trees) {
    if (target.valid()) found.push_back(compare(base, target.get(), tree));
  }
  if (target.valid()) trouble = flush_storage(to.c_str());
  if (!trouble.empty()) {
    found.clear();
    for (const TreeList& tree : trees) found.push_back(all_of(base, tree));
  }
  std::vector<size_t> back;  // trees that are whole in their source again, as far as missing
  bool arrived = true;
  for (size_t i = 0; i < trees.size(); i++) {
    const std::string& name = trees[i][kTreeTop].name;
    if (found[i].missing.empty()) {
      remove_listed(base, moving(name), trees[i]);
      continue;
    }
    arrived = false;
    LOGE("move of %s/%s to %s is not complete: %lld bytes missing%s%s", from.c_str(), name.c_str(),
         to.c_str(), static_cast<long long>(found[i].bytes), trouble.empty() ? "" : ": ",
         trouble.c_str());
    if (put_back(base, trees[i], found[i].missing)) back.push_back(i);
  }
  // A tree that stays is settled at the next move, or at the next start.
  if (back.empty() || !flush_storage(from.c_str()).empty()) return arrived;
  for (const size_t i : back) {
    if (target.valid()) remove_short(target.get(), trees[i], found[i]);
    remove_listed(base, moving(trees[i][kTreeTop].name), trees[i]);
  }
  return false;
}

// ---- What cannot be at the target. ----

// "run/mobile/link -> target", "run/pipe (FIFO)".
std::string described(TreeCursor* cursor, const TreeList& tree, size_t node) {
  std::string path = tree[node].name;
  for (size_t up = tree[node].parent; up != 0; up = tree[up].parent) {
    path = tree[up].name + "/" + path;
  }
  if (S_ISFIFO(tree[node].type)) return path + " (FIFO)";
  if (S_ISSOCK(tree[node].type)) return path + " (socket)";
  if (!S_ISLNK(tree[node].type)) return path + " (device)";
  char target[256];
  const int fd = cursor->at_parent(node);
  const ssize_t length = fd == -1 ? -1 : readlinkat(fd, cursor->name(node), target, sizeof(target));
  return path + " -> " + std::string(target, static_cast<size_t>(std::max<ssize_t>(length, 0)));
}

// Shared storage holds no links, FIFOs, sockets and devices: mv leaves them, and the directories on
// the way to them, and would do so again at every stop. They are dropped when mv has taken the tree
// as far as it could: no file is left of it, and its directories are there.
void drop_leftovers(int base, const std::string& name, int target, const std::string& to) {
  TreeList left;
  if (list_tree(base, name, &left) != Listing::kWhole) return;
  const std::vector<int64_t> there = sizes_at(target, name, left);
  TreeCursor cursor(base, left, name);
  std::string names;
  size_t count = 0;
  for (size_t i = kTreeTop; i < left.size(); i++) {
    if (is_file(left[i]) || (S_ISDIR(left[i].type) && there[i] < 0)) return;
    if (S_ISDIR(left[i].type) || count++ >= kMostNamed) continue;
    names += (names.empty() ? "" : ", ") + described(&cursor, left, i);
  }
  if (count == 0) return;
  if (count > kMostNamed) names += " and " + std::to_string(count - kMostNamed) + " more";
  LOGW("dropped, because %s cannot hold it: %s", to.c_str(), names.c_str());
  remove_listed(base, name, left);
}

void remove_tree_at(int base, const std::string& name) {
  TreeList tree;
  if (list_tree(base, name, &tree) != Listing::kNone) remove_listed(base, name, tree);
}

// Settles what is found in the directory `from`.
void settle_found(int base, const std::string& from, const std::string& to) {
  std::vector<std::string> names;
  add_names(base, is_move_tree, &names);
  std::vector<TreeList> trees;
  for (const std::string& found : names) {
    if (found.compare(0, kLinkingPrefix.size(), kLinkingPrefix) == 0) {
      remove_tree_at(base, found);
      continue;
    }
    TreeList tree;
    if (list_tree(base, found, &tree) != Listing::kWhole) continue;  // not now
    const std::string name = found.substr(kMovingPrefix.size());
    if (name.empty() || name == "." || name == "..") continue;  // planted: no move makes it
    tree[kTreeTop].name = name;
    trees.push_back(std::move(tree));
  }
  if (!trees.empty()) settle_trees(base, from, to, trees);
}

}  // namespace

LinkedMove::LinkedMove(const char* source, const char* target) : to_(without_end_slashes(target)) {
  if (pattern_directory(source, &from_)) {
    from_ = without_end_slashes(from_);
  } else {
    const SplitPath path = split(source);
    from_ = path.directory;
    names_ = {path.name};
  }
  is_pattern_ = names_.empty();
}

MoveWay LinkedMove::prepare() {
  base_.reset(open_directory(from_).release());
  if (!base_.valid()) return is_absent(errno) ? MoveWay::kBare : MoveWay::kStays;
  const ScopedFd target = open_directory(to_);
  if (!target.valid() && !is_absent(errno)) return MoveWay::kStays;
  // mv would give a missing target's name to what it moves: a copy too, when that crosses.
  has_target_ = target.valid();
  const ScopedFd above = open_directory(nearest_existing(split(to_).directory));
  if (!crosses(base_.get(), has_target_ ? target.get() : above.get())) return MoveWay::kBare;
  const bool ours = is_main_process() && is_crossing(from_, to_);
  if (ours) settle_found(base_.get(), from_, to_);
  const auto is_shown = [](std::string_view name) { return name[0] != '.'; };
  if (is_pattern_ && !add_names(base_.get(), is_shown, &names_)) return MoveWay::kStays;
  MoveFacts facts = {share_pool(base_.get(), to_), ours, false, false};
  weigh(target.get(), &facts);
  const MoveWay way = judge_move(facts);
  if (way == MoveWay::kWithLinks) make_links();
  return way;
}

// Lists the trees and compares them with the room; what cannot be known does not fit. `target` is
// -1 when it is missing.
void LinkedMove::weigh(int target, MoveFacts* facts) {
  struct statfs room;
  bool whole = fstatfs(target, &room) == 0;
  const int64_t block = whole ? static_cast<int64_t>(room.f_bsize) : 1;
  int64_t all = 0;
  int64_t largest = 0;
  for (const std::string& name : names_) {
    TreeList tree;
    const Listing found = list_tree(base_.get(), name, &tree);
    if (found == Listing::kNone) continue;
    whole = whole && found == Listing::kWhole;
    const TreeRoom wanted = room_for(tree, block);
    all += wanted.bytes;
    largest = std::max(largest, wanted.largest);
    unlinked_.push_back(std::move(tree));
    if (!whole) break;
  }
  available_ = whole ? block * static_cast<int64_t>(room.f_bavail) : 0;
  needed_ = !whole ? kSpaceUnknown : facts->one_pool ? largest + kDataReserve : all;
  facts->tree_fits = unlinked_.empty() ||  // mv reports it
                     (whole && all + (facts->one_pool ? kDataReserve : 0) <= available_);
  facts->largest_fits = whole && largest + kDataReserve <= available_;
}

// A name that cannot have links moves without: the room for all of them was weighed, and is enough.
void LinkedMove::make_links() {
  lock_ = std::make_unique<MoveLock>();
  std::vector<TreeList> refused;
  std::string first;
  for (TreeList& tree : unlinked_) {
    const bool has_links = link_tree(base_.get(), tree);
    if (!has_links && first.empty()) first = tree[kTreeTop].name + ": " + strerror(errno);
    (has_links ? linked_ : refused).push_back(std::move(tree));
  }
  unlinked_ = std::move(refused);
  if (linked_.empty()) lock_.reset();
  if (first.empty()) return;
  const size_t more = unlinked_.size() - 1;
  LOGW("no second names for %s/%s%s", from_.c_str(), first.c_str(),
       more == 0 ? "" : (", and for " + std::to_string(more) + " more").c_str());
}

std::string LinkedMove::refusal(const char* source, const char* target) const {
  if (!has_target_) return std::string(target) + " is missing, " + source + " stays";
  return no_room_text("move", source, target, needed_, available_);
}

bool LinkedMove::settle() {
  const bool arrived = linked_.empty() || settle_trees(base_.get(), from_, to_, linked_);
  const ScopedFd target = open_directory(to_);
  for (const auto* trees : {&linked_, &unlinked_}) {
    for (const TreeList& tree : *trees) {
      if (target.valid()) drop_leftovers(base_.get(), tree[kTreeTop].name, target.get(), to_);
    }
  }
  lock_.reset();
  return arrived;
}

void settle_moves() {
  for (const Crossing& row : kCrossings) {
    const std::string from = without_end_slashes(row.from);
    const ScopedFd base = open_directory(from);
    if (base.valid()) settle_found(base.get(), from, without_end_slashes(row.to));
  }
}

void remove_move_trees(const char* dir, const char* name) {
  const ScopedFd base = open_directory(dir);
  if (!base.valid()) return;
  std::vector<std::string> names;
  add_names(base.get(), is_move_tree, &names);
  for (const std::string& found : names) {
    if (name == nullptr || found == linking(name) || found == moving(name)) {
      remove_tree_at(base.get(), found);
    }
  }
}
