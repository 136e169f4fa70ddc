#include <gtest/gtest.h>

#include "phone/adb/records.h"

namespace {

using Texts = std::vector<std::string>;

TEST(AdbRecords, AreFoundWhereverTheStreamIsCut) {
  const struct {
    const RecordFormat& format;
    std::string stream;
    Texts payloads;
  } rows[] = {
      {kMessageFormat,
       encode({four("OPEN"), 1, 0, "sync:"}) + encode({four("OKAY"), 2, 1, ""}),
       {"sync:", ""}},
      {kFrameFormat, shell_frame(kStdin, "in") + shell_frame(kCloseStdin, ""), {"in", ""}},
      // DONE has a time in place of the length.
      {kSyncFormat,
       little_endian({four("DATA"), 1}) + "x" + little_endian({four("DONE"), 1700000000}),
       {"x", ""}},
  };
  for (const auto& row : rows) {
    for (size_t size = 1; size <= row.stream.size(); size++) {
      RecordReader reader(row.format);
      Texts payloads;
      for (size_t at = 0; at < row.stream.size(); at += size) {
        reader.add(row.stream.substr(at, size));
        while (const auto record = reader.next()) payloads.push_back(record->payload);
      }
      EXPECT_EQ(payloads, row.payloads) << size;
    }
    RecordReader reader(row.format);
    reader.add(std::string(row.format.header, '\xff'));  // far too long
    EXPECT_FALSE(reader.next().has_value());
    EXPECT_TRUE(reader.broken());
  }
}

TEST(AdbRecords, ContradictingHeadersAreRefused) {
  const std::string stream = encode({four("WRTE"), 7, 9, "text"});
  AdbMessage message;
  ASSERT_TRUE(decode({stream.substr(0, 24), "text"}, &message));
  EXPECT_EQ(encode(message), stream);
  EXPECT_FALSE(decode({std::string(24, 'x'), "text"}, &message));
}

TEST(AdbServices, AreReadFromTheirNames) {
  const std::string kinds[] = {"unknown", "shell", "sync", "root", "unroot"};
  const std::pair<std::string, std::string> rows[] = {
      {"shell,v2,TERM=xterm,raw:id", "shell frames xterm id"},
      {"shell,v2,TERM=xterm,pty:", "shell frames terminal xterm "},
      {"shell,v2,raw:", "shell frames  "},
      {"shell,v2,pty:top", "shell frames terminal  top"},
      {"shell:echo a:b,v2", "shell  echo a:b,v2"},
      {std::string("exec:cat x\0y", 12), "shell  cat x"},
      {"sync:", "sync  "},
      {"root:", "root  "},
      {"unroot:", "unroot  "},
      {"shell", "unknown  "},
      {":", "unknown  "},
      {"tcp:80", "unknown  "},
  };
  for (const auto& [name, expected] : rows) {
    const AdbService s = parse_service(name);
    EXPECT_EQ(kinds[s.kind] + (s.frames ? " frames" : "") + (s.terminal ? " terminal" : "") + " " +
                  s.terminal_type + " " + s.command,
              expected);
  }
}

TEST(AdbServices, ReadFileNamesAndWindows) {
  std::string path;
  uint32_t mode = 0;
  EXPECT_TRUE(parse_send("/a,b,33261", &path, &mode));  // 0100755
  EXPECT_EQ(path + " " + std::to_string(mode), "/a,b 511");
  for (const char* bad : {"/a", "/a,", "/a,x", "/a,-1", "/a,99999999999"})
    EXPECT_FALSE(parse_send(bad, &path, &mode)) << bad;
  unsigned short rows = 0, columns = 0;
  EXPECT_TRUE(parse_window("24x80,640x480", &rows, &columns));
  EXPECT_EQ(columns, 80);
  EXPECT_FALSE(parse_window("24,80", &rows, &columns));
}

}  // namespace
