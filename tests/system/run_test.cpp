// A run of debug logging from its start to the moved result.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>
#include <set>

#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;

// With the run's name and times of day replaced, so that texts can be compared.
std::string normal(std::string text, const std::string& run) {
  for (size_t at; !run.empty() && (at = text.find(run)) != std::string::npos;)
    text.replace(at, run.size(), "RUN");
  static const std::regex stamp("message-\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d");
  return std::regex_replace(text, stamp, "message-STAMP");
}

// "key=value" of what the main process has set since `from` sets.
Words sets_of_daemon(const Phone& phone, size_t from, const std::string& run) {
  const std::vector<PropertySet> all = phone.properties_log();
  Words texts;
  for (size_t i = from; i < all.size(); i++) {
    if (all[i].pid == phone.daemon_pid())
      texts.push_back(normal(all[i].key + "=" + all[i].value, run));
  }
  return texts;
}

// What a run with the mobile and modem types does, from its start to the end of its stop.
const Words kSets = {
    "persist.sys.zklog.type=3",
    "persist.sys.zklog.enable=on",
    "persist.bluetooth.btsnoopenable=true",
    "persist.sys.zklog.dir_sequence=1",
    "sys.harrowmossd.log_store_path=/sdcard/zelkalog/RUN",
    "sys.harrowmossd.vendor_log_root_path=/data/vendor/zelkalog/common/RUN",
    "persist.odm.zklog.qmimsg.enable=0",
    "persist.sys.harrowmossd.mdlog_counts=25",
    "sys.harrowmossd.diag_mdlog_path=/data/vendor/zelkalog/common/RUN/modem",
    "sys.harrowmossd.diag_mdlog_cfg=/data/vendor/zelkalog/.DIAG.cfg",
    "sys.harrowmossd.diag_mdlog_src_cfg="
    "/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/.DIAG.cfg",
    "sys.zelka.diag_mdlog_over_qdss_state=1",
    "sys.zelka.fp.dump=on",
    "sys.zelka.modemdump=on",
    "persist.sys.zklog.enable=off",  // the stop
    "persist.sys.qtrlog.enable=0",
    "sys.zelka.diag_mdlog_over_qdss_state=0",
    "sys.zelka.harrowmossd.action.mv_vendor_common_logs=1",
    "log.wl.capture.ssrdump=1",
    "sys.zelka.modemdump=off",
    "persist.debug.trace=0",
    "persist.bluetooth.btsnoopenable=false",
    "sys.zelka.fp.dump=off",
};

const Words kFiles = {
    "anr/",
    "anr/trace_00",
    "mobile/",
    "mobile/QZ201A-V1.02-crash.txt",
    "mobile/QZ201A-V1.02-events.txt",
    "mobile/QZ201A-V1.02-kernel.txt",
    "mobile/QZ201A-V1.02-main.txt",
    "mobile/QZ201A-V1.02-radio.txt",
    "mobile/QZ201A-V1.02-system.txt",
    "mobile/logcat_control_message-STAMP.txt",
    "mobile/logcat_control_message-STAMP.txt",
    "modem/",
    "modem/diag_log_0000.qmdl",
    "others.prop",
    "others_stop.prop",
    "system.prop",
    "system_stop.prop",
    "tombstones/",
    "tombstones/tombstone_00",
    "wlan_logs/",
};

// `files` without those that are missing when their worker was cut, if one was.
Words promised(const Phone& phone, Words files) {
  if (cut_reports(phone, "copy_system_propertie").empty()) return files;
  const auto is_report = [](const std::string& file) {
    return file.find(".prop") != std::string::npos;
  };
  files.erase(std::remove_if(files.begin(), files.end(), is_report), files.end());
  return files;
}

