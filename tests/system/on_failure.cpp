// Failures of a phone are failures of the test that uses it, and a failed test's phones leave their
// logs on the host.
#include <gtest/gtest.h>

#include <filesystem>

#include "phone/host/failure.h"
#include "phone/host/phone.h"

namespace {

std::string directory;  // of the running test
int phones_kept = 0;

void keep_logs_of_a_failed_test(const Phone& phone) {
  if (!testing::Test::HasFailure()) return;
  const std::string place = directory + "/" + std::to_string(++phones_kept);
  if (phone.keep_logs(place)) printf("The phone's logs are in %s\n", place.c_str());
}

class FailureListener : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& test) override {
    directory = std::string(FAILED_LOGS "/") + test.test_suite_name() + "." + test.name();
    std::error_code error;
    std::filesystem::remove_all(directory, error);
  }
};

[[maybe_unused]] const bool added = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new FailureListener);
  before_phone_ends = keep_logs_of_a_failed_test;
  on_phone_failure = [](const std::string& what) { ADD_FAILURE() << "bench phone: " << what; };
  return true;
}();

}  // namespace
