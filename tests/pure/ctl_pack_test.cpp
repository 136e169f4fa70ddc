// `pack`, `check` and `feedback --estimate` as functions over values.
#include <gtest/gtest.h>

#include "client/manifest.h"
#include "client/run_check.h"
#include "tests/pure/ctl_support.h"

namespace {

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
      {"net/iptables-stop.txt", -1, 0x5, true, "note missing net net/iptables-stop.txt"},
      {"net/iptables-stop.txt", 0, 0x5, true, "empty net net/iptables-stop.txt"},
      {"net/iptables-stop.txt", -1, 0x5, false, ""},  // still to come
      {"others_stop.prop", -1, 0, true, "missing every run others_stop.prop"},
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

}  // namespace
