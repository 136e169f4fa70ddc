// Running text through the shell: the one replacement for system() and popen().
#pragma once

#include <stddef.h>

#include <string>

constexpr char kShell[] = "/system/bin/sh";

// Tools of the platform that the daemon waits for itself end within this time, or are killed.
constexpr int kToolBoundMs = 120 * 1000;

// Runs `sh -c command` and waits for it without bound. Returns its wait status as system() does, -1
// when it could not be forked or was reaped elsewhere. In the main process the shell leads a group
// of its own; elsewhere it stays in its caller's, so that it ends with it.
int run_shell(const char* command);

// The same for platform tools that may hang: after kToolBoundMs the shell and all that it started
// are killed, one error line says so, and the result is -1.
int run_tool(const char* command);

// Runs `sh -c command` and gives its standard output to `on_line(context, line)` in pieces of at
// most `size` - 1 bytes, each up to and with its newline, as fgets() would. After `bound_ms` it is
// killed as run_tool() does; kUnbounded waits. Returns 0 once the command has ended or was killed,
// -1 when it could not be started.
constexpr int kUnbounded = -1;
int run_shell_lines(const char* command, int bound_ms, char* buffer, size_t size,
                    void (*on_line)(void* context, const char* line), void* context);

// Runs the program `argv[0]` (a full path; `argv` ends with null) without a shell, otherwise as
// run_shell().
int run_program(const char* const argv[]);

// Appends `name` to `out` with every ASCII byte outside [A-Za-z0-9._/@%+=:,#-] escaped by a
// backslash; bytes from 0x80 up stay. False when it holds a newline, which no backslash escapes.
bool append_escaped(std::string* out, const char* name);
