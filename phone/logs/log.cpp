// log [-t TAG] [-p v|d|i|w|e] [-b BUFFER] [-n COUNT] MESSAGE...: writes log records; with -n COUNT
// records, numbered.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "phone/logs/entry.h"
#include "phone/tools/journal.h"
#include "platform/linux/bench_phone.h"
#include "platform/linux/log_record.h"

namespace {

int usage() {
  fprintf(stderr, "usage: log [-t TAG] [-p v|d|i|w|e|f] [-b BUFFER] [-n COUNT] MESSAGE...\n");
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  require_bench_phone();
  journal_call("/system/bin/log", argc, argv);
  const char *tag = "log", *buffer = "main";
  int priority = priority_of_letter('i');
  long count = 0;
  int option;
  while ((option = getopt(argc, argv, "+t:p:b:n:")) != -1) {
    if (option == 't') tag = optarg;
    if (option == 'b') buffer = optarg;
    if (option == 'n') count = atol(optarg);
    if (option == 'p') priority = priority_of_letter(optarg[0]);
    if (option == '?' || priority == 0) return usage();
  }
  if (optind == argc) return usage();
  std::string message;
  for (int i = optind; i < argc; i++) {
    if (i > optind) message += ' ';
    message += argv[i];
  }
  for (long i = 0; i < (count > 0 ? count : 1); i++) {
    const std::string text = count > 0 ? message + " " + std::to_string(i + 1) : message;
    const int written = write_log_record(buffer, priority, tag, text.data(), text.size());
    if (written < 0) {
      fprintf(stderr, "log: %s: %s\n", buffer, strerror(-written));
      return 1;
    }
  }
  return 0;
}
