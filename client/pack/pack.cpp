#include "client/pack/pack.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "base/scoped.h"
#include "client/connection/session.h"
#include "client/pack/manifest.h"
#include "client/runs/runs.h"
#include "client/support/child.h"
#include "client/support/files.h"
#include "client/support/json.h"
#include "client/support/text.h"
#include "client/support/volume.h"
#include "client/view/view_command.h"
#include "protocol/names.h"

namespace {

constexpr const char* kTar = "/system/bin/tar";
constexpr const char* kGzip = "/system/bin/gzip";
constexpr const char* kPageEnding = ".html";
constexpr const char* kFingerprint = "ro.build.fingerprint";
constexpr std::chrono::seconds kVersionLimit{2};  // packing needs no daemon: it is only asked

// What is packed, and the head of its manifest.
struct PackJob {
  PackSource source;
  ManifestHead head;
  std::string output;  // the archive's path, "-" for standard output
};

// With a slash at its end, or ".".
std::string directory_of(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// The unfinished archive, removed unless it was kept; also when a signal ends us.
class UnfinishedFile {
 public:
  explicit UnfinishedFile(const std::string& target) {
    const size_t slash = target.find_last_of('/') + 1;
    path_ = target.substr(0, slash) + "." + target.substr(slash) + "." + std::to_string(getpid());
    unlink(path_.c_str());   // left by an earlier process with our pid
    s_path = path_.c_str();  // before there is a file: a signal may come at once
    for (const int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) signal(sig, remove_and_end);
    fd_.reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (fd_.get() == -1) s_path = nullptr;
  }
  ~UnfinishedFile() {
    if (s_path == nullptr) return;
    unlink(path_.c_str());
    s_path = nullptr;
  }
  int fd() const { return fd_.get(); }

  // Gives it its name once its bytes are on the disk. False with errno.
  bool keep_as(const std::string& target) {
    if (fsync(fd_.get()) != 0 || rename(path_.c_str(), target.c_str()) != 0) return false;
    s_path = nullptr;
    const ScopedFd parent(open(directory_of(target).c_str(), O_RDONLY | O_CLOEXEC));
    fsync(parent.get());  // the name too; not every file system can
    return true;
  }

 private:
  static void remove_and_end(int sig) {
    if (s_path != nullptr) unlink(s_path);
    _exit(128 + sig);
  }
  static inline const char* volatile s_path = nullptr;
  std::string path_;
  ScopedFd fd_;
};

std::string protocol_of(const Environment& env) {
  Connection daemon;
  int32_t version = 0;
  const Outcome result = open_session(env, after(kVersionLimit), &daemon, &version);
  return result.code == kExitOk ? std::to_string(version) : "not answered";
}

// Types and build, from the content.
void describe(const RunReport& content, ManifestHead* head) {
  head->build = content.build;
  head->types = std::to_string(content.types) + " (" + mask_text(kLoggerTypeWords, content.types) +
                (content.types_known ? ")" : ", seen)");
}

// A directory that was named by its path: a feedback bundle.
std::string plan_bundle(const std::string& word, PackJob* job) {
  const std::string path = without_slashes(word);
  if (path == "/" || !is_directory(path)) return "there is no directory " + path;
  if (is_link(path)) return path + " is a link; name what it leads to, " + resolved(path);
  const std::string name = path.substr(path.find_last_of('/') + 1);
  RunReport content;
  add_content(path, &content);
  describe(content, &job->head);
  job->source = make_source(name, {path});
  job->head.state = "bundle";
  job->output = path + ".tar.gz";
  return "";
}

std::string plan_run(const Environment& env, const std::string& word, PackJob* job) {
  RunReport run;
  std::string error;
  if (!find_run(read_runs(env), word, &run, &error)) return error;
  if (run.state == RunState::kCapturing) {
    return "run " + run.name + " is still being captured; stop it first";
  }
  describe(run, &job->head);
  job->source = make_source(run.name, directories_of(run));
  job->head.state = state_name(run);
  // Beside the store, not in it: there it would count against the quota and could not be evicted.
  job->output = env.store.substr(0, env.store.find_last_of('/') + 1) + run.name + ".tar.gz";
  return "";
}

// "" when the archive can have the name `output`, else why not.
std::string check_output(const std::string& output, const PackSource& source) {
  struct stat info;
  if (lstat(output.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
    return output + " is " + (S_ISDIR(info.st_mode) ? "a directory" : "no regular file") +
           "; -o takes the archive's name";
  }
  const std::string directory = resolved(directory_of(output)) + "/";
  for (const std::string& name : source.names) {
    const std::string inside = resolved(source.base + "/" + name) + "/";
    if (directory.compare(0, inside.size(), inside) == 0) {
      return "the archive cannot lie in what it packs";
    }
  }
  return "";
}

// Reads the arguments. "" or why they make no sense.
std::string plan(const Invocation& call, const Environment& env, PackJob* job) {
  const std::string& word = call.arguments[0];
  const bool path = word.find('/') != std::string::npos;
  if (path && word[0] != '/') return "a bundle is named by its absolute path";
  const std::string error = path ? plan_bundle(word, job) : plan_run(env, word, job);
  if (!error.empty()) return error;
  if (!call.output.empty()) job->output = call.output;
  job->head.name = job->source.name;
  job->head.identity = env.property(kFingerprint, "");
  if (job->output == "-") {
    if (!env.has_output) return "standard output is closed";
    if (call.json) return "--json cannot share standard output with the archive";
    return isatty(fileno(env.out)) == 1 ? "an archive does not go to a terminal" : "";
  }
  return check_output(job->output, job->source);
}

bool send_all(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent == -1 && errno == EINTR) continue;
    if (sent == -1) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

// "" for a tool that did its work.
std::string tool_error(const char* tool, int status) {
  if (status == 0) return "";
  if (status == 127) return std::string("cannot run ") + tool;
  return std::string(tool) + " ended with " + std::to_string(status);
}

// Writes `first` and then tar's output, through gzip, to `out`. "" or what failed.
std::string write_archive(const Environment& env, const PackSource& source,
                          const std::string& first, int out) {
  int ends[2];  // a socket, not a pipe: no SIGPIPE when gzip has ended
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return strerror(errno);
  ScopedFd reader(ends[0]), writer(ends[1]);
  const pid_t gzip = start_child({{env.root + kGzip, "-c"}, reader.get(), out});
  reader.reset();
  if (gzip == -1) return std::string("cannot start gzip: ") + strerror(errno);

  bool sent = send_all(writer.get(), first);
  int tar_status = -1;
  if (sent) {
    ChildSetup tar = {
        {env.root + kTar, "-c", "-f", "-", "-C", source.base, "--"}, -1, writer.get()};
    tar.argv.insert(tar.argv.end(), source.names.begin(), source.names.end());
    const pid_t pid = start_child(tar);
    if (pid != -1) tar_status = wait_child(pid);
  }
  writer.reset();
  const int gzip_status = wait_child(gzip);
  const std::string error = tool_error(kGzip, gzip_status);  // tar fails then too
  return error.empty() ? tool_error(kTar, tar_status) : error;
}

// The manifest, with every file read once.
std::string make_manifest(const Environment& env, const PackJob& job, bool progress) {
  std::vector<PackedFile> files = list_files(job.source);
  if (progress) fprintf(env.err, "checksums of %zu files\n", files.size());
  std::vector<std::string> paths;
  for (const PackedFile& file : files) paths.push_back(job.source.base + "/" + file.path);
  const std::vector<std::string> sums = sha256_of(env, paths);
  for (size_t i = 0; i < files.size(); i++) files[i].sha256 = sums[i];
  return manifest_text(job.head, files);
}

// The run's page as an entry of the archive; the commands on it are for the archive.
std::string page_entry(const Environment& env, const std::string& word, const std::string& name) {
  RunSource source;
  if (!find_source(env, word, &source).empty()) return "";
  return tar_entry(entry_name(name, kPageEnding), make_page(env, source, name + ".tar.gz"),
                   time(nullptr));
}

// "" when the archive fits into the directory of `target`, else the error.
std::string check_room(const Environment& env, const std::string& target, int64_t wanted) {
  const std::string directory = directory_of(target);
  VolumeSpace space;
  if (!env.space(directory, &space)) return "";
  if (wanted <= space.available) return "";
  return "no room for the archive: " + space_text(directory, wanted, space.available) +
         "; -o names another place, -o - needs none";
}

int show_result(const Invocation& call, Environment& env, const std::string& path) {
  struct stat info = {};
  stat(path.c_str(), &info);
  const std::string sum = sha256_of(env, {path})[0];
  if (call.json) {
    JsonWriter json;
    json.begin_object().member("command", "pack").member("archive", path);
    json.member("bytes", static_cast<int64_t>(info.st_size)).member("sha256", sum).end_object();
    fprintf(env.out, "%s\n", json.text().c_str());
  } else {
    fprintf(env.out, "%s  %s\n", sum.c_str(), printable(path).c_str());
  }
  return kExitOk;
}

}  // namespace

int run_pack(const Invocation& call, Environment& env) {
  PackJob job;
  std::string error = plan(call, env, &job);
  if (!error.empty()) return fail(call, env, kExitUsage, error);
  const bool to_stdout = job.output == "-";
  // Before the long work as well as after it, with all but the manifest.
  if (!to_stdout) error = check_room(env, job.output, archive_bound(job.source, 0));
  if (!error.empty()) return fail(call, env, kExitFailed, error);

  job.head.protocol = protocol_of(env);
  const bool progress = env.progress || call.progress;
  const std::string manifest = make_manifest(env, job, progress);
  std::string first = tar_entry(manifest_name(job.source.name), manifest, time(nullptr));
  if (call.view) first += page_entry(env, call.arguments[0], job.source.name);
  if (progress) fprintf(env.err, "packing\n");
  if (to_stdout) {
    fflush(env.out);
    error = write_archive(env, job.source, first, fileno(env.out));
    return error.empty() ? kExitOk : fail(call, env, kExitFailed, error);
  }
  error = check_room(env, job.output, archive_bound(job.source, first.size()));
  if (!error.empty()) return fail(call, env, kExitFailed, error);
  {
    UnfinishedFile file(job.output);
    if (file.fd() == -1) error = "cannot write " + job.output + ": " + strerror(errno);
    if (error.empty()) error = write_archive(env, job.source, first, file.fd());
    if (error.empty() && !file.keep_as(job.output)) {
      error = "cannot finish " + job.output + ": " + strerror(errno);
    }
  }
  if (!error.empty()) return fail(call, env, kExitFailed, error);
  return show_result(call, env, job.output);
}
