#include "phone/rc_parser.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <map>

#include "phone/util.h"

namespace {

TEST(RcParser, ReadsAService) {
  const RcFile file = parse_rc(
      "# the daemon\n"
      "service logger /system_ext/bin/logger --name \"a b\" \\\n"
      "    --last\n"
      "    class late_start   # a comment\n"
      "    user system\n"
      "    group log 1015 inet\n"
      "\tsocket logger seqpacket 0620 root log u:object_r:x:s0\n"
      "    disabled\n"
      "service other /bin/other\n"
      "    oneshot\n");
  ASSERT_TRUE(file.errors.empty()) << file.errors[0];
  ASSERT_EQ(file.services.size(), 2u);
  const RcService& service = file.services[0];
  EXPECT_EQ(service.command,
            (std::vector<std::string>{"/system_ext/bin/logger", "--name", "a b", "--last"}));
  EXPECT_EQ(service.klass, "late_start");
  EXPECT_EQ(service.uid, 1000u);
  EXPECT_EQ(service.groups, (std::vector<gid_t>{1007, 1015, 3003}));
  ASSERT_EQ(service.sockets.size(), 1u);
  EXPECT_EQ(service.sockets[0].type, SOCK_SEQPACKET);
  EXPECT_EQ(service.sockets[0].mode, 0620u);
  EXPECT_EQ(service.sockets[0].gid, 1007u);
  EXPECT_TRUE(service.disabled);
  EXPECT_FALSE(service.oneshot);
  EXPECT_TRUE(file.services[1].oneshot);
  EXPECT_EQ(file.services[1].klass, "default");
}

TEST(RcParser, ReadsActions) {
  const RcFile file = parse_rc(
      "on post-fs-data && property:a.b=1\n"
      "    mkdir /data/x 0770 system 1015\n"
      "    write /sys/y \"two words\"\n"
      "on property:c=*\n"
      "    setprop d \"\"");  // no newline at the end
  ASSERT_TRUE(file.errors.empty()) << file.errors[0];
  ASSERT_EQ(file.actions.size(), 2u);
  EXPECT_EQ(file.actions[0].event, "post-fs-data");
  EXPECT_EQ(file.actions[0].properties[0].key, "a.b");
  EXPECT_EQ(file.actions[0].commands[1].words,
            (std::vector<std::string>{"write", "/sys/y", "two words"}));
  EXPECT_EQ(file.actions[0].commands[1].line, 3);
  EXPECT_EQ(file.actions[1].properties[0].value, "*");
  EXPECT_EQ(file.actions[1].commands[0].words, (std::vector<std::string>{"setprop", "d", ""}));
}

TEST(RcParser, TellsTheLineAndKeepsTheRest) {
  const struct {
    const char* text;
    const char* error;
  } rows[] = {
      {"mkdir /x\n", "line 1: \"mkdir\" stands in no section"},
      {"on boot\n  frobnicate\n", "line 2: unknown command frobnicate"},
      {"on boot\n  chmod 0777\n", "line 2: chmod takes 2 to 2 arguments"},
      {"on boot && charger\n", "line 1: two boot stages never hold at once"},
      {"on boot &&\n", "line 1: a trigger is missing after &&"},
      {"on boot property:a=b\n", "line 1: triggers are joined by &&, not by property:a=b"},
      {"on property:=1\n", "line 1: a property trigger wants property:name=value"},
      {"service a\n", "line 1: service wants a name and a program"},
      {"service a b\n", "line 1: the program of a is not absolute"},
      {"service a /b\nservice a /c\n", "line 2: service a is there already"},
      {"service a /b\n user nemo\n", "line 2: unknown user nemo"},
      {"service a /b\n group log nemo\n", "line 2: unknown group nemo"},
      {"service a /b\n socket s pipe 0660\n", "line 2: unknown socket type pipe"},
      {"service a /b\n socket s stream 0998\n", "line 2: bad mode 0998"},
      {"service a /b\n socket ../s stream 0660\n", "line 2: a socket name holds no /"},
      {"service a /b\n onboot\n", "line 2: unknown service option onboot"},
      {"on boot\n  write /x \"open\n", "line 2: a quote is not closed"},
      {"import /other.rc\n", "line 1: import is not supported: one file is all there is"},
      // Lines after a broken section head belong to nobody.
      {"on\n  mkdir /x\n", "line 1: on wants a trigger"},
      // A joined line is counted as the two that it is.
      {"on boot\n  mkdir \\\n /x\n  bad\n", "line 4: unknown command bad"},
  };
  for (const auto& row : rows) {
    const RcFile file = parse_rc(std::string(row.text) + "on late-init\n  start z\n");
    ASSERT_FALSE(file.errors.empty()) << row.text;
    EXPECT_EQ(file.errors[0], row.error);
    ASSERT_FALSE(file.actions.empty()) << row.text;
    EXPECT_EQ(file.actions.back().event, "late-init") << row.text;
  }
}

TEST(RcParser, NamesAndModes) {
  uid_t id = 0;
  EXPECT_TRUE(lookup_aid("sdcard_rw", &id) && id == 1015);
  EXPECT_TRUE(lookup_aid("cache", &id) && id == 2001);
  EXPECT_TRUE(lookup_aid("ext_data_rw", &id) && id == 1078);
  EXPECT_TRUE(lookup_aid("4711", &id) && id == 4711);
  for (const char* bad : {"", "-1", "12x", "99999999999", "Root"})
    EXPECT_FALSE(lookup_aid(bad, &id));
  mode_t mode = 0;
  EXPECT_TRUE(parse_mode("01771", &mode) && mode == 01771);
  for (const char* bad : {"", "8", "17777", "-7", "0x7"})
    EXPECT_FALSE(parse_mode(bad, &mode)) << bad;
}

TEST(RcParser, PropertyTriggers) {
  std::map<std::string, std::string> others = {{"x", "1"}, {"y", ""}};
  const struct {
    const char* on;
    const char* key;
    const char* value;
    bool fires;
  } rows[] = {
      {"property:a=1", "a", "1", true},
      {"property:a=1", "a", "2", false},
      {"property:a=1", "b", "1", false},
      {"property:a=*", "a", "anything", true},
      {"property:a=*", "a", "", false},
      {"property:a=1 && property:x=1", "a", "1", true},
      {"property:a=1 && property:y=1", "a", "1", false},
      {"property:a=1 && property:x=1", "x", "1", false},  // a is not 1
      {"boot && property:a=1", "a", "1", false},          // only while booting
  };
  for (const auto& row : rows) {
    const RcFile file = parse_rc(std::string("on ") + row.on + "\n  start s\n");
    ASSERT_EQ(file.actions.size(), 1u) << row.on;
    EXPECT_EQ(property_trigger_fires(file.actions[0], row.key, row.value,
                                     [&](const std::string& key) { return others[key]; }),
              row.fires)
        << row.on << ": " << row.key << "=" << row.value;
  }
}

}  // namespace
