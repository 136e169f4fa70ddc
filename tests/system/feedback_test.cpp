// Feedback bundles and the two plain copies, requested through the socket: destinations, the order
// of the getters, and hanging tools.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "phone/host/daemon.h"

namespace fs = std::filesystem;

namespace {

using Texts = std::vector<std::string>;

constexpr int kFeedback = 6, kCopyTraces = 14, kCopyKernelLog = 15;
constexpr int kGeneral = 0x10, kTombstones = 0x20, kMinidump = 0x10000;
constexpr int kEverything = 0x1fff0;

constexpr const char* kPropertyReport = "copy_system_propertie";
constexpr const char* kDumps = "get_general_log";

// The reply to one of the three requests, in hex.
std::string ask_for(const Phone& phone, int code, const std::string& destination,
                    uint32_t mask = kTombstones) {
  const std::string before = code == kFeedback ? little_endian(mask, 4) : "";
  return ask(phone, code, before + string16(destination), kSwitchMs);
}

// The sources of the requests.
void put_sources(const Phone& phone) {
  phone.write("/data/tombstones/tombstone_00", "crash\n");
  phone.write("/data/local/traces/trace", "trace\n");
}

TEST(Feedback, RefusedDestinationsChangeNothing) {
  Phone phone;
  ASSERT_TRUE(settled(phone));
  put_sources(phone);
  EXPECT_EQ(ask_for(phone, kFeedback, ""), "ffffffff");  // creates the base directory
  const auto all_paths = [&phone] {  // that a client could name, without the daemon's logs
    return phone
        .shell(
            "find /data /cache /persist /sys -path '*/.logger' -prune -o "
            "-exec stat -c '%n %a %u' {} +")
        .out;
  };
  const std::string before = all_paths();
  EXPECT_NE(before.find("/data/tombstones/tombstone_00 644 0\n"), std::string::npos) << before;
  phone.clear_calls();
  int refused = 1;
  const std::pair<int, const char*> rows[] = {
      {kFeedback, "ffffffff"}, {kCopyTraces, "00000000"}, {kCopyKernelLog, "ffffffff"}};
  const std::string long_name = "/sdcard/" + std::string(112, 'x');
  for (const auto& [code, answer] : rows) {
    for (const char* destination :
         {"", "relative/x", "/", "//", "/data", "/sdcard/..", "/sdcard/a\nb", long_name.c_str()}) {
      EXPECT_EQ(ask_for(phone, code, destination, kEverything), answer);
      EXPECT_EQ(count_lines(phone, "destination refused, "), ++refused);
    }
  }
  EXPECT_EQ(ask_for(phone, kCopyTraces, "/data/local/traces/inside"), "00000000");  // its source
  EXPECT_EQ(count_lines(phone, "destination refused, "), ++refused);
  for (const LogLine& line : lines_with(daemon_log(phone), "destination refused, "))
    EXPECT_EQ(line.priority, 6) << line;
  EXPECT_EQ(phone.calls().size(), 0u);
  EXPECT_EQ(all_paths(), before);
  EXPECT_TRUE(serves(phone));
}

TEST(Feedback, TheBoundOfEachRequestIsThatOfItsCommand) {
  Phone phone;
  ASSERT_TRUE(settled(phone));
  put_sources(phone);
  const std::pair<int, size_t> rows[] = {{kFeedback, 89}, {kCopyTraces, 107}, {kCopyKernelLog, 94}};
  for (const auto& [code, bound] : rows) {
    const size_t room = bound - strlen("/sdcard/a");
    const std::string blanks = std::string(room / 2, ' ') + std::string(room % 2, 'x');
    for (const std::string& rest : {std::string(room, 'y'), blanks}) {  // a blank takes two bytes
      const std::string longest = "/sdcard/a" + rest, longer = longest + "z";
      ask_for(phone, code, longest);
      ask_for(phone, code, longer);
      EXPECT_TRUE(phone.exists(longest)) << code << longest;
      EXPECT_FALSE(phone.exists(longer)) << code << longer;
    }
  }
}

// On a busy machine the worker of `function` may be killed at its bound: repeats the request until
// it completes.
void have_whole(const Phone& phone, const char* function, uint32_t mask) {
  const auto cuts = [&] { return cut_reports(phone, function).size(); };
  if (cuts() == 0) return;
  EXPECT_TRUE(eventually([&] {
    const size_t before = cuts();
    ask_for(phone, kFeedback, "/sdcard/out", mask);
    return cuts() == before;
  })) << function;
}

TEST(Feedback, GettersRunInStoredOrder) {
  Phone phone;
  ASSERT_TRUE(settled(phone));
  put_sources(phone);
  for (const char* path : {"/data/anr/anr_0", "/cache/boot_fail.log", "/data/aee_exp/db.fatal.00",
                           "/data/misc/bluetooth/logs/snoops/btsnoop"}) {
    fs::create_directories(fs::path(phone.inside(path)).parent_path());
    phone.write(path, path);
  }
  phone.clear_calls();
  EXPECT_EQ(ask_for(phone, kFeedback, "/sdcard/out", kEverything), "01000000");
  const std::string base = "/sdcard/Android/data/.harrowmoss/",
                    power = base + "zklog/feedback/power/";
  const std::string give = "; chmod -R 777 ", to = " /sdcard/out" + give + "/sdcard/out",
                    to2 = " /sdcard/out " + give + "/sdcard/out", bt = "/data/misc/zelkalog/btlog";
  EXPECT_EQ(
      commands_of(phone, phone.daemon_pid()),
      (Texts{"cp -a /data/anr" + to, "mv /cache/boot_fail.log " + base + "general/boot_fail.log",
             "cp -a " + base + "general/" + to, "rm -f " + base + "general/boot_fail.log",
             "cp -a /data/tombstones" + to2, "cp -a /data/anr" + to2, "cp -a /sys/fs/pstore" + to2,
             "/system/bin/sh /system/etc/power_logs_feedback.sh", "cp -a " + power + to,
             "rm -rf " + power, "cp -a /data/aee_exp/db.fatal.00" + to, "rm -rf /data/aee_exp/",
             "cp -a /data/misc/bluetooth/logs " + bt + give + bt,
             "rm -rf /data/misc/bluetooth/logs"}));
  Texts invoked;
  for (const LogLine& line : lines_with(daemon_log(phone), "function invoked")) {
    if (line.function.rfind("get_", 0) == 0) invoked.push_back(line.function);
  }
  EXPECT_EQ(invoked,
            (Texts{"get_feedback_log", "get_memory_log", "get_systrace_log", "get_screen_record",
                   "get_cell_log", "get_power_log", "get_mtkdb_log", "get_bluetooth_log"}));
  if (cut_reports(phone, kDumps).empty()) {
    EXPECT_EQ(phone.list("/sdcard/out/general").size(), 8u);  // six dumps, their control message
  }
  have_whole(phone, kDumps, kGeneral);
  have_whole(phone, kPropertyReport, 0);
  const Texts bundle = tree(phone, "/sdcard/out");
  for (const char* path : {"anr/anr_0", "anr_0", "db.fatal.00", "general/QZ201A-V1.02-kernel.txt",
                           "general/QZ201A-V1.02-main.txt", "general/boot_fail.log",
                           "minidump_0.elf", "others.prop", "power/batterystats.txt",
                           "pstore/console-ramoops-0", "system.prop", "tombstones/tombstone_00"})
    EXPECT_TRUE(std::binary_search(bundle.begin(), bundle.end(), path)) << path;
  EXPECT_EQ(phone.read(bt + "/logs/snoops/btsnoop"), "/data/misc/bluetooth/logs/snoops/btsnoop");
  phone.clear_calls();
  EXPECT_EQ(ask_for(phone, kFeedback, "/sdcard/out", 0xfffe000fu), "00000000");  // none
  EXPECT_EQ(commands_of(phone, phone.daemon_pid()), Texts{});
}

TEST(Feedback, AMissingParentOfADestinationIsMade) {
  Phone phone;
  ASSERT_TRUE(settled(phone));
  phone.write("/data/aee_exp/db.fatal.00", "the only one\n");
  EXPECT_EQ(ask_for(phone, kFeedback, "/sdcard/new/er/out", 0x2000), "00000000");
  EXPECT_EQ(phone.read("/sdcard/new/er/out"), "the only one\n");  // named by cp -a
  EXPECT_EQ(phone.list("/data/aee_exp"), Texts{});  // no permission to remove in /data itself
}

TEST(Feedback, TracesAreClearedFrom500On) {
  Phone phone;
  ASSERT_TRUE(settled(phone));
  for (int i = 0; i < 499; i++) phone.write("/data/anr/anr_" + std::to_string(i), "");
  phone.write("/data/anr/.hidden", "");
  EXPECT_EQ(ask_for(phone, kFeedback, "/sdcard/out", kGeneral), "00000000");
  EXPECT_EQ(phone.list("/data/anr").size(), 500u);
  phone.write("/data/anr/one_more", "");
  EXPECT_EQ(ask_for(phone, kFeedback, "/sdcard/out", kGeneral), "00000000");
  EXPECT_EQ(phone.list("/data/anr"), Texts{".hidden"});
  have_whole(phone, kPropertyReport, 0);
  EXPECT_EQ(phone.shell_commands().back(), "df -h");  // the walk continued
}

// How often the main process polled for a worker of `function` before it killed one.
int polls_before_the_kill(const Phone& phone, const std::string& function) {
  int polls = 0;
  for (const LogLine& line : daemon_log(phone)) {
    if (line.function != function) continue;
    if (line.text.find(" timeout, kill it") != std::string::npos) return polls;
    polls += line.text.find("wait child ") == 0;
  }
  return -1;
}

// Each in a phone of its own, in parallel.
TEST(Feedback, HangingToolsAreKilledAndKeepTheirOutput) {
  const Program getprop("echo part; sleep 1000");  // hang with a process below them
  const Program logcat(
      "case \" $* \" in *' -t 80000 '*) for f; do :; done; echo part > \"$f\"; sleep 1000;;\n"
      "*) exec /system/bin/vesk \"$@\";; esac");
  const struct {
    Texts options;
    uint32_t mask;
    // What is left; the function whose worker is killed, null: none.
    const char *answer, *part, *function;
    int polls;  // one at once, then one every 100 ms or 1 s
  } rows[] = {
      {{"--file", getprop.over("/system/bin/getprop")},
       0,
       "00000000",
       "system.prop",
       kPropertyReport,
       21},
      {{"--file", logcat.over("/system/bin/logcat")},
       kGeneral,
       "00000000",
       "general/QZ201A-V1.02-radio.txt",
       kDumps,
       7},
      {{"--prop", "bench.vendor.minidump_delay_ms=never"},
       kMinidump,
       "01000000",
       nullptr,
       nullptr,
       0},
  };
  std::vector<Texts> options;
  for (const auto& row : rows) options.push_back(row.options);
  const auto phones = boot_all(options);
  std::vector<std::unique_ptr<Client>> clients;
  for (size_t i = 0; i < std::size(rows); i++) {
    ASSERT_TRUE(settled(*phones[i]));
    fs::create_directories(phones[i]->inside("/data/media/0/out"));
    clients.push_back(std::make_unique<Client>(*phones[i]));
    const std::string arguments = little_endian(rows[i].mask, 4) + string16("/sdcard/out");
    ASSERT_TRUE(clients[i]->send(request(kFeedback, 1, arguments)));
  }
  for (size_t i = 0; i < std::size(rows); i++) {
    SCOPED_TRACE(i);
    const Phone& phone = *phones[i];
    EXPECT_EQ(hex(clients[i]->reply(kSwitchMs)).substr(32), rows[i].answer);
    clients[i]->close();
    if (rows[i].part != nullptr) {
      EXPECT_EQ(phone.read(std::string("/data/media/0/out/") + rows[i].part), "part\n");
      EXPECT_EQ(polls_before_the_kill(phone, rows[i].function), rows[i].polls);
    }
    EXPECT_EQ(
        count_lines(phone, "wait prop sys.zelka.harrowmossd.action.mv_minidump_logs_done timeout."),
        rows[i].part == nullptr);
    EXPECT_EQ(overdue_kills(phone), Texts{});
    EXPECT_TRUE(eventually_childless(phone));
    EXPECT_EQ(phone.named("sleep").size(), 0u);
    EXPECT_TRUE(serves(phone));
  }
}

TEST(Feedback, DoesNotDisturbARunningCapture) {
  Phone phone(quick_vendor());
  ASSERT_TRUE(settled(phone));
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string run = run_name(phone);
  const auto captures = [&] {
    std::vector<pid_t> pids = {size_monitor(phone).pid};
    for (const PhoneProcess& process : logcats(phone)) pids.push_back(process.pid);
    return pids;
  };
  ASSERT_GT(running_monitor(phone).pid, 0);
  ASSERT_TRUE(all_logcats_run(phone));
  const std::vector<pid_t> before = captures();
  EXPECT_EQ(phone.run({"/system/bin/log", "-t", "Probe", "before"}).status, 0);
  EXPECT_EQ(ask_for(phone, kFeedback, "/sdcard/out", kEverything & ~kMinidump), "00000000");
  EXPECT_EQ(phone.run({"/system/bin/log", "-t", "Probe", "after"}).status, 0);
  EXPECT_EQ(captures(), before);
  EXPECT_EQ(run_name(phone), run);
  have_whole(phone, kDumps, kGeneral);
  EXPECT_NE(phone.read("/data/media/0/out/general/QZ201A-V1.02-main.txt").find(": before\n"),
            std::string::npos);
  ASSERT_EQ(stop_logging(phone), 0);
  const std::string stored = phone.read(store_path(run) + "/mobile/QZ201A-V1.02-main.txt");
  for (const char* line : {": before\n", ": after\n"})
    EXPECT_NE(stored.find(line), std::string::npos) << line;
  EXPECT_EQ(overdue_kills(phone), Texts{});
}

}  // namespace
