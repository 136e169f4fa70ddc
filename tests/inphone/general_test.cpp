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
  // Less than a thread's stack takes: 1 MiB with Android's C library, 8 MiB with glibc.
  const rlim_t no_stack = static_cast<rlim_t>(pages * getpagesize() + (768 << 10));
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

// Shared storage has several names, and a link gives any directory one more.
TEST(FeedbackDestination, IsRefusedInsideOfASourceUnderAnyName) {
  put(std::string(kGeneralDir) + "x", "");
  ASSERT_EQ(symlink("/data/anr", "/data/link"), 0);
  std::filesystem::create_directories("/data/anr/heap");
  for (const char* path : {"/data/media/0/Android/data/.harrowmoss/general", "/data/link/new/dir",
                           "/data/media/0/Android/data/.harrowmoss/general/new", "/data/link/heap"})
    EXPECT_STREQ(feedback_destination_fault(-1, path), "inside of what is copied") << path;
  EXPECT_EQ(feedback_destination_fault(-1, "/data/media/0/Android/data/.harrowmoss/new"), nullptr);
}

}  // namespace
