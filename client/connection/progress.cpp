#include "client/connection/progress.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>
#include <utility>

#include "client/reader/self_log.h"
#include "client/support/text.h"

namespace {

using std::chrono::steady_clock;

constexpr auto kQuietTime = std::chrono::seconds(10);  // then a line without a step

// clang-format off

constexpr ToldMessage kSteps[] = {
    {"",                    "request start logger with types changed", "other types: the current run is stopped first", false},
    {"",                    "There is not enough d",            "too little free space: logging stays off", false},
    {"",                    "current work dir : ",              "new run ", true},
    {"catcher_mobile_log",  "function invoked",                 "starting mobile", false},
    {"catcher_modem_log",   "function invoked",                 "starting modem", false},
    {"catcher_net_log",     "function invoked",                 "starting net", false},
    {"",                    "start net cmd log",                "snapshot of the network settings", false},
    {"start_power_log",     "function invoked",                 "starting power", false},
    {"catcher_fp_log",      "function invoked",                 "starting fingerprint", false},
    {"catcher_tp_log",      "function invoked",                 "starting touch", false},
    {"start_systrace_log",  "function invoked",                 "starting systrace", false},
    {"catch_bugreport",     "start=1",                          "bug report at the start, 300 s at most", false},
    {"catch_bugreport",     "start=0",                          "bug report at the end, 300 s at most", false},
    {"do_move_vendor_logs", "function invoked",                 "vendor services move their logs", false},
    {"get_anr_log",         "function invoked",                 "copying ANR traces and tombstones", false},
    {"",                    "stop power log",                   "stopping power", false},
    {"",                    "stop systrace log",                "stopping systrace", false},
    {"",                    "stop net cmd log",                 "closing snapshot of the network settings", false},
    {"",                    "kill debug group start",           "ending the workers", false},
    {"",                    "kill debug group end",             "ending the logcats", false},
    {"",                    "kill vesk group end",              "every worker has ended", false},
    {"",                    "move all log start=",              "moving the run to shared storage", false},
    {"",                    "wait timeout ",                    "waiting for the vendor's moves, at most ", true},
    {"",                    "copy self log start",              "copying the daemon's own log", false},
    {"",                    "get general log",                  "collecting general logs, 7 s at most", false},
    {"get_tombstone_log",   "function invoked",                 "collecting tombstones", false},
    {"get_power_log",       "function invoked",                 "collecting power logs", false},
    {"get_bluetooth_log",   "function invoked",                 "collecting Bluetooth logs", false},
};

// clang-format on

}  // namespace

std::string progress_step(std::string_view line) {
  return retell(kSteps, std::size(kSteps), line);
}

ProgressLines::ProgressLines(std::string self_log, FILE* out)
    : path_(std::move(self_log)), out_(out), start_(steady_clock::now()), last_line_(start_) {
  if (open_log()) lseek(fd_, 0, SEEK_END);
}

ProgressLines::~ProgressLines() {
  if (fd_ != -1) close(fd_);
}

bool ProgressLines::open_log() {
  fd_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  return fd_ != -1;
}

void ProgressLines::read_log() {
  char bytes[4096];
  ssize_t got;
  while ((got = read(fd_, bytes, sizeof bytes)) > 0) {
    partial_.append(bytes, static_cast<size_t>(got));
    for (size_t end; (end = partial_.find('\n')) != std::string::npos;) {
      const std::string step = progress_step(std::string_view(partial_).substr(0, end));
      partial_.erase(0, end + 1);
      if (!step.empty() && step != std::exchange(last_, step)) print(step);
    }
  }
}

void ProgressLines::look() {
  if (fd_ != -1 || open_log()) {
    read_log();
    struct stat now, ours;
    const bool rotated = stat(path_.c_str(), &now) == 0 && fstat(fd_, &ours) == 0 &&
                         (now.st_ino != ours.st_ino || now.st_dev != ours.st_dev);
    if (rotated) {
      close(fd_);
      partial_.clear();
      if (open_log()) read_log();
    }
  }
  if (steady_clock::now() - last_line_ >= kQuietTime) print("still working");
}

void ProgressLines::print(const std::string& text) {
  last_line_ = steady_clock::now();
  const std::chrono::duration<double> elapsed = last_line_ - start_;
  fprintf(out_, "[%6.1f s] %s\n", elapsed.count(), printable(text).c_str());
  fflush(out_);
}
