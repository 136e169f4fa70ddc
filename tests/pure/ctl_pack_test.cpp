// `pack`, `check` and `feedback --estimate` as functions over values.
#include <gtest/gtest.h>

#include "client/child.h"
#include "client/estimate.h"
#include "client/manifest.h"
#include "client/run_check.h"
#include "client/volume.h"
#include "tests/pure/ctl_support.h"

namespace {

int shell(const std::string& text) {
  return wait_child(start_child({{"/bin/sh", "-c", text}}));
}

TEST(CtlPack, FindsWhatItsDirectoriesHaveInCommon) {
  const struct {
    std::vector<std::string> places;
    const char* base;
    std::vector<std::string> names;
  } rows[] = {
      {{"/sdcard/zelkalog/7#x"}, "/sdcard/zelkalog", {"7#x"}},
      {{"/report"}, "/", {"report"}},
      {{"/data/misc/zelkalog/7#x", "/sdcard/zelkalog/7#x"},
       "/",
       {"data/misc/zelkalog/7#x", "sdcard/zelkalog/7#x"}},
      {{"/t/data/7#x", "/t/datum/7#x"}, "/t", {"data/7#x", "datum/7#x"}},  // not "/t/dat"
  };
  for (const auto& row : rows) {
    const pack_source source = make_source("7#x", row.places);
    EXPECT_EQ(source.base, row.base);
    EXPECT_EQ(source.names, row.names);
  }
}

TEST(CtlPack, WritesAManifestThatSha256sumCanRead) {
  const std::string sum(64, 'a');
  const std::string text =
      manifest_text({"7#x", "complete", "3 (mobile,modem)", "D V1", "brand/x:13\ny", "1"},
                    {{"7#x/a", 5, sum}, {"7#x/b\nc", 123456789012345, sum}, {"7#x/d", 1, ""}});
  EXPECT_EQ(text,
            "harrowmoss-manifest: 1\nname: 7#x\nstate: complete\ntypes: 3 (mobile,modem)\n"
            "build: D V1\nidentity: brand/x:13\\x0ay\nprotocol: 1\nfiles: 3\n"
            "bytes: 123456789012351\n\n"
            "              5 " +
                sum + "  7#x/a\n" + "123456789012345 " + sum + "  7#x/b\\x0ac\n" +
                "              1 " + std::string(64, '-') + "  7#x/d\n");
  EXPECT_EQ(manifest_name("7#x"), "7#x.manifest.txt");
  EXPECT_EQ(manifest_name(std::string(255, 'n')).size(), 100u);
}

TEST(CtlPack, PutsAPieceInFrontThatTarTakesForItsOwn) {
  temporary_tree tree;
  tree.put("in/dir/file", "content");
  for (const size_t size : {0u, 1u, 511u, 512u, 513u, 70000u}) {
    const std::string name = manifest_name(std::string(200, 'n'));
    const std::string content(size, 'm');
    const std::string archive = "archive" + std::to_string(size);
    tree.put(archive, tar_piece(name, content, 1700000000));
    const std::string at = tree.root() + "/" + archive;
    const std::string command = "tar -c -f - -C '" + tree.root() + "/in' dir >> '" + at +
                                "' && mkdir '" + at + ".d' && tar -x -f '" + at + "' -C '" + at +
                                ".d'";
    ASSERT_EQ(shell(command), 0);
    std::ifstream manifest(at + ".d/" + name);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(manifest), {}), content) << size;
    EXPECT_TRUE(std::filesystem::exists(at + ".d/dir/file")) << size;
  }
}

TEST(CtlPack, BoundsTheArchiveFromAbove) {
  temporary_tree tree;
  // Random bytes do not compress, and long names take headers of their own.
  std::string noise(300000, '\0');
  uint32_t state = 1;
  for (char& c : noise) c = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  tree.put("in/noise", noise);
  for (int i = 0; i < 50; ++i) {
    tree.put("in/" + std::string(90, 'd') + "/" + std::string(200, 'n') + std::to_string(i), "x");
  }
  const std::string packed = tree.root() + "/packed";
  ASSERT_EQ(shell("tar -c -f - -C '" + tree.root() + "' in | gzip -1 > '" + packed + "'"), 0);
  const int64_t bound = archive_bound(make_source("in", {tree.root() + "/in"}), 5000);
  const auto size = static_cast<int64_t>(std::filesystem::file_size(packed));
  EXPECT_GT(bound, size + 5000);
  EXPECT_LT(bound, size + 5000 + 51 * 4096);
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
    const char* path;  // of the one that is changed
    int64_t bytes;     // -1: removed
    int32_t types;
    bool stopped;
    const char* found;  // "kind type path", "note " before it; "" nothing
  } rows[] = {
      {"extra", 0, 0x5, true, ""},
      {"mobile/D-main.txt", -1, 0x5, true, "missing mobile mobile/*-main.txt"},
      {"mobile/D-main.txt", 0, 0x5, true, "empty mobile mobile/D-main.txt"},
      {"mobile/D-crash.txt", 0, 0x5, true, ""},
      {"mobile/D-crash.txt", -1, 0x5, true, "missing mobile mobile/*-crash.txt"},
      {"mobile/D-main.txt", -1, 0x4, true, ""},  // not promised
      {"net/iptables-stop.txt", -1, 0x5, true, "note missing net net/iptables-stop.txt"},
      {"net/iptables-stop.txt", 0, 0x5, true, "empty net net/iptables-stop.txt"},
      {"net/iptables-stop.txt", -1, 0x5, false, ""},  // still to come
      {"others_stop.prop", -1, 0, true, "missing every run others_stop.prop"},
      {"others_stop.prop", -1, 0x5, false, ""},
      {"extra", 1, 0x8005, true, ""},  // a bit without a name promises nothing
      {"fg/fg_log.txt", 1, 0xd, true, "missing power power/*"},
  };
  for (const auto& row : rows) {
    std::map<std::string, int64_t> files = full_run();
    files[row.path] = row.bytes;
    if (row.bytes < 0) files.erase(row.path);
    int pieces = 0;
    std::string found;
    for (const check_finding& entry : check_content(files, row.types, row.stopped, &pieces)) {
      const bool empty = entry.what == check_finding::kEmpty;
      found += std::string(entry.note ? "note " : "") + (empty ? "empty " : "missing ") +
               entry.type + " " + entry.path;
    }
    EXPECT_EQ(found, row.found) << row.path << " " << row.types;
    EXPECT_GT(pieces, 0);
  }
}

