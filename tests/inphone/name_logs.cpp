// Gives the launcher the name under which to save the logs of a failed test.
#include "phone/boot/keep_logs.h"
#include "tests/inphone/inphone.h"

namespace {

class LogNamer : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& test) override {
    inphone::put(kPhoneNameFile, std::string(test.test_suite_name()) + "." + test.name());
  }
};

[[maybe_unused]] const bool added = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new LogNamer);
  return true;
}();

}  // namespace
