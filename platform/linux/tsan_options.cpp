// The thread sanitizer's options, for its build alone. The six dumps of a feedback bundle are
// threads of a child that was forked beside other threads; by default the sanitizer ends such a
// child.
extern "C" const char* __tsan_default_options() {
  return "die_after_fork=0";
}
