// Runs one row of the benchmark, only in a bench phone; bench/run.py boots it and names the rows.
#include <stdio.h>
#include <string.h>

#include "bench/harness.h"
#include "platform/linux/bench_phone.h"

namespace {

constexpr struct {
  const char* name;
  void (*run)();
} kRows[] = {
    {"touch", bench_touch},
    {"self-log", bench_self_log},
    {"file-size", bench_file_size},
    {"oldest-run", bench_oldest_run},
    {"move", bench_move},
    {"log", bench_log},
    {"request", bench_request},
    {"request-workers", bench_request_workers},
    {"memory", bench_memory},
    {"workers", bench_workers},
    {"idle", bench_idle},
    {"stop", bench_stop},
    {"stop-stubborn", bench_stop_stubborn},
};

}  // namespace

int main(int argc, char** argv) {
  require_bench_phone();
  for (const auto& row : kRows) {
    if (argc != 2 || strcmp(row.name, argv[1]) != 0) continue;
    row.run();
    return 0;
  }
  fprintf(stderr, "usage: bench ROW, with a row of:");
  for (const auto& row : kRows) fprintf(stderr, " %s", row.name);
  fputc('\n', stderr);
  return 2;
}
