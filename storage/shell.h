// Running text through the shell: the one replacement for system() and popen(), and the one place
// where such a text is put together.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

// A string literal of the source: never text that was composed at run time.
class FixedText {
 public:
  constexpr FixedText(decltype(nullptr)) : text_(nullptr) {}
  template <size_t N>
  constexpr FixedText(const char (&literal)[N]) : text_(literal) {}
  template <size_t N>
  FixedText(char (&buffer)[N]) = delete;

  constexpr const char* get() const { return text_; }

 private:
  const char* text_;
};

// A command for the shell. Everything but literals is added as a word: every ASCII byte of the word
// outside [A-Za-z0-9._/@%+=:,#-] is escaped by a backslash, bytes from 0x80 up stay.
//
//   run_shell(ShellText("cp -a").arg(src).target(dst).raw("; chmod -R 777").arg(dst));
class ShellText {
 public:
  template <size_t N>
  ShellText(const char (&literal)[N]) : ShellText(FixedText(literal)) {}
  template <size_t N>
  ShellText(char (&buffer)[N]) = delete;
  ShellText(FixedText text);
  ShellText(const ShellText&);
  ~ShellText();

  ShellText& raw(FixedText text);

  // A blank and the word.
  ShellText& arg(const std::string& word);

  // The same for a source of which a last component "*" stays a pattern.
  ShellText& pattern(const std::string& source);

  // The same for a path that the command writes to or changes: when it is a trap (base/beneath.h),
  // the text is not run.
  ShellText& target(const std::string& path);

  // pattern() for what the command removes: it is not run when the way to it is a trap. A link at
  // the end of `source` is removed itself; before a slash or "/*" it is part of the way.
  ShellText& removal(const std::string& source);

  const char* c_str() const { return text_.c_str(); }
  size_t size() const { return text_.size(); }

  // False when a word holds a newline, which no backslash escapes.
  bool can_be_given() const { return can_be_given_; }

  // False, after one error line, for a text that is not to be run: see can_be_given() and target().
  bool may_run() const;

 private:
  std::string text_;
  std::vector<std::string> targets_;
  bool can_be_given_ = true;
};

// Tools of the platform that the daemon waits for itself end within this time, or are killed.
constexpr int kToolBoundMs = 120 * 1000;

// Runs `sh -c command` and waits for it without bound. Returns its wait status as system() does, -1
// when it may not be run, could not be forked or was reaped elsewhere. In the main process the
// shell leads a group of its own; elsewhere it stays in its caller's, so that it ends with it.
int run_shell(const ShellText& command);

constexpr int kUnbounded = -1;
constexpr int64_t kOutputBytes = 16 * 1024 * 1024;

// The same for platform tools that may hang: after kToolBoundMs the shell and all that it started
// are killed, with one error line, and the result is -1. A process that makes a file longer than
// `file_bytes` (kOutputBytes for what goes to a file and has no bound of its own) is killed, with
// one error line.
int run_tool(const ShellText& command, int64_t file_bytes = kUnbounded);

// Runs `sh -c command` and gives its standard output to `on_line(context, line)` in pieces of at
// most `size` - 1 bytes, each up to and with its newline, as fgets() would. After `bound_ms`, or
// kOutputBytes of output, it is killed as run_tool() does; kUnbounded waits and takes all. Returns
// 0 once the command has ended or was killed, -1 when it may not be run or could not be started.
int run_shell_lines(const ShellText& command, int bound_ms, char* buffer, size_t size,
                    void (*on_line)(void* context, const char* line), void* context);

// A time limit for a whole series of commands: `bound_ms` from here on.
class SeriesBudget {
 public:
  // `what` is for the error line, and stays the caller's.
  explicit SeriesBudget(const char* what, int bound_ms = kToolBoundMs);

  // Milliseconds for the next command; 0, the first time after one error line, when there are none.
  int left();

 private:
  const char* what_;
  int bound_ms_;
  int64_t deadline_;
  bool said_ = false;
};

// Turns a forked worker into the shell `file` (by PATH) for `command`, named `name`. Returns only
// when there is no such program; a command that may not be run ends the process.
void exec_shell(const char* file, const char* name, const ShellText& command);

// What `path` lies in; `path` itself when it ends in a slash or "/*".
std::string directory_of(const std::string& path);

// Runs the program `argv[0]` (a full path; `argv` ends with null) without a shell, otherwise as
// run_shell().
int run_program(const char* const argv[]);
