// `pack`, `check` and `feedback --estimate` as functions over values.
#include <sys/stat.h>

#include "client/pack/manifest.h"
#include "client/runs/run_check.h"
#include "model/version.h"
#include "tests/pure/ctl_support.h"

namespace {

TEST(CtlPack, WritesAManifestThatSha256sumCanRead) {
  const std::string sum(64, 'a');
  const std::string text =
      manifest_text({"7#x", "complete", "3 (mobile,modem)", "D V1", "brand/x:13\ny", "1"},
                    {{"7#x/a", 5, sum}, {"7#x/b\nc", 123456789012345, sum}, {"7#x/d", 1, ""}});
  EXPECT_EQ(text,
            "harrowmoss-manifest: 1\nname: 7#x\nstate: complete\ntypes: 3 (mobile,modem)\n"
            "build: D V1\nidentity: brand/x:13\\x0ay\nprotocol: 1\nharrowmossctl: " +
                std::string(kReleaseVersion) +
                "\nfiles: 3\n"
                "bytes: 123456789012351\n\n"
                "              5 " +
                sum + "  7#x/a\n" + "123456789012345 " + sum + "  7#x/b\\x0ac\n" +
                "              1 " + std::string(64, '-') + "  7#x/d\n");
  EXPECT_EQ(manifest_name("7#x"), "7#x.manifest.txt");
  EXPECT_EQ(manifest_name(std::string(255, 'n')).size(), 100u);
}

// Any file name and any number of files.
TEST(CtlPack, OneSha256sumReadsManyFiles) {
  BenchClient client;
  const std::string tool = client.env.root + "/system/bin/sha256sum";
  client.tree.put("system/bin/sha256sum",
                  "#!/bin/sh\necho >> " + client.env.root + "/starts\nexec sha256sum \"$@\"\n");
  std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
  const std::string empty = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
  std::vector<std::string> paths;
  std::vector<std::string> sums;
  const auto add = [&](const std::string& name, const std::string& sum) {
    paths.push_back(client.env.root + "/files/" + name);
    sums.push_back(sum);
  };
  for (const char* name : {"new\nline", "back\\slash", "-", "--help", "\xff", "0"}) {
    client.tree.put("files/" + std::string(name), "");
    add(name, empty);
  }
  client.tree.put("files/abc", "abc");
  add("abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  add("missing", "");
  ASSERT_EQ(mkfifo((client.env.root + "/files/fifo").c_str(), 0600), 0);
  add("fifo", "");
  std::filesystem::create_symlink("abc", client.env.root + "/files/link");
  add("link", "");
  for (int i = 0; i < 1000; i++) add("0", empty);
  EXPECT_EQ(sha256_of(client.env, paths), sums);
  EXPECT_LE(std::filesystem::file_size(client.env.root + "/starts"), 5u);
}

TEST(CtlPack, RefusesWhatWouldHarm) {
  BenchClient client;
  const std::string& root = client.env.root;
  client.tree.put("sdcard/zelkalog/1#03-07_14-05-09/a", "x");
  client.tree.put("bundle/sub/a", "x");
  std::filesystem::create_directory_symlink("1#03-07_14-05-09",
                                            client.env.store + "/2#03-07_14-05-09");
  std::filesystem::create_directory_symlink("bundle/sub", root + "/door");
  std::filesystem::create_symlink("bundle/sub/a", root + "/file-link");
  ASSERT_EQ(mkfifo((root + "/fifo").c_str(), 0600), 0);
  const struct {
    std::string what, output;
    const char* message;
  } rows[] = {
      {"1", "/dev/null", "/dev/null is no regular file"},
      {"1", root + "/fifo", "is no regular file"},
      {"1", root + "/file-link", "is no regular file"},
      {"1", root + "/bundle", "is a directory"},
      {root + "/bundle", root + "/bundle/x.tgz", "cannot lie in what it packs"},
      {root + "/bundle", root + "/door/x.tgz", "cannot lie in what it packs"},
      {root + "/bundle", root + "/door/../../bundle/sub/x.tgz", "cannot lie in what it packs"},
      {root + "/door", root + "/x.tgz", "is a link"},
      {"2", root + "/x.tgz", "no run \"2\""},
      {"1", "-", "standard output is closed"},
  };
  client.env.has_output = false;
  for (const auto& row : rows) {
    EXPECT_EQ(client.run({"pack", row.what, "-o", row.output}), kExitUsage) << row.output;
    EXPECT_TRUE(contains(client.err, row.message)) << client.err;
  }
  std::filesystem::create_directory(root + "/bundle-of-mine");
  client.run({"pack", root + "/bundle", "-o", root + "/bundle-of-mine/x.tgz"});
  EXPECT_FALSE(contains(client.err, "cannot lie")) << client.err;  // neither inside nor equal
  EXPECT_EQ(client.run({"runs"}), kExitOk);
  EXPECT_FALSE(contains(client.out, "     2  ")) << client.out;
}

// Files of a complete run with mobile and net.
std::map<std::string, int64_t> full_run() {
  std::map<std::string, int64_t> files;
  for (const char* path :
       {"mobile/D-main.txt", "mobile/D-events.txt", "mobile/D-system.txt", "mobile/D-radio.txt",
        "mobile/D-crash.txt", "mobile/D-kernel.txt", "mobile/logcat_control_message-1.txt",
        "system.prop", "others.prop", "net/D-netlog.pcap", "net/iptables-start.txt",
        "net/iptables-stop.txt", "system_stop.prop", "others_stop.prop"}) {
    files[path] = 1;
  }
  return files;
}

TEST(CtlCheck, ComparesTheMaskWithTheFiles) {
  const struct {
    const char* path;  // of the changed file
    int64_t bytes;     // -1: removed
    int32_t types;
    bool stopped;
    const char* found;  // "kind type path", "note " before it; "" nothing
  } rows[] = {
      {"extra", 0, 0x5, true, ""},
      {"mobile/D-main.txt", -1, 0x5, true, "missing mobile mobile/*-main.txt"},
      {"mobile/D-main.txt", 0, 0x5, true, "empty mobile mobile/D-main.txt"},
      {"mobile/D-main.txt", 0, 0x5, false, ""},  // less than a block is buffered
      {"mobile/D-crash.txt", 0, 0x5, true, ""},
      {"net/iptables-stop.txt", -1, 0x5, true, "note missing net net/iptables-stop.txt"},
      {"net/iptables-stop.txt", 0, 0x5, true, "empty net net/iptables-stop.txt"},
      {"net/iptables-stop.txt", -1, 0x5, false, ""},  // not there yet
      {"extra", 0, 0x45, false, ""},                  // of wifi too
      {"others_stop.prop", -1, 0, true, "missing every run others_stop.prop"},
      {"fg/fg_log.txt", 1, 0xd, true, "missing power power/*"},
  };
  for (const auto& row : rows) {
    std::map<std::string, int64_t> files = full_run();
    files[row.path] = row.bytes;
    if (row.bytes < 0) files.erase(row.path);
    int pieces = 0;
    std::string found;
    for (const CheckFinding& entry : check_content(files, row.types, row.stopped, &pieces)) {
      const bool empty = entry.what == CheckFinding::kEmpty;
      found += std::string(entry.note ? "note " : "") + (empty ? "empty " : "missing ") +
               entry.type + " " + entry.path;
    }
    EXPECT_EQ(found, row.found) << row.path << " " << row.types;
    EXPECT_GT(pieces, 0);
  }
}

TEST(CtlCheck, TakesTheMaskFromTheRunsPropertyList) {
  BenchClient client;
  const std::string run = "sdcard/zelkalog/7#03-07_14-05-09/";
  client.tree.put(run + "system_stop.prop",
                  "[a]: [b [persist.sys.zklog.type]: [2]]\n[persist.sys.zklog.type]: "
                  "[4]\n[ro.build.display.id]: [D]\n");
  client.tree.put(run + "others_stop.prop", "x");
  client.tree.put(run + "net/D-netlog.pcap", "x");
  client.tree.put(run + "net/iptables-start.txt", "x");
  client.properties["persist.sys.zklog.type"] = "2";  // the setting is today's
  EXPECT_EQ(client.run({"check", "7"}), kExitOk) << client.out;
  EXPECT_TRUE(contains(client.out, "7#03-07_14-05-09, complete, net\n")) << client.out;
  EXPECT_TRUE(contains(client.out, "note     net")) << client.out;
  EXPECT_TRUE(contains(client.out, "\nas promised (5 pieces")) << client.out;

  client.tree.put(run + "mobile/D-main_1.txt", "x");  // a replaced logcat
  client.tree.put(run + "net/x.log.3", "x");          // generations 1 and 2 are missing
  EXPECT_EQ(client.run({"check", "7#03-07_14-05-09", "--json"}), kExitFailed);
  for (const char* part :
       {"\"as_promised\":false", "\"kind\":\"hole\",\"type\":\"mobile\",\"path\":\"mobile/D-main_1",
        "\"type\":\"net\",\"path\":\"net/x.log\",\"text\":\"1 rotated out, older lines are lost\"",
        "\"types\":\"net\",\"types_known\":true"}) {
    EXPECT_TRUE(contains(client.out, part)) << part << " in\n" << client.out;
  }

  client.tree.put("sdcard/zelkalog/7#03-07_14-05-10/x", "");
  EXPECT_EQ(client.run({"check", "7"}), kExitUsage);
  EXPECT_TRUE(contains(client.err, "several runs")) << client.err;
}

TEST(CtlEstimate, FitsToTheByte) {
  BenchClient client;
  client.tree.put("data/anr/t", "x");
  std::vector<std::string> words = {"feedback", "--estimate", "--json",
                                    "--select", "anr",        client.tree.root() + "/bundle"};
  const auto wanted_for = [&](const char* selection) {
    words[4] = selection;
    EXPECT_EQ(client.run(words), kExitOk) << client.err;
    const std::string key = "\"wanted\":";
    return atoll(client.out.c_str() + client.out.find(key) + key.size());
  };
  const int64_t wanted = wanted_for("anr");
  EXPECT_GT(wanted, 0) << client.out;
  EXPECT_EQ(wanted_for("bootfail,anr"), wanted) << client.out;  // the same files
  for (const int64_t missing : {0, 1}) {
    client.free_bytes = {{"", wanted + 134217728 - missing}};  // on the file system of /data
    EXPECT_EQ(client.run(words), missing == 0 ? kExitOk : kExitFailed) << client.out;
  }
}

}  // namespace
