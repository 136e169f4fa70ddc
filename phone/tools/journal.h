// The journal of a bench phone: the shell and every stand-in append a line per call to
// /dev/bench/calls.log. Tests read from it what was run, with which arguments, in which order.
//
//   <pid> <ppid> <program> 0x1f <argv[0]> 0x1f <argv[1]> ... 0x1f <argv[n]> \n
//
// `program` is the path of the stand-in (argv[0] is chosen by the caller). A newline inside an
// argument is written as 0x1e. One write(2) with O_APPEND for each line: lines never mix.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <charconv>
#include <string>
#include <string_view>
#include <vector>

constexpr const char* kCallsLog = "/dev/bench/calls.log";
constexpr char kCallSeparator = '\x1f';
constexpr char kCallNewline = '\x1e';

struct BenchCall {
  pid_t pid = 0;
  pid_t ppid = 0;
  std::string program;
  std::vector<std::string> argv;
};

inline std::string format_call(const BenchCall& call) {
  std::string line =
      std::to_string(call.pid) + " " + std::to_string(call.ppid) + " " + call.program;
  for (const std::string& argument : call.argv) {
    line += kCallSeparator;
    for (const char c : argument) line += c == '\n' ? kCallNewline : c;
  }
  return line + "\n";
}

// `line` without its final newline. False for a line that format_call() did not make.
inline bool parse_call(std::string_view line, BenchCall* call) {
  const char* end = line.data() + line.size();
  const auto pid = std::from_chars(line.data(), end, call->pid);
  if (pid.ec != std::errc() || pid.ptr == end || *pid.ptr != ' ') return false;
  const auto ppid = std::from_chars(pid.ptr + 1, end, call->ppid);
  if (ppid.ec != std::errc() || ppid.ptr == end || *ppid.ptr != ' ') return false;
  std::string_view rest(ppid.ptr + 1, end - ppid.ptr - 1);
  std::vector<std::string> fields;
  while (true) {
    const size_t cut = rest.find(kCallSeparator);
    std::string field(rest.substr(0, cut));
    for (char& c : field) {
      if (c == kCallNewline) c = '\n';
    }
    fields.push_back(std::move(field));
    if (cut == std::string_view::npos) break;
    rest.remove_prefix(cut + 1);
  }
  call->program = fields.front();
  call->argv.assign(fields.begin() + 1, fields.end());
  return !call->program.empty();
}

// The calls in a journal's text, in order; with `program`, only of that one. A broken line has no
// program.
inline std::vector<BenchCall> calls_in(std::string_view journal, std::string_view program = "") {
  std::vector<BenchCall> calls;
  for (size_t end; (end = journal.find('\n')) != std::string_view::npos;
       journal.remove_prefix(end + 1)) {
    BenchCall call;
    if (!parse_call(journal.substr(0, end), &call)) call = {};
    if (program.empty() || call.program == program) calls.push_back(std::move(call));
  }
  return calls;
}

// The texts of all calls of `sh -c`, in order; not of the shells that scripts start.
inline std::vector<std::string> shell_commands_in(std::string_view journal) {
  std::vector<std::string> texts;
  for (BenchCall& call : calls_in(journal, "/system/bin/sh")) {
    if (call.argv.size() == 3 && call.argv[1] == "-c") texts.push_back(std::move(call.argv[2]));
  }
  return texts;
}

// Appends the call of this process. Ignores errors: the call must not fail because of the journal.
inline void journal_call(const char* program, int argc, char** argv) {
  const int saved_errno = errno;
  const int fd = open(kCallsLog, O_WRONLY | O_APPEND | O_CLOEXEC);
  if (fd >= 0) {
    const std::string line =
        format_call({getpid(), getppid(), program, std::vector<std::string>(argv, argv + argc)});
    (void)!write(fd, line.data(), line.size());
    close(fd);
  }
  errno = saved_errno;
}
