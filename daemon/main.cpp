#include "daemon/harrowmoss.h"

int main() {
  run_daemon();
}
