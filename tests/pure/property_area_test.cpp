// The shared properties, in areas of their own under a temporary directory.
#include "platform/linux/property_area.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/property_map.h"

namespace {

constexpr char kLongText[] = "Must use __system_property_read_callback() to read";

class PropertyAreaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = (std::filesystem::temp_directory_path() / "properties.XXXXXX").string();
    ASSERT_NE(mkdtemp(root_.data()), nullptr);
    for (const char* directory : {"/dev", "/dev/bench", "/data"}) {
      ASSERT_EQ(mkdir(path(directory).c_str(), 0755), 0);
    }
    area_ = std::make_unique<PropertyArea>(root_);
    ASSERT_TRUE(area_->create()) << strerror(errno);
  }
  void TearDown() override {
    area_.reset();
    std::filesystem::remove_all(root_);
  }

  std::string path(const char* in_phone) const { return root_ + in_phone; }
  std::string read(const char* in_phone) const {
    std::ostringstream text;
    text << std::ifstream(path(in_phone), std::ios::binary).rdbuf();
    return text.str();
  }
  // A boot: the shared memory is lost, the disk stays.
  void boot_again() {
    area_ = std::make_unique<PropertyArea>(root_);
    ASSERT_TRUE(area_->create());
    area_->load_persistent();
  }

  std::string root_;
  std::unique_ptr<PropertyArea> area_;
};

// "value", preceded by the returned length where that is not the value's.
std::string get(const PropertyArea& area, const char* key) {
  char value[92];
  memset(value, '#', sizeof(value));
  const int length = area.get(key, value);
  const std::string text(value, strnlen(value, sizeof(value)));
  return length == static_cast<int>(text.size()) ? text : std::to_string(length) + ":" + text;
}

// A whole value is a single letter, repeated as often as its place in the alphabet tells.
std::string whole_value(int i) {
  return std::string(1 + i % 26 * 90 / 25, static_cast<char>('a' + i % 26));
}
bool is_whole(const std::string& value) {
  return value.empty() || value == whole_value(value[0] - 'a');
}

TEST_F(PropertyAreaTest, RulesOfSetting) {
  const std::string longest(91, 'x');
  const std::string too_long(92, 'x');
  const struct {
    const char* key;
    const char* value;
    int result;
    std::string then;  // what the key reads as afterwards
  } rows[] = {
      // in this order, on one area
      {"a", "1", 0, "1"},
      {"a", longest.c_str(), 0, longest},
      {"a", too_long.c_str(), -1, longest},
      {"a", "eight ch", 0,
       "eight ch"},  // shorter, with the length of a word: nothing of the old one
      {"a", "", 0, ""},
      {"a", "x\ny\\z=1 \xc3\xa4", 0, "x\ny\\z=1 \xc3\xa4"},
      {"", "1", -1, ""},
      {".a", "1", -1, ""},
      {"a.", "1", -1, ""},
      {"a..b", "1", -1, ""},
      {"a b", "1", -1, ""},
      {"a\xc3\xa4", "1", -1, ""},
      {"ro.a", "1", 0, "1"},
      {"ro.a", "2", -1, "1"},
      {"ro.empty", "", 0, ""},
      {"ro.91", longest.c_str(), 0, longest},
      {"ro.92", too_long.c_str(), 0, kLongText},
      {"ro.92", "1", -1, kLongText},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(area_->set(row.key, row.value), row.result) << row.key;
    EXPECT_EQ(get(*area_, row.key), row.then) << row.key;
  }
  EXPECT_EQ(area_->set(nullptr, "1"), -1);
  EXPECT_EQ(get(*area_, "never.set"), "");
}

TEST_F(PropertyAreaTest, EverySetIsOneLineOfTheLogAndACount) {
  const uint32_t before = area_->serial();
  area_->set("b", "1");
  area_->set("a", "x\ny\\");
  area_->set("b", "1");  // the same value again is a set too
  area_->set("b b", "refused");
  area_->set("ro.c", "1");
  area_->set("ro.c", "refused");
  const std::string pid = std::to_string(getpid()) + " ";
  EXPECT_EQ(read("/dev/bench/properties.log"),
            pid + "b=1\n" + pid + "a=x\\ny\\\\\n" + pid + "b=1\n" + pid + "ro.c=1\n");
  EXPECT_EQ(area_->serial() - before, 4u);
}

