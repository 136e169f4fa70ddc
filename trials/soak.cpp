// Soak test: random requests, kills, clock steps, full disks, devices that come and go, hanging
// clients, in one bench phone. Quiesced every 30 s and compared with the first state. See
// docs/reliability.md.
#include <fcntl.h>
#include <glob.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <random>
#include <set>
#include <thread>

#include "phone/host/failure.h"
#include "trials/checks.h"

namespace {

using Words = std::vector<std::string>;

constexpr int kAnswerMs = 300000;  // a queue of requests; a start may include a stop
constexpr int kServeMs = 20000;    // init restarts a killed daemon after 5 s
constexpr int kRestMs = kOwedMs;
constexpr int kRoundMs = 30000;
constexpr long kGrowthKib = 256;  // of the main process's private memory
constexpr size_t kMostClients = 3;
constexpr const char* kClock = "/data/local/tmp/clock";  // seconds to add to the wall clock
constexpr const char* kFilling[] = {"/data/filling", "/sdcard/filling"};

struct Pending {
  Client client;
  int code;
};

// Events between two rests.
struct Counts {
  int requests = 0, kills = 0, main_kills = 0, steps = 0, fills = 0, plugs = 0, half_open = 0;
};

Words broken;

void expect(bool fine, const std::string& what) {
  if (fine) return;
  broken.push_back(what);
  printf("    BROKEN: %s\n", what.c_str());
}

std::string bytes(int value) {
  return little_endian(static_cast<uint32_t>(value), 4);
}

Words phone_options() {
  glob_t found;
  const int result = glob("/usr/lib/*/faketime/libfaketime.so.1", 0, nullptr, &found);
  const std::string library = result == 0 ? found.gl_pathv[0] : "";
  globfree(&found);
  expect_of_phone(!library.empty(), "libfaketime is not installed");
  // Only the wall clock is stepped, as on a phone.
  return quick_vendor(
      {"--input", "--env", "LD_PRELOAD=" + library, "--env",
       std::string("FAKETIME_TIMESTAMP_FILE=") + kClock, "--env", "FAKETIME_CACHE_DURATION=1",
       "--env", "ASAN_OPTIONS=verify_asan_link_order=0", "--env", "FAKETIME_DISABLE_SHM=1", "--env",
       "DONT_FAKE_MONOTONIC=1", "--env", "FAKETIME_DONT_FAKE_MONOTONIC=1"});
}

class Soak {
 public:
  explicit Soak(unsigned seed) : random_(seed), phone_(phone_options()) {}

  // False when the daemon does not start.
  bool begin() {
    expect(phone_.ok() && settled(phone_), "the daemon does not start");
    if (!broken.empty()) return false;
    pid_ = phone_.daemon_pid();
    start_ms_ = monotonic_now_ms();
    puts(
        "  min  request  kill  main  clock  full  plug  half |  pss  dirty KiB  fds  threads  "
        "procs");
    round(3 * kRoundMs / 10);  // every part has been used once
    rest(true);
    return broken.empty();
  }
  void round(int milliseconds) {
    const int64_t end = monotonic_now_ms() + milliseconds;
    while (monotonic_now_ms() < end) {
      act();
      std::this_thread::sleep_for(std::chrono::milliseconds(pick(300)));  // pace
    }
  }
  void rest(bool first = false);

 private:
  struct Action {
    int weight;
    void (Soak::*act)();
  };
  static const Action kActions[];

  int pick(size_t below) { return static_cast<int>(random_() % below); }
  void act();
  void ask(int code, const std::string& arguments);
  void await_answers();

  void start();
  void stop() { ask(3, ""); }
  void query() { ask(std::array{1, 7, 9, 10, 11, 13, 16}[pick(7)], ""); }
  void feedback();
  void delete_logs() { ask(12, ""); }
  void hang_on();
  void kill_one();
  void kill_main();
  void storm();
  void step_clock();
  void fill_disk();
  void empty_disk();
  void plug();
  void write_logs();
  void change_quota();

