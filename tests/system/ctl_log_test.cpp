// `harrowmossctl log` in a phone: while a run is captured, and from its archive.
#include <gtest/gtest.h>

#include <future>

#include "phone/host/daemon.h"
#include "phone/host/phone.h"

namespace {

int occurrences(const std::string& text, const std::string& part) {
  int found = 0;
  for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at++) found++;
  return found;
}

TEST(CtlLogSystem, FollowsARunToItsEndAndReadsItsArchive) {
  Phone phone;
  ASSERT_EQ(phone.run({"harrowmossctl", "start", "mobile"}).status, 0);
  auto following = std::async(std::launch::async, [&] {
    return phone.run({"harrowmossctl", "log", "1", "--follow", "--buffer", "radio,crash"});
  });
  ASSERT_TRUE(eventually([&] { return !phone.named("harrowmossctl").empty(); }));
  phone.shell("log -b radio -t Radio -n 300 before; log -b crash -t libc 'Fatal signal 11'");
  phone.setprop("bench.logcat.exit_pid", std::to_string(logcat_of(phone, "radio").pid));
  const std::string name = run_name(phone);
  const std::string second = working_path(name) + "/mobile/QZ201A-V1.02-radio_1.txt";
  ASSERT_TRUE(eventually([&] { return phone.exists(second); }));
  phone.shell("log -b radio -t Radio after");
  ASSERT_EQ(phone.run({"harrowmossctl", "stop"}).status, 0);
  const RunResult followed = following.get();
  EXPECT_EQ(followed.status, 0) << followed.err;

  const RunResult whole = phone.run({"harrowmossctl", "log", "1"});
  EXPECT_EQ(whole.status, 0) << whole.err;
  for (const char* part : {" hole: radio: its logcat was replaced", "daemon: logging was started",
                           "daemon: a logcat ended and is replaced: radio"}) {
    EXPECT_EQ(occurrences(whole.out, part), 1) << part << " in\n" << whole.out;
  }
  for (const char* part : {"Radio   : before", "libc    : Fatal signal 11", "Radio   : after"}) {
    EXPECT_GE(occurrences(followed.out, part), 1) << part << " in\n" << followed.out;
    EXPECT_EQ(occurrences(followed.out, part), occurrences(whole.out, part)) << part;
  }
  ASSERT_EQ(phone.run({"harrowmossctl", "pack", "1", "--view"}).status, 0);
  const RunResult packed = phone.run({"harrowmossctl", "log", "/sdcard/" + name + ".tar.gz"});
  EXPECT_EQ(packed.status, 0) << packed.err;
  EXPECT_EQ(
      packed.out,
      phone.run({"harrowmossctl", "log", "1", "--buffer", "main,system,radio,events,crash,kernel"})
          .out);
  const RunResult page =
      phone.run({"tar", "-x", "-O", "-z", "-f", "/sdcard/" + name + ".tar.gz", name + ".html"});
  for (const char* kind : {"start", "replaced", "hole", "crash", "stop"}) {
    EXPECT_GE(occurrences(page.out, std::string("\"kind\":\"") + kind + "\""), 1) << kind;
  }
}

}  // namespace
