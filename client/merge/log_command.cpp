#include "client/merge/log_command.h"

#include <poll.h>
#include <stdlib.h>

#include <algorithm>

#include "client/merge/file_stream.h"
#include "client/merge/filter.h"
#include "client/merge/list.h"
#include "client/merge/story.h"
#include "client/merge/when.h"

namespace {

constexpr int kFollowMs = 200;
constexpr int kQuietMs = 30000;
constexpr LogStamp kAround = 30 * kSecond;
constexpr const char* kAll = "all";

bool chosen(const std::vector<std::string>& buffers, const std::string& name) {
  if (buffers.empty()) return name != kTouchStream;
  return std::any_of(buffers.begin(), buffers.end(),
                     [&](const std::string& buffer) { return buffer == name || buffer == kAll; });
}

std::string read_buffers(const std::string& list, std::vector<std::string>* buffers) {
  *buffers = split_list(list);
  const std::vector<std::string>& names = stream_names();
  for (const std::string& buffer : *buffers) {
    if (buffer == kAll || std::find(names.begin(), names.end(), buffer) != names.end()) continue;
    std::string known;
    for (const std::string& name : names) known += name + ", ";
    return "there is no buffer \"" + buffer + "\"; there are " + known + kAll;
  }
  return "";
}

// "T[,SECONDS]"
std::string read_around(const std::string& text, const WhenBase& base, TimeRange* range) {
  const size_t comma = text.find(',');
  LogStamp middle = 0;
  LogStamp distance = kAround;
  if (comma != std::string::npos) {
    char* end = nullptr;
    const double seconds = strtod(text.c_str() + comma + 1, &end);
    if (*end != '\0' || !(seconds > 0 && seconds < 1e8)) return "--around takes T or T,SECONDS";
    distance = static_cast<LogStamp>(seconds * kSecond);
  }
  if (!parse_when(text.substr(0, comma), base, &middle))
    return "--around \"" + text + "\" is no time of this run; see harrowmossctl help log";
  *range = {middle - distance, middle + distance};
  return "";
}

std::string read_range(const Invocation& call, const RunSource& source, TimeRange* range) {
  if (call.since.empty() && call.until.empty() && call.around.empty()) return "";
  const std::vector<LogStream> streams = order_files(source.files);
  WhenBase base = {source.start, source.written, [&] { return span_of(source, streams).last; }};
  if (base.start == kNoStamp) base.start = span_of(source, streams).first;
  if (!call.around.empty()) {
    if (call.since.empty() && call.until.empty()) return read_around(call.around, base, range);
    return "--around excludes --since and --until";
  }
  const struct {
    const char* name;
    const std::string& text;
    LogStamp* time;
  } rows[] = {{"--since", call.since, &range->since}, {"--until", call.until, &range->until}};
  for (const auto& row : rows) {
    if (row.text.empty() || parse_when(row.text, base, row.time)) continue;
    return std::string(row.name) + " \"" + row.text +
           "\" is no time of this run; see harrowmossctl help log";
  }
  return range->since <= range->until ? "" : "--since is later than --until";
}

std::unique_ptr<LineStream> make_stream(const RunSource& source, const LogStream& files,
                                        const StreamChoice& choice) {
  if (files.name != kDaemonStream) {
    return std::make_unique<FileStream>(source, files, choice.range, choice.follow);
  }
  return std::make_unique<StoryStream>(source, files, choice.range, choice.follow);
}

// Waits for new lines of a run that is being captured.
class Follower {
 public:
  Follower(const Environment& env, RunSource* source, StreamChoice choice, StreamList* streams,
           ListWriter* writer)
      : env_(env),
        source_(source),
        choice_(std::move(choice)),
        streams_(streams),
        writer_(writer) {}

  // False when the complete run was read, or writing failed.
  bool operator()() {
    if (!writer_->flush() || complete_) return false;
    poll(nullptr, 0, kFollowMs);
    complete_ = !refresh_source(env_, source_);
    int64_t bytes = 0;
    for (const RunFile& file : source_->files) bytes += file.bytes;
    // The stop still appends to the files. A run that does not fit into the store is never moved.
    quiet_ms_ = source_->capturing || bytes != bytes_ ? 0 : quiet_ms_ + kFollowMs;
    bytes_ = bytes;
    complete_ = complete_ || quiet_ms_ >= kQuietMs;
    for (const LogStream& files : order_files(source_->files)) {
      if (!chosen(choice_.buffers, files.name)) continue;
      const auto same = std::find_if(streams_->begin(), streams_->end(), [&](const auto& stream) {
        return stream->name() == files.name;
      });
      if (same == streams_->end()) {
        streams_->push_back(make_stream(*source_, files, choice_));
      } else {
        static_cast<FileStream&>(**same).update(files, complete_);
      }
    }
    return true;
  }

 private:
  const Environment& env_;
  RunSource* source_;
  StreamChoice choice_;
  StreamList* streams_;
  ListWriter* writer_;
  bool complete_ = false;  // no file grows any more
  int quiet_ms_ = 0;       // nothing was written since logging was switched off
  int64_t bytes_ = 0;
};

}  // namespace

StreamList open_streams(const RunSource& source, const StreamChoice& choice) {
  StreamList streams;
  for (const LogStream& files : order_files(source.files)) {
    if (chosen(choice.buffers, files.name)) streams.push_back(make_stream(source, files, choice));
  }
  return streams;
}

int run_log(const Invocation& call, Environment& env) {
  RunSource source;
  StreamChoice choice;
  LineFilter filter;
  std::string error = read_buffers(call.buffer, &choice.buffers);
  if (error.empty()) {
    error = filter.set({call.level, call.tag, call.pid, call.grep, call.extended});
  }
  if (error.empty() && call.extended && call.grep.empty()) error = "-E is for --grep";
  if (error.empty()) error = find_source(env, call.arguments[0], &source);
  if (error.empty() && call.follow && (!source.capturing || call.count)) {
    error = call.count ? "--count and --follow exclude each other"
                       : source.name + " is not being captured, there is nothing to follow";
  }
  if (error.empty()) error = read_range(call, source, &choice.range);
  if (!error.empty()) return fail(call, env, kExitUsage, error);

  choice.follow = call.follow;
  ListWriter writer(call.count  ? ListForm::kCount
                    : call.json ? ListForm::kJson
                                : ListForm::kText,
                    &filter, env.out);
  StreamList streams = open_streams(source, choice);
  Follower more(env, &source, choice, &streams, &writer);
  merge(&streams, &writer, call.follow ? std::function<bool()>(std::ref(more)) : nullptr);
  writer.flush();
  if (call.count) fputs(writer.counts(call.json).c_str(), env.out);
  if (source.cut) return fail(call, env, kExitFailed, source.archive + " ends early");
  for (const auto& stream : streams) {
    const std::string& trouble = static_cast<FileStream&>(*stream).trouble();
    if (!trouble.empty()) return fail(call, env, kExitFailed, trouble);
  }
  return kExitOk;
}
