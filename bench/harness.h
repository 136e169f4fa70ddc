// What the rows of the benchmark share: alternating blocks, clocks, counted system calls, reports.
//
// A shared machine makes single times and means worthless. A row therefore runs short blocks of all
// its contenders in turn, with another one first in each round, and reports the median over the
// rounds of the ratio within a round. Google Benchmark has no such ratio: it can only interleave
// whole repetitions, so the rows have this small harness instead.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "phone/util.h"  // read_file(), split()

// One competitor of a row: runs one block and returns what it took, in nanoseconds.
struct Contender {
  const char* name;
  std::function<int64_t()> block;
};

// times[contender][round]
using BlockTimes = std::vector<std::vector<double>>;

// Runs `rounds` rounds after one that does not count.
BlockTimes alternate(int rounds, const std::vector<Contender>& contenders);

// One JSON object as a line on standard output, which bench/run.py reads: the figure `name` with
// its value and, where there were several rounds, the quartiles around the median.
void report(const std::string& name, double value);
void report_ratio(const std::string& name, const std::vector<double>& above,
                  const std::vector<double>& below);
void report_median(const std::string& name, std::vector<double> values);

// A point of a plot: x, and one value for each curve of that plot.
void report_point(const char* plot, double x, const std::vector<double>& values);

double median(std::vector<double> values);

int64_t wall_ns();          // CLOCK_MONOTONIC
int64_t cpu_ns(pid_t pid);  // CPU time of a process, own or other, to the nanosecond

// Wall time and CPU time of the calling thread that `body` takes.
int64_t wall_time_of(const std::function<void()>& body);
int64_t cpu_time_of(const std::function<void()>& body);

// Keeps the process `pid` (0: this one) with all that it will fork on one CPU, the last it may use.
void pin(pid_t pid = 0);

// Runs `body` in a child that dies with us; returns its pid. `body` does not return into the
// caller.
pid_t spawn(const std::function<void()>& body);
// Kills and reaps a child.
void end(pid_t pid);

// Counts the system calls of the process `tracee` by number, from one entry of the call `mark` to
// its `periods`th next one, by ptrace; so what the tracee does must be under way or come from
// another process. An interrupted call that the kernel takes up again is counted once.
using CallCounts = std::map<long, int64_t>;
CallCounts count_calls(pid_t tracee, long mark, int64_t periods);
int64_t total_calls(const call_counts& calls);

// Instructions that `tracee` executes in user space from one call of `mark` to the next, which
// comes from the same place of the code, by single steps. A repeated string instruction counts once
// for each repetition.
int64_t count_instructions(pid_t tracee, long mark);

// Polls `done` every millisecond. Ends the benchmark with `what` after 30 s: no row can go on.
void await(const char* what, const std::function<bool()>& done);
[[noreturn]] void fail(const std::string& what);

// The rows, each run in a phone of its own as bench/run.py says.
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
