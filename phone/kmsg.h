// The kernel's log, as Android's log daemon shows it.
#pragma once

#include <string_view>

#include "phone/log_source.h"

// Turns one record of /dev/kmsg ("PRIORITY,SEQUENCE,MICROSECONDS,FLAGS;TEXT\n...") into an entry.
// The text before the first ": " becomes the tag. `offset_ns` is what turns the kernel's clock into
// real time. False for a broken record.
bool parse_kmsg(std::string_view record, int64_t offset_ns, LogEntry* entry, uint64_t* sequence);

// Reads /dev/kmsg without blocking, from the last clearing on. Nothing where it cannot be opened.
class KmsgSource : public LogSource {
 public:
  KmsgSource();
  bool next(LogEntry* entry) override;
  int poll_fd() const override { return fd_.get(); }

 private:
  Fd fd_;
  uint64_t cleared_ = 0;  // the first sequence number to be shown
};

// Hides what the kernel has logged until now from every later KmsgSource of this phone.
void clear_kmsg();
