// The dump of the log buffers in a feedback bundle.
#include <sys/resource.h>

#include "feedback/feedback.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

// Every buffer is dumped, whether it gets a thread or not.
TEST(GeneralDump, IsMadeWithoutThreadsToo) {
  become_main_process();
  catch_sigchld();
  const int64_t pages = atoll(get("/proc/self/statm").c_str());
  const rlim_t no_stack = static_cast<rlim_t>(pages * getpagesize() + (4 << 20));
  const rlimit all = {RLIM_INFINITY, RLIM_INFINITY}, few = {no_stack, RLIM_INFINITY};
  for (const bool threads : {false, true}) {
    const std::string dir = threads ? "/sdcard/with" : "/sdcard/without";
    ASSERT_EQ(setrlimit(RLIMIT_AS, threads ? &all : &few), 0);
    EXPECT_EQ(get_general_log(dir.c_str()), 0);
    long dumps = 0;
    for (const std::string& command : shell_commands()) {
      dumps += command.find("logcat -d ") != std::string::npos &&
               command.find(dir + "/general/") != std::string::npos;
    }
    EXPECT_EQ(dumps, 6) << dir;
    long refused = 0;
    for (const std::string& text : log_texts()) refused += text.rfind("E no thread for ", 0) == 0;
    EXPECT_EQ(refused, 6);  // the first time
  }
}

}  // namespace
