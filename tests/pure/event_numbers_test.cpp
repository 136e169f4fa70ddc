// Separate from event_names_test.cpp, which also runs on phones, without kernel headers.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "input/event_names.h"

namespace {

constexpr char kKernelHeader[] = "/usr/include/linux/input-event-codes.h";

// Every name with its number, as the build machine's kernel header defines them.
std::map<std::string, unsigned long> kernel_names() {
  std::map<std::string, unsigned long> names;
  std::ifstream header(kKernelHeader);
  for (std::string line; std::getline(header, line);) {
    std::istringstream words(line);
    std::string define, name, value;
    if (!(words >> define >> name >> value) || define != "#define") continue;
    const auto known = names.find(value);
    names[name] = known != names.end() ? known->second : strtoul(value.c_str(), nullptr, 0);
  }
  return names;
}

TEST(EventNames, NumbersAreTheKernels) {
  const auto names = kernel_names();
  ASSERT_GT(names.size(), 700u) << kKernelHeader;
  int types = 0;
  for (unsigned type = 0; type <= 0xff; type++) {
    const char* name = event_type_name(static_cast<uint16_t>(type));
    if (name != nullptr) {
      EXPECT_EQ(names.at(name), type) << name;
      types++;
    }
    for (unsigned code = 0; code <= 0xffff; code++) {
      name = event_code_name(static_cast<uint16_t>(type), static_cast<uint16_t>(code));
      if (name == nullptr) continue;
      ASSERT_EQ(names.count(name), 1u) << name;
      EXPECT_EQ(names.at(name), code) << name;
    }
  }
  EXPECT_EQ(types, 13);
}

}  // namespace