TEST(Run, PublishesRunsAndOrdersAsStated) {
  Phone phone;  // with the vendor's side, which brings the modem's log
  ASSERT_TRUE(settled(phone));
  phone.write("/data/anr/trace_00", "stack\n");
  phone.write("/data/tombstones/tombstone_00", "crash\n");
  phone.clear_calls();
  const size_t from = phone.properties_log().size();
  ASSERT_EQ(start_logging(phone, kMobile | kModem), 0);
  const std::string run = run_name(phone);
  EXPECT_TRUE(std::regex_match(run, std::regex("1#\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d"))) << run;
  // All of it is being written before the stop comes.
  const std::string modem = "/data/vendor/zelkalog/common/" + run + "/modem/diag_log_0000.qmdl";
  ASSERT_TRUE(eventually([&] {
    return phone.exists(modem) && phone.list(working_path(run) + "/mobile").size() >= 7;
  }));
  ASSERT_TRUE(all_logcats_run(phone));
  // Request 9 names the same run.
  EXPECT_EQ(from_hex(ask(phone, 9)).substr(4, run.size()), run);
  ASSERT_EQ(stop_logging(phone), 0);

  EXPECT_EQ(sets_of_daemon(phone, from, run), kSets);

  EXPECT_EQ(phone.read("/sys/module/ipc_router_core/parameters/debug_mask"), "0x0\n");

  Words files;
  for (const std::string& path : tree(phone, store_path(run))) files.push_back(normal(path, run));
  EXPECT_EQ(promised(phone, files), promised(phone, kFiles));
  EXPECT_EQ(phone.list("/data/misc/zelkalog"), Words{".logger"});
  EXPECT_TRUE(phone.exists("/data/anr/trace_00"));  // copied: its owner keeps it
  struct stat st;
  ASSERT_EQ(stat(phone.inside(store_path(run)).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0777u);
  EXPECT_EQ(st.st_uid, 1015u);
}

TEST(Run, CapturesEveryBufferUpToTheStop) {
  Phone phone(quick_vendor());
  const Words buffers = {"main", "events", "system", "radio", "crash", "kernel"};
  phone.shell("log -t before -b radio 'from before the start'");
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string run = run_name(phone);
  const auto say = [&](const std::string& word) {
    for (const std::string& buffer : buffers)
      phone.shell("log -t mark -b " + buffer + " '" + word + buffer + "'");
  };
  const auto has = [&](const std::string& place, const std::string& buffer,
                       const std::string& word) {
    return phone.read(place + "/mobile/QZ201A-V1.02-" + buffer + ".txt").find(word + buffer) !=
           std::string::npos;
  };
  say("first word in ");
  for (const std::string& buffer : buffers) {
    ASSERT_TRUE(eventually([&] { return has(working_path(run), buffer, "first word in "); }))
        << buffer;
  }
  say("last word in ");  // whatever the captures do just now: what was said before the stop is in
  ASSERT_EQ(stop_logging(phone), 0);
  for (const std::string& buffer : buffers) {
    for (const char* word : {"first word in ", "last word in "})
      EXPECT_TRUE(has(store_path(run), buffer, word)) << word << buffer;
  }
  EXPECT_NE(phone.read(store_path(run) + "/mobile/QZ201A-V1.02-radio.txt").find("from before"),
            std::string::npos);
}

TEST(Run, AnswersTheActiveMaskWithNothing) {
  Phone phone(quick_vendor());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  ASSERT_TRUE(all_logcats_run(phone));
  const size_t sets = phone.properties_log().size();
  const size_t lines = daemon_log(phone).size();
  const auto before = logcats(phone);
  Client client(phone);
  ASSERT_TRUE(client.send(request(2, 5, little_endian(kMobile, 4))));
  EXPECT_EQ(hex(client.reply()), "0c000000020000000500000000000000");
  EXPECT_EQ(phone.properties_log().size(), sets);
  const auto after = logcats(phone);
  ASSERT_EQ(after.size(), 6u);
  for (size_t i = 0; i < after.size(); i++) EXPECT_EQ(after[i].pid, before[i].pid);
  const Words said = main_thread_log(phone, lines);
  EXPECT_EQ(
      std::count(said.begin(), said.end(), "5 current logger is enabled! types=1, req types=1"), 1);
  EXPECT_EQ(std::count(said.begin(), said.end(), "5 logger types no change, just return."), 1);
}

TEST(Run, StopsFirstForAnotherMask) {
  constexpr int kCoreDump = 0x100;
  Phone phone(quick_vendor());
  ASSERT_TRUE(settled(phone));
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string first = run_name(phone);
  const PhoneProcess monitor = running_monitor(phone);
  ASSERT_TRUE(all_logcats_run(phone));
  std::set<pid_t> old;
  for (const PhoneProcess& process : logcats(phone)) old.insert(process.pid);
  ASSERT_EQ(start_logging(phone, kMobile | kCoreDump), 0);
  const std::string second = run_name(phone);
  EXPECT_EQ(second.substr(0, 2), "2#");
  EXPECT_EQ(count_lines(phone, "request start logger with types changed, stop current first."), 1);
  EXPECT_TRUE(phone.exists(store_path(first) + "/mobile"));
  EXPECT_TRUE(phone.exists(working_path(second) + "/mobile"));
  EXPECT_FALSE(phone.exists(working_path(first)));
  EXPECT_EQ(phone.values_of("persist.sys.zklog.enable"), (Words{"on", "on"}));
  EXPECT_EQ(phone.values_of("persist.sys.zklog.type"), (Words{"1", "257"}));
  EXPECT_EQ(phone.values_of("persist.debug.trace"), (Words{"0", "1"}));
  EXPECT_EQ(size_monitor(phone).pid, monitor.pid);
  ASSERT_TRUE(all_logcats_run(phone));
  for (const PhoneProcess& process : logcats(phone)) EXPECT_EQ(old.count(process.pid), 0u);
  // The collector goes on: one, and one only.
  const auto collectors = [&] {
    int alive = 0;
    for (const PhoneProcess& process : phone.named("logcat"))
      alive += !process.cmdline.empty() && process.cmdline[0] == "harrowmossd:SLC";
    return alive;
  };
  EXPECT_TRUE(eventually([&] { return collectors() == 1; }));
  EXPECT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_childless(phone));
}

TEST(Run, StopsWithNothingToStop) {
  Phone phone(quick_vendor());
  ASSERT_TRUE(settled(phone));
  phone.write("/data/anr/trace_00", "stack\n");
  phone.write("/data/misc/zelkalog/5#01-01_00-00-00/mobile/left.txt", "of an older run\n");
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(phone.exists("/sdcard/zelkalog/5#01-01_00-00-00/mobile/left.txt"));
  EXPECT_TRUE(phone.exists("/sdcard/zelkalog/.logger/harrowmossd.txt"));
  EXPECT_EQ(phone.read("/data/anr/trace_00"), "stack\n");
  EXPECT_EQ(phone.values_of("persist.debug.trace"), Words{"0"});
  EXPECT_EQ(phone.values_of("persist.sys.zklog.enable"), Words{"off"});
  EXPECT_TRUE(phone.values_of("persist.sys.zklog.dir_sequence").empty());
  EXPECT_TRUE(eventually_childless(phone));
  EXPECT_EQ(count_lines(phone, "receive signal"), 0);
}

}  // namespace
