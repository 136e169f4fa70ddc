// The merged list on standard output.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "client/merge/filter.h"
#include "client/merge/merge.h"

enum class ListForm { kText, kJson, kCount };

class ListWriter : public LineSink {
 public:
  // `filter` and `out` stay the caller's.
  ListWriter(ListForm form, LineFilter* filter, FILE* out);

  // False when writing failed.
  bool take(const LineStream& stream, const LogLine& line) override;

  // Writes the buffer. False when that failed.
  bool flush();
  // The table of --count, as text or as an object with `as_json`.
  std::string counts(bool as_json) const;

 private:
  bool write(std::string_view text);
  void append(std::string_view text);
  void add_text(const LogLine& line);
  void add_json(const LineStream& stream, const LogLine& line);
  void add_count(const LineStream& stream, const LogLine& line);

  ListForm form_;
  LineFilter* filter_;
  FILE* out_;
  static constexpr size_t kHeld = 256 * 1024;
  std::unique_ptr<char[]> held_ = std::make_unique<char[]>(kHeld);  // not written yet
  size_t used_ = 0;                                                 // of it
  bool broken_ = false;                                             // writing failed
  bool line_ends_ = true;  // the last text ended with a newline
  struct CountRow {
    int64_t levels[kLevels.size()] = {};
    int64_t others = 0;  // without a level
  };
  std::map<std::string, CountRow> counts_;
};
