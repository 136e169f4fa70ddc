#include "storage/shell.h"

#include "storage/utils.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

// Runs `command` and returns its output as delivered, block by block.
Texts blocks_of(const ShellText& command, int bound_ms = 20000, size_t size = 256) {
  Texts blocks;
  std::vector<char> buffer(size);
  EXPECT_EQ(
      run_shell_lines(
          command, bound_ms, buffer.data(), buffer.size(),
          [](void* context, const char* line) { static_cast<Texts*>(context)->push_back(line); },
          &blocks),
      0);
  return blocks;
}

std::string output_of(const ShellText& command) {
  std::string output;
  for (const std::string& block : blocks_of(command)) output += block;
  return output;
}

class Shell : public ::testing::Test {
 protected:
  void SetUp() override { catch_sigchld(); }
};

// print -r is built in: only the shell's parsing is involved.
TEST_F(Shell, EveryByteOfANameComesBackAsItWas) {
  std::string all = "/";
  for (int byte = 1; byte < 256; byte++) {
    if (byte == '\n') continue;
    const char c = static_cast<char>(byte);
    all += c;
    const std::string name = std::string("/") + c + " /a" + c + "b";
    ASSERT_EQ(output_of(ShellText("print -rn --").arg(name)), name) << byte;
  }
  EXPECT_EQ(output_of(ShellText("print -rn --").arg(all)), all);
}

TEST_F(Shell, ResultsAreWaitStatuses) {
  const std::pair<FixedText, int> rows[] = {
      {"true", 0},         {"exit 3", 3 << 8},      {"no_such_command_here", 127 << 8},
      {"/data", 126 << 8}, {"kill -9 $$", SIGKILL}, {"", 0},
  };
  for (const auto& [command, status] : rows) {
    EXPECT_EQ(run_shell(command), status) << command.get();
    EXPECT_EQ(run_tool(command), status) << command.get();
  }
}

TEST_F(Shell, WithoutAShellItIs127AsForSystem) {
  ASSERT_EQ(mount("/dev/null", "/system/bin/sh", nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(run_shell("true"), 127 << 8);
  EXPECT_EQ(run_tool("true"), 127 << 8);
  EXPECT_EQ(blocks_of("echo x"), Texts{});
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(run_shell("true"), -1);  // reaped elsewhere
}

// A worker's shell ends with the worker's group; the main process's shell has its own group.
TEST_F(Shell, OnlyTheMainProcessGivesItAGroup) {
  const std::string own = std::to_string(getpgrp());
  const char command[] = "cut -d' ' -f5 /proc/self/stat > /data/group";
  run_shell(command);
  EXPECT_EQ(get("/data/group"), own + "\n");
  become_main_process();
  run_shell(command);
  EXPECT_NE(get("/data/group"), own + "\n");
}

TEST_F(Shell, LinesArriveAsTheyAreWritten) {
  const std::string longer(600, 'x');
  const auto print = [](const std::string& word) { return ShellText("print").arg(word); };
  const std::pair<ShellText, Texts> rows[] = {
      {"echo one; echo; echo two", {"one\n", "\n", "two\n"}},
      {"print -n partial", {"partial"}},
      {"true", {}},
      {"echo err >&2", {}},
      {print(longer), {longer.substr(0, 255), longer.substr(0, 255), longer.substr(0, 90) + "\n"}},
      {print(longer.substr(0, 254)), {longer.substr(0, 254) + "\n"}},
      {print(longer.substr(0, 255)), {longer.substr(0, 255), "\n"}},
  };
  for (const auto& [command, blocks] : rows) {
    EXPECT_EQ(blocks_of(command), blocks) << command.c_str();
    EXPECT_EQ(blocks_of(command, kUnbounded), blocks) << command.c_str();
  }
}

TEST_F(Shell, AToolMayCloseItsOutputBeforeItEnds) {
  EXPECT_EQ(blocks_of("echo out; exec >&-; sleep 0.3; touch /data/ended"), Texts{"out\n"});
  EXPECT_TRUE(exists("/data/ended"));
}

TEST_F(Shell, ABackgroundProcessWithThePipeDoesNotBlockTheCaller) {
  const int64_t start = monotonic_ms();
  const Texts blocks = blocks_of("sleep 1000 & echo $!");
  EXPECT_LT(monotonic_ms() - start, 15000);
  ASSERT_EQ(blocks.size(), 1u);
  EXPECT_TRUE(is_running(std::stoi(blocks[0])));  // nothing ends it
}

// In the main process the shell leads a group; in a worker it is in the worker's.
void expect_all_killed_at_the_bound() {
  const Texts blocks =
      blocks_of("sleep 1000 & echo $!; sh -c 'echo $$; print -n partial; exec sleep 1000'", 2000);
  ASSERT_EQ(blocks.size(), 3u);
  EXPECT_EQ(blocks[2], "partial");
  for (size_t i = 0; i < 2; i++) {
    const pid_t pid = std::stoi(blocks[i]);
    EXPECT_TRUE(eventually([pid] { return !is_running(pid); }));
  }
}

TEST_F(Shell, ACommandBeyondItsBoundIsKilledWithItsChildren) {
  s_harrowmossd_pid = getppid();
  expect_all_killed_at_the_bound();
  become_main_process();
  expect_all_killed_at_the_bound();
}

TEST_F(Shell, AnEndlessWriterIsKilledToo) {
  become_main_process();
  const int64_t start = monotonic_ms();
  EXPECT_FALSE(blocks_of("while :; do echo x; done", 1000).empty());
  EXPECT_LT(monotonic_ms() - start, 15000);
  EXPECT_EQ(logged("E tool does not end within 1 s, kill it: while :; do echo x; done"), 1);
}

TEST_F(Shell, OutputIsCutAt16MiB) {
  const std::string word(255, 'x');
  size_t bytes = 0;
  for (const std::string& block : blocks_of(ShellText("yes").arg(word), kToolBoundMs))
    bytes += block.size();
  EXPECT_LE(bytes, 16u << 20);
  EXPECT_GT(bytes, 15u << 20);
  const std::string line = "E tool writes more than 16777216 bytes, kill it: yes ";
  EXPECT_EQ(logged(line + word), 1);
  // Output to a file, including its earlier content. A shell may be left to write it.
  for (const FixedText command : {FixedText("yes >> /data/f"), FixedText("yes >> /data/f; :")}) {
    run_tool(command, kOutputBytes);
    EXPECT_EQ(getFileSize("/data/f"), 16 << 20);
  }
}

TEST_F(Shell, ASeriesHasOneBudget) {
  SeriesBudget budget("series", 1500);
  int first = budget.left();
  EXPECT_GT(first, 0);
  blocks_of("sleep 1000", first);
  EXPECT_EQ(budget.left(), 0);
  EXPECT_EQ(budget.left(), 0);
  EXPECT_EQ(logged("E series takes longer than 1 s, the rest is skipped"), 1);
}

}  // namespace
