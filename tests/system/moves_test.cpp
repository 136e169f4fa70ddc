// What a stop moves while something goes wrong: every captured byte is there afterwards, whole, in
// one of its two places.
#include <gtest/gtest.h>

#include "phone/host/daemon.h"

namespace {

constexpr int kFiles = 4;
constexpr size_t kFileBytes = 12 << 20;

struct trouble {
  const char* what;
  std::vector<std::string> options;
  const char* taken;  // by another writer while the run is moved; "": there is none
  bool kills_daemon;  // while the run is moved
};

std::string content(int i) {
  return std::string(kFileBytes, static_cast<char>('a' + i));
}

void expect_whole(const Phone& phone, const std::string& run) {
  for (int i = 0; i < kFiles; i++) {
    const std::string file = "/big/" + std::to_string(i);
    const std::string stored = phone.read(store_path(run) + file);
    EXPECT_TRUE(stored == content(i) || phone.read(working_path(run) + file) == content(i)) << file;
    EXPECT_TRUE(stored.empty() || stored == content(i)) << file << " " << stored.size();
  }
  for (const std::string& name : phone.list("/data/misc/zelkalog"))
    EXPECT_EQ(name.find("ing-"), std::string::npos) << name;
}

TEST(Moves, LoseNothingOfARun) {
  const trouble rows[] = {
      {"a writer fills the store", {"--sdcard-size", "150m"}, "120m", false},
      {"a writer fills the pool", {"--one-pool", "--data-size", "400m"}, "340m", false},
      {"the daemon is killed", {}, "", true},
  };
  for (const trouble& row : rows) {
    Phone phone(quick_vendor(row.options));
    ASSERT_EQ(start_logging(phone, kMobile), 0) << row.what;
    const std::string run = run_name(phone);
    for (int i = 0; i < kFiles; i++)
      phone.write(working_path(run) + "/big/" + std::to_string(i), content(i));
    const pid_t before = phone.daemon_pid();
    Client client(phone);
    ASSERT_TRUE(client.send(request(3, 1)));
    const std::string moving = "/data/misc/zelkalog/.moving-" + run;
    ASSERT_TRUE(eventually([&] { return phone.exists(moving) || phone.exists(store_path(run)); }));
    const std::string take = std::string("head -c ") + row.taken + " /dev/zero > /sdcard/other";
    if (row.taken[0] != '\0') phone.shell(take);
    if (row.kills_daemon) {
      phone.signal(before, SIGKILL);
      ASSERT_TRUE(
          eventually([&] { return phone.daemon_pid() != before && serves(phone); }, kTimerMs));
    } else {
      EXPECT_FALSE(client.reply(kSwitchMs).empty()) << row.what;
    }
    client.close();
    expect_whole(phone, run);
    unlink(phone.inside("/sdcard/other").c_str());
    ASSERT_EQ(stop_logging(phone), 0) << row.what;
    for (int i = 0; i < kFiles; i++)
      EXPECT_TRUE(phone.read(store_path(run) + "/big/" + std::to_string(i)) == content(i))
          << row.what;
  }
}

}  // namespace