TEST(CtlCheck, TakesTheMaskFromTheRunsOwnPropertyList) {
  bench_client client;
  const std::string run = "sdcard/zelkalog/7#03-07_14-05-09/";
  client.tree.put(run + "system_stop.prop",
                  "[persist.sys.zklog.type]: [4]\n[ro.build.display.id]: [D]\n");
  client.tree.put(run + "others_stop.prop", "x");
  client.tree.put(run + "net/D-netlog.pcap", "x");
  client.tree.put(run + "net/iptables-start.txt", "x");
  client.properties["persist.sys.zklog.type"] = "2";  // of now, not of then
  EXPECT_EQ(client.run({"check", "7"}), EXIT_OK) << client.out;
  EXPECT_TRUE(holds(client.out, "7#03-07_14-05-09, complete, net\n")) << client.out;
  EXPECT_TRUE(holds(client.out, "note     net")) << client.out;
  EXPECT_TRUE(holds(client.out, "\nas promised (5 pieces")) << client.out;

  client.tree.put(run + "mobile/D-main_1.txt", "x");  // a replaced logcat
  client.tree.put(run + "net/x.log.3", "x");          // generations 1 and 2 are missing
  EXPECT_EQ(client.run({"check", "7#03-07_14-05-09", "--json"}), EXIT_FAILED);
  for (const char* piece :
       {"\"as_promised\":false", "\"kind\":\"hole\",\"type\":\"mobile\",\"path\":\"mobile/D-main_1",
        "\"type\":\"net\",\"path\":\"net/x.log\",\"text\":\"1 rotated out, older lines are lost\"",
        "\"types\":\"net\",\"types_known\":true"}) {
    EXPECT_TRUE(holds(client.out, piece)) << piece << " in\n" << client.out;
  }

  client.tree.put("sdcard/zelkalog/07#03-07_14-05-10/x", "");
  EXPECT_EQ(client.run({"check", "7"}), EXIT_USAGE);
  EXPECT_TRUE(holds(client.err, "several runs")) << client.err;
}

TEST(CtlEstimate, CountsWholeBlocksAndADirectoryOnce) {
  bench_client client;
  client.tree.put("data/anr/a", std::string(4097, 'x'));
  client.tree.put("data/tombstones/t", "x");
  client.tree.put("data/aee_exp/other", std::string(9000, 'x'));
  client.tree.put("data/aee_exp/db.fatal.1", "x");
  const struct {
    const char* select;
    int64_t blocks;  // without the property files
    const char* said;
  } rows[] = {
      {"anr", 3, "anr                  12288\n"},  // its directory, and two blocks
      {"anr,bootfail", 3, "counted once"},
      {"tombstone,anr", 5, "tombstone             8192"},
      {"mtkdb", 1, "the newest fatal entry"},
      {"bluetooth,memory", 0, "not to the bundle"},
      {"0x1", 0, "in every bundle"},
  };
  constexpr int64_t kProperties = 16384;  // the report's allowance; there is no getprop here
  const std::string target = client.tree.root() + "/new/bundle";
  for (const auto& row : rows) {
    const int64_t wanted = row.blocks * 4096 + kProperties;
    client.free_bytes[""] = wanted;  // of the nearest directory that exists
    EXPECT_EQ(client.run({"feedback", "--estimate", "--select", row.select, target}), EXIT_OK)
        << client.out;
    EXPECT_TRUE(holds(client.out, row.said)) << client.out;
    client.free_bytes[""] = wanted - 1;
    EXPECT_EQ(client.run({"feedback", "--estimate", "--select", row.select, target}), EXIT_FAILED);
    EXPECT_TRUE(holds(client.out, "no room: " + space_text(target, wanted, wanted - 1)))
        << client.out;
  }
  EXPECT_FALSE(std::filesystem::exists(target));
}

}  // namespace
