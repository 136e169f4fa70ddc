// `harrowmossctl pack` in a phone; archives are unpacked again.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <regex>
#include <set>

#include "tests/system/ctl.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kGzip = "/usr/bin/gzip=/system/bin/gzip";

// Regular files below a directory of the phone, by path below it.
std::set<std::string> files_below(const Phone& phone, const std::string& directory) {
  std::set<std::string> found;
  const std::string root = phone.inside(directory);
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_regular_file() && !entry.is_symlink())
      found.insert(entry.path().lexically_relative(root));
  }
  return found;
}

// Unpacks `archive` into `to`; the names of its members, in order.
std::vector<std::string> unpack(const Phone& phone, const std::string& archive,
                                const std::string& to) {
  const RunResult result =
      phone.shell("mkdir -p " + to + " && cd " + to + " && tar -x -v -z -f '" + archive + "'");
  EXPECT_EQ(result.status, 0) << result.err;
  std::vector<std::string> names;
  std::string line;
  for (const char c : result.out) {
    if (c != '\n') line += c;
    if (c == '\n') names.push_back(line), line.clear();
  }
  return names;
}

// Checks the manifest with the phone's sha256sum; returns the number of correct files.
int verified(const Phone& phone, const std::string& directory) {
  const RunResult result = phone.shell("cd " + directory +
                                       " && sed '1,/^$/d' *.manifest.txt | cut -c17- > /data/sums "
                                       "&& sha256sum -c /data/sums");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  int count = 0;
  for (size_t at = 0; (at = result.out.find(": OK\n", at)) != std::string::npos; at++) count++;
  return count;
}

TEST(CtlPackSystem, ARunComesBackAsItWas) {
  // A real phone has toybox; here it is called by the tool's name.
  for (const char* tar : {"/usr/bin/toybox=/system/bin/tar", "/usr/bin/tar=/system/bin/tar"}) {
    SCOPED_TRACE(tar);
    Phone phone({"--file", kGzip, "--file", tar});
    ASSERT_EQ(ctl(phone, {"start", "mobile,net"}).status, 0);
    const RunResult early = ctl(phone, {"pack", "1"});
    EXPECT_EQ(early.status, 2);
    EXPECT_TRUE(contains(early.err, "still being captured")) << early.err;
    ASSERT_EQ(ctl(phone, {"stop"}).status, 0);

    const std::string run = phone.getprop("sys.harrowmossd.log_store_path");
    const std::string name = fs::path(run).filename();
    const RunResult packed = ctl(phone, {"pack", "1"});
    ASSERT_EQ(packed.status, 0) << packed.err;
    const std::string archive = "/sdcard/" + name + ".tar.gz";
    EXPECT_EQ(packed.out, phone.run({"sha256sum", archive}).out);

    const std::vector<std::string> members = unpack(phone, archive, "/data/local/tmp/x");
    ASSERT_FALSE(members.empty());
    EXPECT_EQ(members[0], name + ".manifest.txt");
    const std::string copy = "/data/local/tmp/x/" + name;
    EXPECT_EQ(files_below(phone, copy), files_below(phone, run));
    EXPECT_EQ(verified(phone, "/data/local/tmp/x"),
              static_cast<int>(files_below(phone, run).size()));
    const std::string manifest = phone.read("/data/local/tmp/x/" + name + ".manifest.txt");
    for (const std::string& line :
         {"name: " + name, std::string("state: complete"), std::string("types: 5 (mobile,net)"),
          std::string("build: QZ201A V1.02"), "identity: " + phone.getprop("ro.build.fingerprint"),
          std::string("protocol: 1")})
      EXPECT_TRUE(contains(manifest, line + "\n")) << line << " in\n" << manifest;
  }
}

// Standard output, which adb passes to the computer, has only the archive.
TEST(CtlPackSystem, StreamsWithoutNeedingRoomOrADaemon) {
  Phone phone({"--no-daemon", "--file", kGzip, "--sdcard-size", "2m"});
  const std::string run = "5#01-01_00-00-00";
  phone.write("/sdcard/zelkalog/" + run + "/modem/a", "moved by the vendor");
  phone.write("/data/misc/zelkalog/" + run + "/mobile/b", std::string(500000, 'b'));
  phone.shell("dd if=/dev/zero of=/sdcard/fill 2> /dev/null");
  const RunResult packed = ctl(phone, {"pack", "5", "-o", "-", "--progress"});
  EXPECT_EQ(packed.status, 0) << packed.err;
  phone.write("/data/stream.tgz", packed.out);
  EXPECT_EQ(unpack(phone, "/data/stream.tgz", "/data/x")[0], run + ".manifest.txt");
  EXPECT_EQ(files_below(phone, "/data/x"),  // a run in two places gives two directories
            (std::set<std::string>{run + ".manifest.txt", "data/misc/zelkalog/" + run + "/mobile/b",
                                   "sdcard/zelkalog/" + run + "/modem/a"}));
  EXPECT_EQ(verified(phone, "/data/x"), 2);
  EXPECT_TRUE(contains(phone.read("/data/x/" + run + ".manifest.txt"), "protocol: not answered\n"));
}

