// Failing moves at a stop: every captured byte is complete in one of its two places afterwards.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "phone/host/daemon.h"

namespace {

TEST(Moves, LoseNothingWhenAWriterFillsThePool) {
  constexpr int kFiles = 4;
  const auto content = [](int i) { return std::string(12 << 20, static_cast<char>('a' + i)); };
  Phone phone(quick_vendor({"--one-pool", "--data-size", "400m"}));
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string run = run_name(phone);
  const auto file = [](int i) { return "/big/" + std::to_string(i); };
  for (int i = 0; i < kFiles; i++) phone.write(working_path(run) + file(i), content(i));
  Client client(phone);
  ASSERT_TRUE(client.send(request(3, 1)));
  const std::string moving = "/data/misc/zelkalog/.moving-" + run;
  ASSERT_TRUE(eventually([&] { return phone.exists(moving) || phone.exists(store_path(run)); }));
  phone.shell("dd if=/dev/zero of=/data/media/0/other bs=1048576 count=340");
  EXPECT_FALSE(client.reply(kSwitchMs).empty());
  client.close();
  for (int i = 0; i < kFiles; i++) {
    const std::string stored = phone.read(store_path(run) + file(i));
    EXPECT_TRUE(stored == content(i) ||
                (stored.empty() && phone.read(working_path(run) + file(i)) == content(i)))
        << file(i) << " " << stored.size();
  }
  unlink(phone.inside("/data/media/0/other").c_str());
  ASSERT_EQ(stop_logging(phone), 0);
  for (int i = 0; i < kFiles; i++)
    EXPECT_TRUE(phone.read(store_path(run) + file(i)) == content(i)) << file(i);
}

// No room for links: mv alone moves the run, file by file.
TEST(Moves, DropWhatTheStoreCannotStoreAlsoWithoutLinks) {
  Phone phone(quick_vendor({"--one-pool", "--data-size", "345m"}));
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string run = run_name(phone);
  constexpr off_t kHalf = 60 << 20, kReserve = 128 << 20;
  const std::string script = "cd '" + working_path(run) +
                             "'; mkdir big; ln -s big link; mkfifo big/pipe; " +
                             "for half in 1 2; do head -c 60m /dev/zero > big/$half; done";
  ASSERT_EQ(phone.shell(script).status, 0);
  const std::string socket = phone.inside(working_path(run) + "/big/socket");
  ASSERT_EQ(mknod(socket.c_str(), S_IFSOCK | 0600, 0), 0);
  ASSERT_GE(available(phone, "/data"), kHalf + kReserve);
  ASSERT_LT(available(phone, "/data"), 2 * kHalf + kReserve);
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_EQ(phone.list(store_path(run) + "/big"), (std::vector<std::string>{"1", "2"}));
  for (const char* half : {"1", "2"}) {
    struct stat info = {};
    stat(phone.inside(store_path(run) + "/big/" + half).c_str(), &info);
    EXPECT_EQ(info.st_size, kHalf);
  }
  EXPECT_EQ(phone.list("/data/misc/zelkalog"), std::vector<std::string>{".logger"});
  const std::string dropped =
      rest_of_line(phone, "dropped, because /sdcard/zelkalog cannot hold it: ");
  for (const std::string what : {"/link -> big", "/big/pipe (FIFO)", "/big/socket (socket)"})
    EXPECT_NE(dropped.find(run + what), std::string::npos) << dropped;
}

}  // namespace
