// The bench phone's properties: what the other tests rely on, in an area under a temporary
// directory.
#include "platform/linux/property_area.h"

#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <sstream>

#include "phone/host/wait.h"
#include "tests/pure/ctl_support.h"

namespace {

class PropertyAreaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* directory : {"/dev/bench", "/data"})
      std::filesystem::create_directories(tree_.root() + directory);
    boot();
  }
  // The shared memory is new, the disk stays.
  void boot() {
    area_ = std::make_unique<PropertyArea>(tree_.root());
    ASSERT_TRUE(area_->create()) << strerror(errno);
    area_->load_persistent();
  }
  std::string get(const char* key) const {
    char value[92];
    const int length = area_->get(key, value);
    return std::string(value, static_cast<size_t>(length));
  }

  const temporary_tree tree_;
  std::unique_ptr<PropertyArea> area_;
};

TEST_F(PropertyAreaTest, RulesOfSetting) {
  const std::string longest(91, 'x'), too_long(92, 'x');
  const struct {
    const char* key;
    std::string value;
    bool set;
    std::string then, after_boot;  // what the key reads as
  } rows[] = {
      // in this order, on one area
      {"a", longest, true, longest, ""},
      {"a", too_long, false, longest, ""},
      {"a", "eight ch", true, "eight ch", ""},  // shorter: nothing of the old one
      {"a b", "1", false, "", ""},
      {"ro.a", "1", true, "1", ""},
      {"ro.a", "2", false, "1", ""},
      {"persist.a", "x\ny\\n=z", true, "x\ny\\n=z", "x\ny\\n=z"},
      {"persist.empty", "", true, "", ""},
  };
  std::string log;
  for (const auto& row : rows) {
    EXPECT_EQ(area_->set(row.key, row.value.c_str()) == 0, row.set) << row.key << row.value;
    EXPECT_EQ(get(row.key), row.then) << row.key << row.value;
    if (row.set) log += row.key;
  }
  std::ifstream file(tree_.root() + "/dev/bench/properties.log");
  std::string logged;
  for (std::string line; std::getline(file, line);)
    logged += line.substr(line.find(' ') + 1, line.find('=') - line.find(' ') - 1);
  EXPECT_EQ(logged, log);  // a line for every set, and for no other
  boot();
  for (const auto& row : rows) EXPECT_EQ(get(row.key), row.after_boot) << row.key;
}

// A whole value is a single letter, repeated as often as its place in the alphabet tells.
std::string whole_value(int i) {
  return std::string(1 + i % 26 * 90 / 25, static_cast<char>('a' + i % 26));
}
bool is_whole(const std::string& value) {
  return value.empty() || value == whole_value(value[0] - 'a');
}

TEST_F(PropertyAreaTest, AKilledWriterLeavesWholeValuesAndNoLock) {
  for (int round = 0; round < 100; ++round) {
    const char* key = round % 4 == 0 ? "persist.key" : "key";
    const uint32_t before = area_->serial();
    const pid_t pid = fork();
    ASSERT_NE(pid, -1);
    if (pid == 0) {
      PropertyArea writer(tree_.root());
      if (!writer.open()) _exit(1);
      for (int i = round;; ++i) writer.set(key, whole_value(i).c_str());
    }
    // Killed once it writes, after a number of sets that differs from round to round.
    for (uint32_t seen = before; seen - before <= static_cast<uint32_t>(round % 7);) {
      const uint32_t now = area_->wait(seen, 20000);
      ASSERT_NE(now, seen) << "the writer of round " << round << " is stuck";
      seen = now;
    }
    for (volatile int spin = 0; spin < round * 17 % 1000; spin = spin + 1) continue;
    signal_one(pid, SIGKILL);
    ASSERT_EQ(waitpid(pid, nullptr, 0), pid);
    ASSERT_TRUE(is_whole(get(key))) << round << " " << get(key);
  }
  EXPECT_EQ(area_->set("key", "after"), 0);
  boot();
  EXPECT_TRUE(!get("persist.key").empty() && is_whole(get("persist.key"))) << get("persist.key");
}

}  // namespace
