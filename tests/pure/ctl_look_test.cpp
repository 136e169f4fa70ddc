// What harrowmossctl reads without the daemon: processes, settings, runs, and the self log.

#include "client/connection/progress.h"
#include "client/runs/runs.h"
#include "client/support/settings.h"
#include "tests/pure/ctl_support.h"

namespace {

using std::string_literals::operator""s;

void put_process(const TemporaryTree& tree, int pid, int parent, const std::string& comm,
                 const std::string& cmdline, const char* exe, int started) {
  const std::string home = "proc/" + std::to_string(pid);
  tree.put(home + "/stat", std::to_string(pid) + " (" + comm + ") S " + std::to_string(parent) +
                               " 0 0 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 " + std::to_string(started) +
                               " 0 0\n");
  tree.put(home + "/cmdline", cmdline);
  if (exe != nullptr) std::filesystem::create_symlink(exe, tree.root() + "/" + home + "/exe");
}

TEST(CtlStatus, ShowsDaemonMonitorAndWorkers) {
  BenchClient client;
  put_process(client.tree, 1, 0, "init", "init\0"s, nullptr, 0);
  put_process(client.tree, 20, 1, "harrowmossd", "x\0"s, "/system/bin/harrowmossd", 5);
  put_process(client.tree, 19, 1, "harrowmossd", "x\0"s, "/system/bin/harrowmossd", 9);  // younger
  put_process(client.tree, 21, 20, "harrowmossd-lsm", "x\0"s, nullptr, 6);
  put_process(client.tree, 22, 20, "mossd:debug-net", "x\0y\x1b\0"s, nullptr, 7);
  // A name like further fields.
  put_process(client.tree, 23, 20, "a) S 1 1 (b", "z\0"s, nullptr, 8);
  client.tree.put("proc/self-is-no-pid/stat", "x");
  client.tree.put("data/misc/zelkalog/3#01-02_03-04-05/net/a", std::string(1500, 'x'));
  client.tree.put("sdcard/zelkalog/2#01-02_03-04-05/b", std::string(548, 'x'));
  client.properties = {{"persist.sys.zklog.enable", "on"},
                       {"persist.sys.zklog.type", "5"},
                       {"sys.harrowmossd.log_store_path", "/sdcard/zelkalog/3#01-02_03-04-05"}};
  EXPECT_EQ(client.run({"status"}), kExitOk);
  for (const char* part :
       {"debug logging: on\n", "mobile,net (0x5)", "3#01-02_03-04-05, ", " of 20 GiB",
        "daemon:        pid 20\n", "size monitor:  pid 21\n", "workers:       2\n",
        "22     20  net           mossd:debug-net  x y\\x1b\n"}) {
    EXPECT_TRUE(contains(client.out, part)) << part << " in\n" << client.out;
  }
  EXPECT_EQ(client.run({"status", "--json"}), kExitOk);
  for (const char* part : {"\"logging\":true", "\"daemon_pid\":20,\"size_monitor_pid\":21",
                           "\"type\":\"net\"", "\"cmdline\":[\"x\",\"y\\u001b\"]"}) {
    EXPECT_TRUE(contains(client.out, part)) << part << " in\n" << client.out;
  }
}

TEST(CtlSettings, AreReadTheWayTheDaemonReadsThem) {
  const struct {
    const char *enable, *types, *quota, *deletion;
    bool logging;
    int32_t mask;
    double gib;
    bool removes;
  } rows[] = {
      {"", "", "", "", false, 1, 20, true},
      {"only", "5", "30", "true", true, 5, 30, true},
      {"On", "0x3", "x", "false", false, 0, 20, false},
      {"on", "1", "-1", "", true, 1, 20, true},
      {"on", "1", "0", "", true, 1, 0, true},
      {"on", "2", "20", "True", true, 2, 15, false},
      {"on", "64", "10", "true", true, 0x40, 7.5, true},
  };
  for (const auto& row : rows) {
    BenchClient client;
    client.properties = {{"persist.sys.zklog.enable", row.enable},
                         {"persist.sys.zklog.type", row.types},
                         {"persist.sys.zelka.log.size", row.quota},
                         {"persist.sys.zelka.log.del", row.deletion}};
    const LoggingSettings settings = read_settings(client.env);
    EXPECT_EQ(settings.logging, row.logging) << row.enable;
    EXPECT_EQ(settings.types, row.mask) << row.types;
    EXPECT_EQ(settings.quota_mib, row.gib * 1024) << row.quota << " " << row.types;
    EXPECT_EQ(settings.deletion, row.removes) << row.deletion;
  }
}

TEST(CtlRuns, AreRecognisedByName) {
  const struct {
    const char* name;
    int64_t sequence;
    const char* date;  // null: no run
  } rows[] = {
      {"12#03-07_14-05-09", 12, "03-07 14:05:09"},
      {"03-07_14-05-09", -1, "03-07 14:05:09"},
      {"12#03-07_14-05-09x", 0, nullptr},
  };
  for (const auto& row : rows) {
    RunReport run;
    ASSERT_EQ(parse_run_name(row.name, &run), row.date != nullptr) << row.name;
    if (row.date == nullptr) continue;
    EXPECT_EQ(run.sequence, row.sequence) << row.name;
    EXPECT_EQ(run.date, row.date);
  }
}

TEST(CtlRuns, AreCompleteCapturingOrLeftBehind) {
  BenchClient client;
  const std::string time = "#03-07_14-05-09";
  client.tree.put("sdcard/zelkalog/9" + time + "/mobile/D-V1-main.txt", "12345");
  client.tree.put("sdcard/zelkalog/9" + time + "/fg/x", "");
  client.tree.put("sdcard/zelkalog/traces/x", "");
  client.tree.put("sdcard/zelkalog/8" + time, "a file, not a run");
  client.tree.put("data/misc/zelkalog/10" + time + "/system.prop",
                  "[ro.build.display.id]: [wrong]\n[xro.vendor.build.display.id]: [wrong]\n"
                  "[ro.vendor.build.display.id]: [D V2]\n");
  client.tree.put("sdcard/zelkalog/10" + time + "/wlan_logs/y", "1");
  client.tree.put("data/misc/zelkalog/11" + time + "/touch/z", "");
  client.properties = {{"persist.sys.zklog.enable", "on"},
                       {"persist.sys.zklog.type", "4096"},
                       {"sys.harrowmossd.log_store_path", "/sdcard/zelkalog/11" + time}};
  const std::vector<RunReport> runs = read_runs(client.env);
  ASSERT_EQ(runs.size(), 3u);
  const struct {
    int64_t sequence;
    RunState state;
    int32_t types;
    bool known;
    const char* build;
  } rows[] = {
      {9, RunState::kComplete, 0x1 | 0x8, false, "D-V1"},
      {10, RunState::kLeftBehind, 0x40, false, "D V2"},
      {11, RunState::kCapturing, 0x1000, true, ""},
  };
  for (size_t i = 0; i < runs.size(); i++) {
    EXPECT_EQ(runs[i].sequence, rows[i].sequence);
    EXPECT_EQ(runs[i].state, rows[i].state) << runs[i].name;
    EXPECT_EQ(runs[i].types, rows[i].types) << runs[i].name;
    EXPECT_EQ(runs[i].types_known, rows[i].known) << runs[i].name;
    EXPECT_EQ(runs[i].build, rows[i].build) << runs[i].name;
  }

  client.properties["persist.sys.zklog.enable"] = "off";  // nothing writes the last run
  EXPECT_EQ(read_runs(client.env)[2].state, RunState::kLeftBehind);
  EXPECT_EQ(client.run({"runs"}), kExitOk);
  EXPECT_TRUE(contains(client.out, "     9  03-07 14:05:09  complete     ")) << client.out;
  EXPECT_EQ(client.run({"runs", "--json"}), kExitOk);
  EXPECT_TRUE(contains(client.out, "\"sequence\":9")) << client.out;
}

TEST(CtlRuns, ShowTheHolesInTheirLogs) {
  const std::string opening = "--------- beginning of main\n";
  using Files = std::vector<std::pair<const char*, std::string>>;  // in mobile/
  const struct {
    Files files;
    int generations;  // of the rotated file; 0: none
    LostLines lost;
    size_t replaced;
  } rows[] = {
      {{{"D-main.txt", "x"}}, 0, LostLines::kNo, 0},
      {{{"D-main.txt", "x"}, {"D-main.txt.1", "y"}, {"D-main.txt.2", opening}},
       2,
       LostLines::kNo,
       0},
      {{{"D-main.txt.1", "y"}, {"D-main.txt.2", "03-07 ..."}}, 2, LostLines::kYes, 0},
      {{{"D-radio_1.txt", ""}, {"D-radio_2.txt", ""}}, 0, LostLines::kNo, 2},
  };
  for (const auto& row : rows) {
    BenchClient client;
    for (const auto& [name, content] : row.files)
      client.tree.put("sdcard/zelkalog/1#03-07_14-05-09/mobile/" + std::string(name), content);
    const std::vector<RunReport> runs = read_runs(client.env);
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].replaced.size(), row.replaced) << &row - rows;
    ASSERT_EQ(runs[0].rotated.size(), row.generations == 0 ? 0u : 1u) << &row - rows;
    if (row.generations == 0) continue;
    EXPECT_EQ(runs[0].rotated[0].generations, row.generations) << &row - rows;
    EXPECT_EQ(runs[0].rotated[0].lost, row.lost) << &row - rows;
  }
}