TEST_F(PropertyAreaTest, PersistentOnesOutliveABoot) {
  const std::string longest(91, '\\');  // each takes two bytes on disk
  area_->set("persist.a", "old");
  area_->set("persist.b", "x\ny\\n=z");
  area_->set("persist.c", longest.c_str());
  area_->set("persist.a", "new");
  area_->set("persist.empty", "");
  area_->set("persistent", "1");
  area_->set("plain", "1");
  boot_again();
  EXPECT_EQ(get(*area_, "persist.a"), "new");
  EXPECT_EQ(get(*area_, "persist.b"), "x\ny\\n=z");
  EXPECT_EQ(get(*area_, "persist.c"), longest);
  EXPECT_EQ(area_->all().size(), 4u);  // nothing else came back, and the empty one did
  area_->set("persist.d", "1");        // saving one keeps those that were only loaded
  boot_again();
  EXPECT_EQ(area_->all().size(), 5u);
  EXPECT_EQ(read("/data/property/persistent_properties.tmp"), "");
}

TEST_F(PropertyAreaTest, WaitReturnsWithTheNextSetOrTheTime) {
  const uint32_t seen = area_->serial();
  EXPECT_EQ(area_->wait(seen, 0), seen);
  EXPECT_EQ(area_->wait(seen, 20), seen);
  const pid_t pid = fork();  // a writer in another process wakes us
  ASSERT_NE(pid, -1);
  if (pid == 0) {
    PropertyArea writer(root_);
    _exit(writer.open() && writer.set("a", "1") == 0 ? 0 : 1);
  }
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(area_->wait(seen, 60000), seen + 1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30)) << "not woken";
  EXPECT_EQ(get(*area_, "a"), "1");
  EXPECT_EQ(area_->wait(seen, 60000), seen + 1);  // at once: it has changed already
  ASSERT_EQ(waitpid(pid, nullptr, 0), pid);
}

// Sets keys over and over until it is killed: all of a set, with its lock and its files, and now
// and then a key that is new.
[[noreturn]] void set_forever(const std::string& root, const char* key, int round) {
  PropertyArea writer(root);
  if (!writer.open()) _exit(1);
  for (int i = round;; ++i) {
    writer.set(key, whole_value(i).c_str());
    if (i % 8 == 0) writer.set(("new." + std::to_string(i % 600)).c_str(), whole_value(i).c_str());
  }
}

// The few nanoseconds of a set in which the value itself is replaced, and nothing else, so that a
// kill or a reader hits them. The caller is the only writer.
PropertyEntry* entry_to_replace(PropertyMap* map, const char* key) {
  return const_cast<PropertyEntry*>(find_property(map, key));
}
[[noreturn]] void replace_forever(const std::string& root, const char* key, int round) {
  PropertyArea writer(root);
  if (!writer.open() || writer.set(key, whole_value(round).c_str()) != 0) _exit(1);
  PropertyMap* map = map_properties(root.c_str(), true);
  PropertyEntry* entry = entry_to_replace(map, key);
  std::vector<std::string> values;
  for (int i = 0; i < 26; ++i) values.push_back(whole_value(i));
  for (int i = 0;; ++i) {
    replace_property_value(entry, values[i % 26].c_str());
    if (i == 1000) announce_property_change(map);  // in full swing: the kill may come
  }
}

TEST_F(PropertyAreaTest, AKilledWriterLeavesWholeValuesAndNoLock) {
  for (int round = 0; round < 300; ++round) {
    const char* key = round % 4 == 0 ? "persist.key" : "key";
    const uint32_t before = area_->serial();
    const pid_t pid = fork();
    ASSERT_NE(pid, -1);
    const bool sets = round % 2 == 0;
    if (pid == 0) (sets ? set_forever : replace_forever)(root_, key, round);
    // Killed once it writes, after a number of its steps that differs from round to round.
    const uint32_t steps = sets ? static_cast<uint32_t>(round % 7) : 1;
    for (uint32_t seen = before; seen - before <= steps;) {
      const uint32_t now = area_->wait(seen, 20000);
      ASSERT_NE(now, seen) << "the writer of round " << round << " is stuck";
      seen = now;
    }
    for (volatile int spin = 0; spin < round * 17 % 1000; spin = spin + 1) continue;
    kill(pid, SIGKILL);
    ASSERT_EQ(waitpid(pid, nullptr, 0), pid);
    ASSERT_TRUE(is_whole(get(*area_, key))) << get(*area_, key);
  }
  for (const auto& property : area_->all()) {
    EXPECT_TRUE(is_whole(property.value)) << property.key << "=" << property.value;
  }
  EXPECT_EQ(area_->set("key", "after"), 0);
  EXPECT_EQ(get(*area_, "key"), "after");
  std::istringstream log(read("/dev/bench/properties.log"));  // whole lines only
  std::string line;
  while (std::getline(log, line)) {
    const size_t equals = line.find('=');
    ASSERT_NE(equals, std::string::npos) << line;
    ASSERT_TRUE(line.substr(equals + 1) == "after" || is_whole(line.substr(equals + 1))) << line;
  }
  const std::string saved = get(*area_, "persist.key");
  boot_again();
  EXPECT_TRUE(!get(*area_, "persist.key").empty() && is_whole(get(*area_, "persist.key")));
  EXPECT_FALSE(saved.empty());
}

