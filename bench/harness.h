// Shared by the rows of the benchmark: alternating blocks, clocks, counted system calls, reports.
//
// Single times and means are useless on a shared machine. A row runs short blocks of all its
// contenders in turn, with a different one first in each round, and reports the median over the
// rounds of the ratio within a round. Google Benchmark can only interleave whole repetitions.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "phone/util.h"  // read_file(), split()

// One contender of a row: runs one block and returns its duration in nanoseconds.
struct Contender {
  const char* name;
  std::function<int64_t()> block;
};

// times[contender][round]
using BlockTimes = std::vector<std::vector<double>>;

// Runs one warm-up round, then `rounds` rounds.
BlockTimes alternate(int rounds, const std::vector<Contender>& contenders);

// Prints a figure as a line of JSON for bench/run.py: `name`, its value and, with several rounds,
// the quartiles.
void report(const std::string& name, double value);
void report_ratio(const std::string& name, const std::vector<double>& above,
                  const std::vector<double>& below);
void report_median(const std::string& name, std::vector<double> values);

// Prints a point of a plot: x, and a value for each curve.
void report_point(const char* plot, double x, const std::vector<double>& values);

double median(std::vector<double> values);

int64_t wall_ns();          // CLOCK_MONOTONIC
int64_t cpu_ns(pid_t pid);  // CPU time of any process

// Wall time of `body`, and CPU time of the calling thread.
int64_t wall_time_of(const std::function<void()>& body);
int64_t cpu_time_of(const std::function<void()>& body);

// Pins the process `pid` (0: this one) and its future children to the last allowed CPU.
void pin(pid_t pid = 0);

// Runs `body` in a child that ends with this process; returns its pid. `body` must not return into
// the caller.
pid_t spawn(const std::function<void()>& body);
// Kills and reaps a child.
void end(pid_t pid);

// Counts the system calls of the process `tracee` by number, with ptrace, from one entry of the
// call `mark` to its `periods`th next one; so the tracee's work must be in progress or come from
// another process. A restarted call counts once.
using CallCounts = std::map<long, int64_t>;
CallCounts count_calls(pid_t tracee, long mark, int64_t periods);
int64_t total_calls(const CallCounts& calls);

// User-space instructions of `tracee` from one call of `mark` to the next from the same place, by
// single steps. A repeated string instruction counts once per repetition.
int64_t count_instructions(pid_t tracee, long mark);

// Polls `done` every millisecond. Ends the benchmark with `what` after 30 s.
void await(const char* what, const std::function<bool()>& done);
[[noreturn]] void fail(const std::string& what);

// The rows; bench/run.py runs each in a phone of its own.
void bench_touch();
void bench_self_log();
void bench_file_size();
void bench_oldest_run();
void bench_move();
void bench_log();
void bench_request();
void bench_request_workers();
void bench_memory();
void bench_workers();
void bench_idle();
void bench_stop();
void bench_stop_stubborn();