std::string self_log_line(const std::string& function, const std::string& message) {
  return "26-03-07 14:05:09 || harrowmossd [20, 20] commands|" + function + "|7:: " + message;
}

TEST(CtlProgress, FollowsTheSelfLogThroughItsRotation) {
  TemporaryTree tree;
  const std::string log = tree.root() + "/log";
  tree.put("log", self_log_line("f", "move all log start=1") + "\n");  // an earlier stop
  char* text = nullptr;
  size_t size = 0;
  FILE* out = open_memstream(&text, &size);
  {
    ProgressLines progress(log, out);
    progress.look();
    const std::string line = self_log_line("f", "kill debug group start") + "\n";
    tree.put("log", line.substr(0, 30));
    progress.look();
    const std::string next = self_log_line("f", "kill debug group end") + "\n";
    tree.put("log", line.substr(30) + next.substr(0, 40));
    progress.look();
    tree.put("log", next.substr(40));
    tree.put("log", line.substr(0, line.size() - 9));  // a partial line
    progress.look();
    std::filesystem::rename(log, log + ".1");
    tree.put("log", self_log_line("f", "kill vesk group end") + "\n");
    progress.look();
    progress.look();
  }
  fclose(out);
  std::string steps(text, size);
  free(text);
  for (size_t at; (at = steps.find('[')) != std::string::npos;) {  // times vary
    steps.erase(at, steps.find(']') + 2 - at);
  }
  EXPECT_EQ(steps, "ending the workers\nending the logcats\nevery worker has ended\n");
}

}  // namespace
