#include "bench/daemon.h"

#include <cutils/properties.h>
#include <cutils/sockets.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/harness.h"
#include "platform/linux/log_record.h"
#include "protocol/protocol.h"

namespace {

constexpr int32_t kReplyHead = 12;  // code and serial

std::string program_of(pid_t pid) {
  char path[256] = {};
  const std::string link = "/proc/" + std::to_string(pid) + "/exe";
  (void)!readlink(link.c_str(), path, sizeof(path) - 1);
  return path;
}

std::vector<pid_t> children_of(pid_t pid) {
  std::vector<pid_t> children;
  const std::string task = std::to_string(pid);
  for (const std::string& word :
       split(read_file("/proc/" + task + "/task/" + task + "/children"), " "))
    children.push_back(atoi(word.c_str()));
  return children;
}

}  // namespace

pid_t daemon_pid() {
  char value[PROPERTY_VALUE_MAX];
  property_get("init.svc_debug_pid.harrowmossd", value, "0");
  return atoi(value);
}

void settle() {
  await("the daemon to settle", [] { return children_of(daemon_pid()).empty(); });
}

std::vector<pid_t> descendants_of(pid_t pid) {
  std::vector<pid_t> all = children_of(pid);
  for (size_t i = 0; i < all.size(); i++) {
    for (const pid_t child : children_of(all[i])) all.push_back(child);
  }
  return all;
}

bool is_forked_daemon(pid_t pid) {
  return program_of(pid) == program_of(daemon_pid());
}

Client::Client()
    : fd_(socket_local_client(kControlSocketName, ANDROID_SOCKET_NAMESPACE_RESERVED, SOCK_STREAM)) {
  if (fd_ < 0) fail("the daemon cannot be reached");
}

Client::~Client() {
  close(fd_);
}

int32_t Client::ask(int32_t code, const int32_t* argument) {
  const int64_t serial = 4711;
  uint8_t frame[kVersionRequestBytes + sizeof(*argument)];
  const uint16_t size = static_cast<uint16_t>(argument == nullptr ? 12 : 16);
  memcpy(frame, &size, 2);
  memcpy(frame + 2, &code, 4);
  memcpy(frame + 6, &serial, 8);
  if (argument != nullptr) memcpy(frame + 14, argument, 4);
  if (write(fd_, frame, size + 2u) != size + 2) fail("the daemon does not take a request");
  uint8_t reply[256];
  int32_t expected = sizeof(int32_t);
  for (int32_t got = 0; got < expected;) {
    const ssize_t more = read(fd_, reply + got, sizeof(reply) - static_cast<size_t>(got));
    if (more <= 0) fail("the daemon hung up");
    got += static_cast<int32_t>(more);
    if (got < 4) continue;
    memcpy(&expected, reply, sizeof(expected));
    expected += 4;
  }
  int32_t result = -1;
  if (expected >= 4 + kReplyHead + 4) memcpy(&result, reply + 4 + kReplyHead, sizeof(result));
  return result;
}

std::vector<LogEntry> daemon_log() {
  const std::string bytes = read_file(std::string(kLogDirectory) + "/main");
  std::vector<LogEntry> entries;
  for (size_t at = 0; at + sizeof(LogRecord) <= bytes.size();) {
    LogRecord record;
    memcpy(&record, bytes.data() + at, sizeof(record));
    if (record.magic != kLogRecordMagic) break;
    const char* tag = bytes.data() + at + sizeof(record);
    if (strcmp(tag, "harrowmossd") == 0)
      entries.push_back({record.sec * INT64_C(1000000000) + record.nsec, tag + strlen(tag) + 1});
    at += (sizeof(record) + record.size + 3) / 4 * 4;
  }
  return entries;
}