TEST_F(PropertyAreaTest, ManyWritersAndReadersSeeOnlyWholeValuesAndLoseNoSet) {
  constexpr int kWriters = 3;
  constexpr int kSets = 400;
  const uint32_t before = area_->serial();
  std::atomic<int> writing{kWriters};
  std::atomic<int> torn{0};
  std::atomic<int> firsts{0};
  const pid_t other = fork();  // a writer in another process, beside the threads of this one
  ASSERT_NE(other, -1);
  if (other == 0) {
    PropertyArea writer(root_);
    if (!writer.open()) _exit(1);
    for (int i = 0; i < kSets; ++i) {
      if (writer.set("shared", whole_value(i).c_str()) != 0) _exit(2);
    }
    _exit(0);
  }
  std::vector<std::thread> threads;
  for (int w = 0; w < kWriters; ++w) {
    threads.emplace_back([&, w] {
      for (int i = 0; i < kSets; ++i) {
        if (area_->set("shared", whole_value(i + w).c_str()) != 0) ++torn;
        // All writers come for the same new keys; one of them may have each read-only one.
        const std::string number = std::to_string(i);
        if (area_->set(("new." + number).c_str(), whole_value(i + w).c_str()) != 0) ++torn;
        if (area_->set(("ro." + number).c_str(), whole_value(w).c_str()) == 0) ++firsts;
      }
      --writing;
    });
  }
  for (int r = 0; r < 2; ++r) {
    threads.emplace_back([&] {
      while (writing > 0) {
        if (!is_whole(get(*area_, "shared"))) ++torn;
        for (const auto& property : area_->all()) torn += is_whole(property.value) ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  int status = -1;
  ASSERT_EQ(waitpid(other, &status, 0), other);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(firsts, kSets);
  EXPECT_EQ(area_->all().size(), 1u + 2 * kSets);
  EXPECT_EQ(area_->serial() - before, static_cast<uint32_t>(kSets * (2 * kWriters + 2)));
}

TEST_F(PropertyAreaTest, AReaderThatIsOvertakenReadsAgain) {
  ASSERT_EQ(area_->set("key", whole_value(0).c_str()), 0);
  PropertyMap* map = map_properties(root_.c_str(), true);
  ASSERT_NE(map, nullptr);
  PropertyEntry* entry = entry_to_replace(map, "key");
  std::vector<std::string> values;
  for (int i = 0; i < 26; ++i) values.push_back(whole_value(i));
  std::atomic<bool> done{false};
  int torn = 0;
  std::thread reader([&] {
    char value[92];
    while (!done) {
      read_property_entry(*entry, value);
      torn += is_whole(value) ? 0 : 1;
    }
  });
  for (int i = 0; i < 300000; ++i) replace_property_value(entry, values[i % 26].c_str());
  done = true;
  reader.join();
  EXPECT_EQ(torn, 0);
  unmap_properties(map);
}

// A handler may interrupt a set in its own thread: neither may wait for the other.
TEST_F(PropertyAreaTest, ASetInsideAHandlerDoesNotWaitForTheOneItInterrupted) {
  static PropertyArea* s_area;
  static std::atomic<int> s_handled;
  s_area = area_.get();
  s_handled = 0;
  struct sigaction action = {};
  struct sigaction previous;
  action.sa_handler = [](int) {
    s_area->set("handler", "1");
    ++s_handled;
  };
  ASSERT_EQ(sigaction(SIGUSR1, &action, &previous), 0);
  std::atomic<bool> done{false};
  const pthread_t victim = pthread_self();
  std::thread sender([&] {
    while (!done) pthread_kill(victim, SIGUSR1);
  });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  for (int i = 0; s_handled < 200 && std::chrono::steady_clock::now() < deadline; ++i) {
    area_->set("main", whole_value(i).c_str());
  }
  done = true;
  sender.join();
  sigaction(SIGUSR1, &previous, nullptr);
  EXPECT_GE(s_handled, 200);
  EXPECT_EQ(get(*area_, "handler"), "1");
}

}  // namespace
