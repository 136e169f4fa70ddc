// A store that cannot be listed for a moment must not be taken for an empty one: an empty one makes
// the size monitor start logging anew, which deletes every finished run.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "storage/size_monitor.h"

namespace {

bool unknown(const char* dir, bool descriptors) {
  rlimit before;
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit now = {descriptors ? before.rlim_cur : 0, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &now);
  const oldest_run found = find_oldest_run(dir);
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(found.number, -1);
  return found.unknown;
}

TEST(OldestRun, IsUnknownOnlyWhereADirectoryCannotBeListed) {
  EXPECT_FALSE(unknown("/nowhere/at/all", true));
  EXPECT_FALSE(unknown("/dev/null", true));
  EXPECT_FALSE(unknown("/dev", true));
  EXPECT_TRUE(unknown("/dev", false));
}

}  // namespace