  std::mt19937 random_;
  Phone phone_;
  pid_t pid_ = 0;
  int64_t start_ms_ = 0;
  std::vector<Pending> pending_;
  std::vector<Client> half_open_;
  std::set<int> plugged_;
  Counts counts_;
  Resources baseline_;
  Words running_;
};

const Soak::Action Soak::kActions[] = {
    {12, &Soak::start},    {8, &Soak::stop},        {20, &Soak::query},
    {4, &Soak::feedback},  {2, &Soak::delete_logs}, {6, &Soak::hang_on},
    {14, &Soak::kill_one}, {1, &Soak::kill_main},   {4, &Soak::step_clock},
    {6, &Soak::storm},     {3, &Soak::fill_disk},   {5, &Soak::empty_disk},
    {6, &Soak::plug},      {10, &Soak::write_logs}, {2, &Soak::change_quota},
};

void Soak::act() {
  int total = 0;
  for (const Action& action : kActions) total += action.weight;
  int left = pick(static_cast<size_t>(total));
  for (const Action& action : kActions) {
    left -= action.weight;
    if (left < 0) return (this->*action.act)();
  }
}

void Soak::ask(int code, const std::string& arguments) {
  if (pending_.size() + half_open_.size() >= kMostClients) await_answers();
  Client client(phone_);
  expect(client.send(request(code, 1, arguments)),
         "no connection for request " + std::to_string(code));
  pending_.push_back({std::move(client), code});
  counts_.requests++;
}

// Half-open clients first: clients are served one at a time, in order.
void Soak::await_answers() {
  half_open_.clear();
  for (Pending& pending : pending_) {
    const bool answered = pending.client.reply(kAnswerMs).size() >= 16;
    expect(answered, "no answer to request " + std::to_string(pending.code));
    pending.client.close();
  }
  pending_.clear();
}

void Soak::start() {
  constexpr int kMasks[] = {0x7fff, 0x1, 0x10, 0x1 | 0x4 | 0x8 | 0x20, 0x10001};
  ask(2, bytes(pick(2) == 0 ? kMasks[pick(5)] : pick(0x8000)));
}

void Soak::feedback() {
  ask(6,
      bytes(pick(0x7fffffff)) + string16("/sdcard/report/" + std::to_string(pick(3))) + bytes(0));
}

// A client that connects, sends part of a request, and stays.
void Soak::hang_on() {
  if (pending_.size() + half_open_.size() >= kMostClients) return await_answers();
  Client client(phone_);
  const std::string whole = request(1, 1);
  client.send(whole.substr(0, static_cast<size_t>(pick(whole.size()))));
  half_open_.push_back(std::move(client));
  counts_.half_open++;
}

void Soak::kill_one() {
  const std::vector<PhoneProcess> alive = children_of_daemon(phone_);
  if (alive.empty()) return;
  if (phone_.signal(alive[static_cast<size_t>(pick(alive.size()))].pid, SIGKILL)) counts_.kills++;
}

void Soak::kill_main() {
  if (!phone_.signal(pid_, SIGKILL)) return;
  counts_.main_kills++;
  pending_.clear();
  half_open_.clear();
  expect(eventually([&] { return phone_.daemon_pid() != pid_ && serves(phone_, 5000); }, kServeMs),
         "not served after a kill of the main process");
  pid_ = phone_.daemon_pid();
}

// Disturbances that the main process must tolerate in any wait.
void Soak::storm() {
  constexpr int kSignals = 300;
  const pid_t target = phone_.outer_pid(pid_);
  for (int i = 0; i < kSignals; i++)
    signal_one(target, std::array{SIGCHLD, SIGALRM, SIGTERM}[i % 3]);
}

void Soak::step_clock() {
  constexpr int kMostSeconds[] = {2, 3600, 86400 * 40};
  const int most = kMostSeconds[pick(3)];
  const std::string next = std::string(kClock) + ".new";
  char text[32];
  snprintf(text, sizeof text, "%+d", pick(static_cast<size_t>(2 * most)) - most);
  // Atomic: a reader must not see an empty file. A full disk keeps the old time.
  if (write_file(phone_.inside(next), text, 0644))
    counts_.steps += rename(phone_.inside(next).c_str(), phone_.inside(kClock).c_str()) == 0;
}

void Soak::fill_disk() {
  constexpr int64_t kLeft[] = {0, 1 << 20, 60 << 20, 127 << 20};
  const std::string volume = kFilling[pick(2)], path = phone_.inside(volume);
  const Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  const int64_t size = lseek(file.get(), 0, SEEK_END);
  const int64_t more = available(phone_, volume) - kLeft[pick(4)];
  if (more > 0 && posix_fallocate(file.get(), size, more) == 0) counts_.fills++;
}

void Soak::empty_disk() {
  for (const char* path : kFilling) unlink(phone_.inside(path).c_str());
}

void Soak::plug() {
  const int number = pick(4);
  const std::string node = "event" + std::to_string(number);
  if (plugged_.count(number) == 0) {
    phone_.run({"finger", "plug", node, "zelka_goodix_ts"});
    plugged_.insert(number);
  } else if (pick(2) == 0) {
    phone_.run({"finger", "swipe", node, "100", "2000", "300", "1000", "20"});
  } else {
    phone_.run({"finger", "unplug", node});
    plugged_.erase(number);
  }
  counts_.plugs++;
}

void Soak::write_logs() {
  phone_.shell("for b in main events system radio crash; do log -t soak -b $b 'a line'; done");
}

void Soak::change_quota() {
  phone_.setprop("persist.sys.zelka.log.size", pick(2) == 0 ? "0" : "20");
}

// Ends everything that was started, and checks what is left.
void Soak::rest(bool first) {
  empty_disk();
  phone_.setprop("persist.sys.zelka.log.size", "20");
  await_answers();
  ask(3, "");
  ask(12, "");
  await_answers();
  expect(eventually([&] { return children_of_daemon(phone_).empty(); }, kRestMs),
         "processes left: " + joined(running(phone_)));
  expect(phone_.daemon_pid() == pid_, "the main process ended by itself");
  pid_ = phone_.daemon_pid();
  if (first) baseline_ = idle_resources(phone_), running_ = running(phone_);
  Resources held;
  bool same = eventually(
      [&] {
        held = resources(phone_);
        return held.descriptors == baseline_.descriptors && held.threads == baseline_.threads;
      },
      kRestMs);
  expect(same, "holds: " + joined(held.descriptors) + ", threads: " + std::to_string(held.threads) +
                   "; in the beginning: " + joined(baseline_.descriptors) +
                   ", threads: " + std::to_string(baseline_.threads));
  Words now;
  same = eventually([&] { return (now = running(phone_)) == running_; }, kRestMs);
  expect(same, "runs: " + joined(now) + ", in the beginning: " + joined(running_));
  expect(held.private_dirty_kib <= baseline_.private_dirty_kib + kGrowthKib, "memory grows");
  printf("%5.1f  %7d %5d %5d  %5d %5d %5d %5d | %4ld %6ld      %4zu  %5d   %5zu\n",
         static_cast<double>(monotonic_now_ms() - start_ms_) / 60000, counts_.requests,
         counts_.kills, counts_.main_kills, counts_.steps, counts_.fills, counts_.plugs,
         counts_.half_open, held.pss_kib, held.private_dirty_kib, held.descriptors.size(),
         held.threads, now.size());
  fflush(stdout);
  // The bench's journals would fill its memory within hours.
  phone_.clear_calls();
  const std::string sets = phone_.inside("/dev/bench/properties.log");
  expect(truncate(sets.c_str(), 0) == 0, errno_text(sets));
}

}  // namespace

int main(int argc, char** argv) {
  double minutes = 2;
  unsigned seed = std::random_device{}();
  for (int i = 1; i < argc; i++) {
    if (strcmp(argv[i], "--seed") == 0 && i + 1 < argc) {
      seed = static_cast<unsigned>(strtoul(argv[++i], nullptr, 10));
    } else if ((minutes = atof(argv[i])) <= 0) {
      fprintf(stderr, "usage: soak [MINUTES] [--seed N]\n");
      return 2;
    }
  }
  on_phone_failure = [](const std::string& what) { expect(false, what); };
  printf("seed %u: the same draws again with --seed %u\n", seed, seed);
  const int64_t end = monotonic_now_ms() + static_cast<int64_t>(minutes * 60000);
  Soak soak(seed);
  if (!soak.begin()) return 1;
  constexpr int64_t kShortestMs = 5000;
  while (monotonic_now_ms() + kShortestMs < end && broken.empty()) {
    soak.round(static_cast<int>(std::min<int64_t>(kRoundMs, end - monotonic_now_ms())));
    soak.rest();
  }
  printf("%s\n", broken.empty() ? "nothing was left, nothing grew" : "BROKEN, see above");
  return broken.empty() ? 0 : 1;
}
