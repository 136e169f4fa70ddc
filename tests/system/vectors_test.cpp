// The published protocol vectors against the running daemon, and the example client for authors of
// apps.
#include "tests/support/vectors.h"

#include <sys/vfs.h>

#include <filesystem>

#include "phone/host/client.h"

namespace fs = std::filesystem;

namespace {

// Establishes a "given" of the file. False when it is unknown.
bool provide(Phone* phone, const std::string& given) {
  const size_t blank = given.find(' ');
  const std::string verb = given.substr(0, blank), what = given.substr(blank + 1);
  if (verb == "property") {
    const size_t equals = what.find('=');
    phone->setprop(what.substr(0, equals), what.substr(equals + 1));
  } else if (verb == "present") {
    return eventually([&] { return phone->exists(what); });
  } else if (verb == "absent") {
    fs::remove(phone->inside(what));
  } else if (verb == "blocked") {
    fs::remove_all(phone->inside(what));
    phone->write(what, "in the way");
  } else {
    return false;
  }
  return true;
}

// The phone's text for a placeholder of the file.
std::string phone_text(const Phone& phone, const std::string& placeholder) {
  if (placeholder == "build-id") return phone.getprop("ro.build.fingerprint");
  if (placeholder == "log-dir") {
    return fs::path(phone.getprop("sys.harrowmossd.log_store_path")).filename();
  }
  if (placeholder == "system-size") {
    struct statfs info = {};
    EXPECT_EQ(statfs(phone.inside("/system").c_str(), &info), 0);
    return std::to_string((info.f_blocks - info.f_bfree) * info.f_bsize);
  }
  if (placeholder == "boot-reason") {
    return "sys.android.reboot:[" + phone.getprop("sys.android.reboot") + "]\nsys.boot.reason:[" +
           phone.getprop("sys.boot.reason") + "]";
  }
  ADD_FAILURE() << "unknown placeholder " << placeholder;
  return "";
}

// A reply of the file as a complete frame on this phone, as hex without blanks.
std::string expected_reply(const Phone& phone, std::string reply) {
  for (size_t at; (at = reply.rfind('{')) != std::string::npos;) {
    const size_t end = reply.find('}', at);
    const std::string name = reply.substr(at + 1, end - at - 1);
    std::string bytes;
    if (name == "size") {  // comes first, so it is filled in last
      bytes = little_endian(from_hex(reply.substr(end + 1)).size(), 4);
    } else {
      const std::string text = phone_text(phone, name);
      EXPECT_FALSE(text.empty()) << name;
      bytes = little_endian(text.size(), 4) + text;
      bytes.resize(4 + (text.size() / 4 + 1) * 4);
    }
    reply.replace(at, end - at + 1, hex(bytes));
  }
  return hex(from_hex(reply));
}

TEST(VectorsSystem, TheDaemonAnswersEachByteForByte) {
  Phone phone;
  auto client = std::make_unique<Client>(phone);
  for (const Vector& vector : read_vectors().vectors) {
    SCOPED_TRACE(vector.name);
    for (const std::string& given : vector.given) ASSERT_TRUE(provide(&phone, given)) << given;
    const pid_t daemon = phone.daemon_pid();
    ASSERT_TRUE(client->send(from_hex(vector.request)));
    if (vector.then.empty()) {
      EXPECT_EQ(hex(client->reply(kOwedMs)), expected_reply(phone, vector.reply));
      continue;
    }
    EXPECT_TRUE(client->closed_by_peer());
    const bool ends = vector.then == "daemon ends";
    EXPECT_TRUE(ends || vector.then == "closed") << vector.then;
    if (ends) {
      EXPECT_TRUE(eventually(
          [&] {
            const pid_t now = phone.daemon_pid();
            return now != 0 && now != daemon;
          },
          kTimerMs));
    } else {
      EXPECT_EQ(phone.daemon_pid(), daemon);
    }
    client.reset();  // one client at a time
    EXPECT_TRUE(eventually(
        [&] {
          client = std::make_unique<Client>(phone);
          return client->connected();
        },
        kTimerMs));
  }
}

TEST(VectorsSystem, TheExampleClientSpeaksTheProtocol) {
  const std::string script = source_root() + "/docs/example_client.py";
  const RunResult vectors =
      run_on_host({"python3", script, "check-vectors", source_root() + "/protocol/vectors.json"});
  EXPECT_EQ(vectors.status, 0) << vectors.out << vectors.err;

  Phone phone;
  const struct {
    std::vector<std::string> words;
    int status;
    std::string out;  // "$NAME": from phone_text()
  } rows[] = {
      {{"version"}, 0, "1"},
      {{"boot-reason"}, 0, "$boot-reason"},
      {{"no-service"}, 1, "-1"},
      {{"start", "0x4000"}, 0, "0"},
      {{"log-dir"}, 0, "$log-dir"},
      {{"stop"}, 0, "0"},
      {{"feedback", "0x20", "/sdcard/exempl\xc3\xa9"}, 0, "0"},
      {{"copy-traces", "/sdcard/" + std::string(300, 'x')}, 3, ""},  // would end the daemon
  };
  for (const auto& row : rows) {
    std::vector<std::string> argv = {"python3", script, "--socket",
                                     phone.inside("/dev/socket/harrowmossd")};
    argv.insert(argv.end(), row.words.begin(), row.words.end());
    const RunResult result = run_on_host(argv);
    const std::string out = row.out[0] == '$' ? phone_text(phone, row.out.substr(1)) : row.out;
    EXPECT_EQ(result.status, row.status) << row.words[0] << ": " << result.err;
    EXPECT_EQ(result.out, out.empty() ? "" : out + "\n") << row.words[0];
  }
  EXPECT_TRUE(phone.exists("/sdcard/exempl\xc3\xa9/system.prop"));
}

}  // namespace
