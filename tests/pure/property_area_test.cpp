// The bench phone's properties, in an area under a temporary directory.
#include "platform/linux/property_area.h"

#include <string.h>

#include <memory>

#include "tests/pure/ctl_support.h"

namespace {

class PropertyAreaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* directory : {"/dev/bench", "/data"})
      std::filesystem::create_directories(tree_.root() + directory);
    boot();
  }
  // A reboot: new shared memory, same disk.
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

  const TemporaryTree tree_;
  std::unique_ptr<PropertyArea> area_;
};

TEST_F(PropertyAreaTest, RulesOfSetting) {
  const std::string longest(91, 'x'), too_long(92, 'x');
  const struct {
    const char* key;
    std::string value;
    bool set;
    std::string then, after_boot;  // value read then, and after a reboot
  } rows[] = {
      // in this order, on one area
      {"a", longest, true, longest, ""},
      {"a", too_long, false, longest, ""},
      {"a", "eight ch", true, "eight ch", ""},  // shorter: no rest of the old one
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

}  // namespace
