#include "client/merge/list.h"

#include <string.h>

#include "client/reader/run_files.h"
#include "client/support/json.h"

namespace {

constexpr const char* kKindNames[] = {"line", "event", "step", "hole"};

std::string_view without_end(std::string_view text) {
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  return text;
}

}  // namespace

ListWriter::ListWriter(ListForm form, LineFilter* filter, FILE* out)
    : form_(form), filter_(filter), out_(out) {}

bool ListWriter::write(std::string_view text) {
  broken_ = fwrite(text.data(), 1, text.size(), out_) != text.size() || fflush(out_) != 0;
  return !broken_;
}

bool ListWriter::flush() {
  const size_t used = used_;
  used_ = 0;
  return write({held_.get(), used});
}

inline void ListWriter::append(std::string_view text) {
  if (text.size() > kHeld - used_) flush();
  if (text.size() > kHeld) {
    write(text);
    return;
  }
  memcpy(&held_[used_], text.data(), text.size());
  used_ += text.size();
}

inline void ListWriter::add_text(const LogLine& line) {
  if (!line_ends_ && !line.inside) append("\n");
  append(line.text);
  line_ends_ = !line.text.empty() && line.text.back() == '\n';
}

void ListWriter::add_json(const LineStream& stream, const LogLine& line) {
  JsonWriter json;
  json.begin_object().member("kind", kKindNames[static_cast<int>(line.kind)]);
  json.member("buffer", stream.name()).key("time");
  line.time == kNoStamp ? json.null() : json.string(iso_text(line.time));
  if (line.until != kNoStamp && line.kind == LineKind::kHole) {
    json.member("until", iso_text(line.until));
  }
  if (line.until != kNoStamp && line.kind == LineKind::kStep) {
    json.member("before", iso_text(line.until));
  }
  ThreadtimeFields fields;
  const std::string_view text = without_end(line.text);
  if (line.kind == LineKind::kLine && line.stamped && parse_threadtime(text, &fields)) {
    json.member("pid", fields.pid).member("tid", fields.tid);
    json.member("level", std::string_view(&fields.level, 1)).member("tag", fields.tag);
    json.member("message", fields.message);
  } else {
    if (line.inside) json.flag("continues", true);
    json.member("text", text);
  }
  append(json.end_object().text() + "\n");
}

void ListWriter::add_count(const LineStream& stream, const LogLine& line) {
  if (line.kind != LineKind::kLine || line.inside) return;
  CountRow& row = counts_[stream.name()];
  ThreadtimeFields fields;
  size_t level = std::string_view::npos;
  if (line.stamped && parse_threadtime(line.text, &fields)) level = kLevels.find(fields.level);
  ++(level == std::string_view::npos ? row.others : row.levels[level]);
}

bool ListWriter::take(const LineStream& stream, const LogLine& line) {
  if (!filter_->is_open() && !filter_->passes(line)) return true;
  if (form_ == ListForm::kText) add_text(line);
  if (form_ == ListForm::kJson) add_json(stream, line);
  if (form_ == ListForm::kCount) add_count(stream, line);
  return !broken_;
}

std::string ListWriter::counts(bool as_json) const {
  JsonWriter json;
  json.begin_object().member("command", "log").key("counts").begin_array();
  std::string text = "BUFFER  ";
  const auto column = [&](int64_t value) {
    char digits[24];
    snprintf(digits, sizeof digits, " %10lld", static_cast<long long>(value));
    text += digits;
  };
  for (const char level : kLevels) text += std::string(10, ' ') + level;
  text += "      other      total\n";
  for (const std::string& name : stream_names()) {
    const auto found = counts_.find(name);
    if (found == counts_.end()) continue;
    const CountRow& row = found->second;
    int64_t total = row.others;
    json.begin_object().member("buffer", name);
    char head[32];
    snprintf(head, sizeof head, "%-8s", name.c_str());
    text += head;
    for (size_t i = 0; i < kLevels.size(); i++) {
      json.member(kLevels.substr(i, 1), row.levels[i]);
      column(row.levels[i]);
      total += row.levels[i];
    }
    column(row.others);
    column(total);
    text += "\n";
    json.member("other", row.others).member("total", total).end_object();
  }
  return as_json ? json.end_array().end_object().text() + "\n" : text;
}
