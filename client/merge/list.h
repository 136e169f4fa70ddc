// The merged list on standard output.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <map>
#include <string>
#include <vector>

#include "client/merge/filter.h"
#include "client/merge/merge.h"

enum class list_form { kText, kJson, kCount };

class list_writer : public line_sink {
 public:
  // Neither belongs to it.
  list_writer(list_form form, line_filter* filter, FILE* out);

  // False when nobody reads any more.
  bool take(const line_stream& stream, const log_line& line) override;

  // Writes what it holds.
  bool flush();
  // The table of --count, as text or as an object with `as_json`.
  std::string counts(bool as_json) const;

 private:
  void add_text(const log_line& line);
  void add_json(const line_stream& stream, const log_line& line);
  void add_count(const line_stream& stream, const log_line& line);

  list_form form_;
  line_filter* filter_;
  FILE* out_;
  std::string held_;
  bool line_ends_ = true;  // held_, or what was written before it, ends with a newline
  struct count_row {
    int64_t levels[kLevels.size()] = {};
    int64_t others = 0;  // without a level
  };
  std::map<std::string, count_row> counts_;
};
