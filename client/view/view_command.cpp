#include "client/view/view_command.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "client/merge/log_command.h"
#include "client/merge/when.h"
#include "client/reader/line_reader.h"
#include "client/runs/run_check.h"
#include "client/runs/runs.h"
#include "client/support/json.h"
#include "client/support/settings.h"
#include "client/support/text.h"
#include "client/view/capture_times.h"
#include "client/view/page.h"
#include "model/eviction.h"
#include "model/properties.h"
#include "protocol/names.h"

namespace {

constexpr size_t kPropertiesLimit = 1 << 18;
constexpr LogStamp kZoneStep = 900 * kSecond;  // zones are whole quarters of an hour
constexpr const char* kPropertyLists[] = {"system.prop", "system_stop.prop"};
constexpr const char* kBuildKeys[] = {kVendorDisplayIdProp, kDisplayIdProp};

// Directories whose files are marks, and the text before the time in such a file:
// "----- pid 9 at 2026-11-22 07:21:46", "Timestamp: 2026-11-22 07:21:46.724049+0100".
constexpr struct {
  const char* directory;
  const char* kind;
  std::string_view line;
  std::string_view before_time;
} kMarkFiles[] = {{"anr/", "anr", "----- pid ", " at "},
                  {"tombstones/", "tombstone", "Timestamp: ", ": "}};

bool begins_with(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

std::string read_member(const RunSource& source, const std::string& path) {
  std::string bytes;
  for (const RunFile& file : source.files) {
    OpenFile opened;
    if (file.path != path || !opened.open(source, file)) continue;
    char part[4096];
    ssize_t got;
    while (bytes.size() < kPropertiesLimit &&
           ((got = read(opened.fd(), part, sizeof part)) > 0 || (got == -1 && errno == EINTR))) {
      if (got > 0) bytes.append(part, static_cast<size_t>(got));
    }
    break;
  }
  return bytes;
}

// The phone's UTC offset: the time of the last line minus the modification of the youngest log
// file, rounded to a quarter of an hour.
LogStamp zone_of(const RunSource& source, LogStamp last) {
  int64_t written = 0;
  for (const LogStream& stream : order_files(source.files)) {
    if (stream.format != LineFormat::kThreadtime) continue;
    written = std::max(written, stream.files.back().written);
  }
  if (last == kNoStamp || written == 0) return 0;
  const LogStamp apart = last - written * kSecond;
  return (apart + (apart < 0 ? -kZoneStep : kZoneStep) / 2) / kZoneStep * kZoneStep;
}

void add_properties(const RunSource& source, RunPage* page, int32_t* types) {
  std::string quota;
  for (const char* list : kPropertyLists) {
    const std::string text = read_member(source, list);
    const std::string mask = listed_property(text, kTypeProp);
    if (page->types.empty() && !mask.empty()) {
      *types = atoi(mask.c_str());
      page->types = mask_text(kLoggerTypeWords, *types);
    }
    for (const char* key : kBuildKeys) {
      if (page->build.empty()) page->build = listed_property(text, key);
    }
    if (quota.empty()) quota = listed_property(text, kQuotaProp);
  }
  if (quota.empty()) return;
  page->quota = quota + " GiB" + (shrinks_quota(*types) ? ", three quarters of it" : "");
}

// Files, and the findings of `check`.
void add_files(const RunSource& source, int32_t types, RunPage* page) {
  std::map<std::string, int64_t> files;
  for (const RunFile& file : source.files) {
    if (!begins_with(file.path, ".logger/")) files[file.path] = file.bytes;
  }
  int pieces = 0;
  std::map<std::string, std::string> by_path;
  for (const CheckFinding& found : check_content(files, types, !source.capturing, &pieces)) {
    const bool missing = found.what == CheckFinding::kMissing;
    const std::string text = (missing ? found.path + " is missing" : "empty") +
                             (found.text.empty() ? "" : ": " + found.text) +
                             (found.note ? " (a note)" : "");
    missing ? page->findings.push_back(found.type + ": " + text)
            : static_cast<void>(by_path[found.path] = text);
  }
  for (const auto& [path, bytes] : files) page->files.push_back({path, bytes, by_path[path]});
}

// The first time in the file, kNoStamp for none. Reads it to its end.
LogStamp first_time(const OpenFile& opened, const RunFile& file, std::string_view line_head,
                    std::string_view before_time) {
  constexpr size_t kTime = 19;  // "2026-11-22 07:21:46"
  LogStamp time = kNoStamp;
  LineReader reader;
  reader.attach(opened.fd(), file.bytes);
  for (std::string_view line; reader.next(&line, true);) {
    if (time != kNoStamp || line.substr(0, line_head.size()) != line_head) continue;
    const size_t at = line.find(before_time);
    if (at == std::string_view::npos) continue;
    parse_when(std::string(line.substr(at + before_time.size(), kTime)), {}, &time);
  }
  return time;
}

// Marks for crash files: by the time that they give, else by their last modification.
void add_mark_files(const RunSource& source, LogStamp zone, RunSurvey* survey) {
  for (const auto& row : kMarkFiles) {
    std::vector<RunFile> files;
    for (const RunFile& file : source.files) {
      if (begins_with(file.path, row.directory)) files.push_back(file);
    }
    OpenFile opened;
    for (const RunFile& file : files) {
      const bool open = opened.open(source, file, files.data() + files.size());
      const LogStamp time = open ? first_time(opened, file, row.line, row.before_time) : kNoStamp;
      survey->add_mark(row.kind, time == kNoStamp ? file.written * kSecond + zone : time, kNoStamp,
                       file.path);
    }
  }
}

void add_other_files(const RunSource& source, RunSurvey* survey) {
  const LogStamp zone = zone_of(source, survey->last);
  add_mark_files(source, zone, survey);
  for (const RunFile& file : source.files) {
    OpenFile opened;
    const std::string_view path = file.path;
    const bool capture = begins_with(file.path, "net/") && path.find(".pcap") != path.npos;
    if (!capture || !opened.open(source, file)) continue;
    read_capture(opened.fd(), [&](int64_t micros) { survey->add_event("net", micros + zone); });
  }
}

}  // namespace

std::string make_page(const Environment& env, const RunSource& source, const std::string& word) {
  RunPage page;
  page.run = word;
  page.name = source.name;
  int32_t types = 0;
  add_properties(source, &page, &types);
  add_files(source, types, &page);
  if (source.cut) page.findings.push_back("the archive ends early: files are missing");
  for (const RunReport& run : read_runs(env)) {
    if (run.name == source.name && source.archive.empty()) page.state = state_name(run);
  }

  const bool own_lines =
      std::none_of(source.files.begin(), source.files.end(),
                   [](const RunFile& file) { return begins_with(file.path, ".logger/"); });
  RunSurvey survey(own_lines);
  StreamList streams = open_streams(source, {{"all"}, {}, false});
  merge(&streams, &survey, nullptr);
  add_other_files(source, &survey);
  return page_html(page, survey);
}

int run_view(const Invocation& call, Environment& env) {
  if (call.output.empty()) return fail(call, env, kExitUsage, "view needs -o FILE");
  RunSource source;
  const std::string error = find_source(env, call.arguments[0], &source);
  if (!error.empty()) return fail(call, env, kExitUsage, error);
  const bool to_stdout = call.output == "-";
  if (to_stdout && call.json) {
    return fail(call, env, kExitUsage, "--json cannot share standard output with the page");
  }
  const std::string page = make_page(env, source, call.arguments[0]);
  if (to_stdout) {
    fwrite(page.data(), 1, page.size(), env.out);
    return kExitOk;
  }
  FILE* file = fopen(call.output.c_str(), "we");
  if (file == nullptr) {
    return fail(call, env, kExitUsage, "cannot write " + call.output + ": " + strerror(errno));
  }
  const bool written = fwrite(page.data(), 1, page.size(), file) == page.size();
  if (fclose(file) != 0 || !written) {
    const std::string why = strerror(errno);
    unlink(call.output.c_str());
    return fail(call, env, kExitFailed, "cannot write " + call.output + ": " + why);
  }
  if (!call.json) return kExitOk;
  JsonWriter json;
  json.begin_object().member("command", "view").member("page", call.output);
  json.member("bytes", static_cast<int64_t>(page.size())).end_object();
  fprintf(env.out, "%s\n", json.text().c_str());
  return kExitOk;
}