TEST(CtlPackSystem, ABundleWithHostileNamesIsPackedLiterally) {
  Phone phone({"--no-daemon", "--file", kGzip, "--loose", "sdcard"});
  const std::string bundle = "/sdcard/-rf $(touch PWNED)";
  for (const char* name : {"plain", "-C", "a b", "new\nline", "$(id)", "quote'\"", "\xc3\xa9\xff"})
    phone.write(bundle + "/" + name, name);
  fs::create_symlink("/system/build.prop", phone.inside(bundle + "/link"));
  ASSERT_EQ(mkfifo(phone.inside(bundle + "/fifo").c_str(), 0600), 0);
  const RunResult packed = ctl(phone, {"pack", bundle + "/", "-o", "/data/local/tmp/out.tgz"});
  ASSERT_EQ(packed.status, 0) << packed.err;
  unpack(phone, "/data/local/tmp/out.tgz", "/data/x");
  const std::string copy = "/data/x/" + bundle.substr(sizeof "/sdcard");
  EXPECT_EQ(files_below(phone, copy), files_below(phone, bundle));
  EXPECT_TRUE(fs::is_symlink(phone.inside(copy + "/link")));
  EXPECT_TRUE(fs::is_fifo(phone.inside(copy + "/fifo")));
  for (const char* directory : {"/", "/sdcard", "/data/local/tmp"}) {
    for (const std::string& name : phone.list(directory)) EXPECT_NE(name, "PWNED") << directory;
  }
}

// Shell lines, in a phone with run 5 and the daemon.
const std::pair<const char*, int> kClosedStreams[] = {
    {"harrowmossctl pack 5 <&- >&-; s=$?; gzip -t /sdcard/5#*.gz && exit $s", 0},
    {"harrowmossctl pack 5 <&- >&- 2>&-; s=$?; gzip -t /sdcard/5#*.gz && exit $s", 0},
    {"harrowmossctl pack 5 -o - >&-", 2},
    {"harrowmossctl feedback-start >&-", 0},  // the request was done
    // The reader of the answer, or of the steps, is gone.
    {"{ sleep 1; harrowmossctl feedback-start; echo $? > /data/s; } | true; exit $(cat /data/s)",
     0},
    {"{ harrowmossctl pack 5 --progress 2>&1 > /dev/null; echo $? > /data/s; } | true; "
     "exit $(cat /data/s)",
     0},
    {"harrowmossctl feedback-start > /dev/full", 5},
};

TEST(CtlPackSystem, ClosedStreamsChangeNothing) {
  Phone phone({"--file", kGzip});
  phone.write("/sdcard/zelkalog/5#01-01_00-00-00/mobile/a", std::string(100000, 'a'));
  for (const auto& [line, status] : kClosedStreams) {
    phone.shell("rm -f /sdcard/*.gz");
    const RunResult result = phone.shell(line);
    EXPECT_EQ(result.status, status) << line << ": " << result.out << result.err;
    EXPECT_EQ(phone.shell("ls -A /sdcard | grep '^[.]5'").out, "") << line;
  }
}

// A gzip that never ends.
const std::string kSlowGzip = "/tmp/ctl-slow-gzip." + std::to_string(getpid());

const struct {
  std::vector<std::string> options;
  int status;
  const char* err;  // regular expression
} kUnfinished[] = {
    {{"--file", kGzip, "--sdcard-size", "1m"},
     1,
     "no room for the archive: /sdcard/: [0-9]+ bytes wanted, 1048576 free"},
    {{"--file", "/usr/bin/false=/system/bin/gzip"}, 1, "gzip ended with 1"},
    {{"--file", kSlowGzip + "=/system/bin/gzip"}, 128 + SIGTERM, ""},  // interrupted
    {{"--file", kSlowGzip + "=/system/bin/gzip"}, 128 + SIGHUP, ""},   // a lost adb shell
};

TEST(CtlPackSystem, LeavesNothingAfterAFailure) {
  ASSERT_TRUE(write_file(kSlowGzip, "#!/system/bin/mksh\nexec sleep 1000000\n", 0755));
  for (const auto& row : kUnfinished) {
    std::vector<std::string> options = row.options;
    options.push_back("--no-daemon");
    Phone phone(options);
    phone.write("/data/bundle/file", std::string(2 << 20, 'x'));
    const size_t before = phone.list("/data/bundle").size();
    std::string line = "harrowmossctl pack /data/bundle -o /sdcard/x.tgz";
    if (row.status > 128)
      line += "& until [ -e /sdcard/.x.tgz.* ]; do sleep 0.01; done; kill -" +
              std::to_string(row.status - 128) + " $!; wait $!";
    const RunResult packed = phone.shell(line);
    EXPECT_EQ(packed.status, row.status) << packed.err;
    EXPECT_TRUE(std::regex_search(packed.err, std::regex(row.err))) << packed.err;
    EXPECT_TRUE(phone.list("/sdcard").empty());
    EXPECT_EQ(phone.list("/data/bundle").size(), before);
  }
  fs::remove(kSlowGzip);
}

}  // namespace
