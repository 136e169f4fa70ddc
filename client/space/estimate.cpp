#include "client/space/estimate.h"

#include <stdio.h>
#include <sys/stat.h>

#include <set>

#include "client/connection/requests.h"
#include "client/space/quota.h"
#include "client/support/child.h"
#include "client/support/deadline.h"
#include "client/support/files.h"
#include "client/support/json.h"
#include "client/support/text.h"
#include "client/support/volume.h"
#include "model/data_room.h"
#include "model/feedback_sources.h"
#include "model/log_buffers.h"

namespace {

using std::chrono::milliseconds;

constexpr const char* kGetprop = "/system/bin/getprop";
constexpr milliseconds kDumpLimit{7000};  // what the daemon gives all dumps together
constexpr milliseconds kGetpropLimit{2000};
constexpr int64_t kReportBytes = 16 << 10;  // the device report and logcat's statistics, generously

// clang-format off

// What the bytes of a selection leave out.
constexpr struct {
  int32_t selection;
  const char* note;
} kNotes[] = {
    {kSelectBootfail,   "the boot-failure log moves to the staging area"},
    {kSelectGeneral,    "the staging area and the log buffers of now"},
    {kSelectPower,      "and what the platform's script adds"},
    {kSelectExceptions, "the newest fatal entry of /data/aee_exp"},
    {kSelectBluetooth,  "moves to /data/misc/zelkalog/btlog, not to the bundle"},
    {kSelectMinidump,   "what the vendor service moves is not known before"},
};

// clang-format on

int64_t dumped_bytes(const Environment& env, int64_t block, std::string* note) {
  const SteadyTime deadline = after(kDumpLimit);
  int64_t total = 0;
  for (const char* buffer : kLogBuffers) {
    int64_t bytes = 0;
    ChildSetup setup = {
        {env.root + kLogcat, "-d", "-v", "threadtime,usec", "-t", kDumpLines, "-b", buffer}};
    setup.quiet = true;
    const int status =
        read_child(setup, milliseconds(left_ms(deadline)),
                   [&](std::string_view text) { bytes += static_cast<int64_t>(text.size()); });
    if (status != 0)
      *note += std::string(note->empty() ? "" : "; ") + buffer + " could not be dumped";
    total += round_up(bytes, block);
  }
  return total;
}

// The entry of `directory` that would be copied; "" when there is none.
std::string newest_fatal(const std::string& directory) {
  std::string newest;
  time_t newest_time = 0;
  for (const std::string& name : list_directory(directory)) {
    struct stat info;
    if (name.find(kFatalWord) == std::string::npos) continue;
    if (stat((directory + "/" + name).c_str(), &info) != 0) continue;
    if (!newest.empty() && info.st_mtime <= newest_time) continue;
    newest = directory + "/" + name;
    newest_time = info.st_mtime;
  }
  return newest;
}

// The path that a source adds to the bundle; "" when it adds none.
std::string copied_path(const Environment& env, const FeedbackSource& source) {
  const std::string directory = without_slashes(env.root + source.directory);
  if (source.use == SourceUse::kCopied) return directory;
  return source.use == SourceUse::kNewestFatal ? newest_fatal(directory) : "";
}

const char* note_of(int32_t selection) {
  for (const auto& row : kNotes) {
    if (row.selection == selection) return row.note;
  }
  return "";
}

int64_t property_bytes(const Environment& env, int64_t block) {
  int64_t bytes = 0;
  ChildSetup setup = {{env.root + kGetprop}};
  setup.quiet = true;
  read_child(setup, kGetpropLimit,
             [&](std::string_view text) { bytes += static_cast<int64_t>(text.size()); });
  return round_up(bytes, block) + round_up(kReportBytes, block);
}

const char* room_text(bool enough) {
  return enough ? "room enough" : "no room";
}

bool fits(const EstimateReport& report) {
  return !report.known ||
         copy_fits(report.wanted, report.available, report.on_data, report.preallocated);
}

}  // namespace

EstimateReport estimate_bundle(const Environment& env, int32_t mask,
                               const std::string& destination) {
  EstimateReport report;
  report.destination = destination;
  VolumeSpace space;
  const std::string place = existing_parent(env.root + destination);
  report.known = env.space(place, &space);
  report.available = space.available;
  report.on_data = lies_on_data(place, env.root);
  report.preallocated = preallocated_bytes(env.working);
  std::set<std::string> counted;
  for (const NamedBit& selection : kFeedbackNames) {
    if ((selection.mask & mask) == 0) continue;
    EstimateRow row = {selection.name, 0, note_of(selection.mask)};
    for (const FeedbackSource& source : kFeedbackSources) {
      if (source.selection != selection.mask) continue;
      const std::string path = copied_path(env, source);
      if (path.empty()) continue;
      row.bytes = copy_bytes(path, space.block);
      if (counted.insert(path).second) {
        report.wanted += row.bytes;
      } else {
        row.note = "the same files as above, counted once";
      }
    }
    if (selection.mask == kSelectGeneral) {
      const int64_t dumps = dumped_bytes(env, space.block, &row.note);
      row.bytes += dumps;
      report.wanted += dumps;
    }
    report.rows.push_back(row);
  }
  report.rows.push_back({"properties", property_bytes(env, space.block), "in every bundle"});
  report.wanted += report.rows.back().bytes;
  return report;
}

std::string estimate_text(const EstimateReport& report) {
  std::string text;
  for (const EstimateRow& row : report.rows) {
    char head[64];
    snprintf(head, sizeof head, "%-13s %12lld  ", row.name.c_str(),
             static_cast<long long>(row.bytes));
    text += head + row.note + "\n";
  }
  for (size_t blank; (blank = text.find(" \n")) != std::string::npos;) text.erase(blank, 1);
  if (!report.known) {
    return text + printable(report.destination) + ": " + std::to_string(report.wanted) +
           " bytes wanted, free bytes unknown\n";
  }
  return text + room_text(fits(report)) + ": " +
         printable(space_text(report.destination, report.wanted, report.available)) +
         (report.on_data ? ", " + size_text(kDataReserve) + " of them to be left" : "") + "\n";
}

std::string estimate_json(const EstimateReport& report) {
  JsonWriter json;
  json.begin_object().member("command", "feedback").key("estimate").begin_array();
  for (const EstimateRow& row : report.rows) {
    json.begin_object().member("name", row.name).member("bytes", row.bytes);
    json.member("note", row.note).end_object();
  }
  json.end_array().member("path", report.destination).member("wanted", report.wanted);
  json.key("free");
  report.known ? json.number(report.available) : json.null();
  json.member("reserve", report.on_data ? kDataReserve : 0);
  return json.flag("enough", fits(report)).end_object().text() + "\n";
}

int run_feedback(const Invocation& call, Environment& env) {
  if (!call.estimate) return run_request(call, env);
  RequestValues values;
  std::string error;
  if (!read_values(call, env, &values, &error)) return fail(call, env, kExitUsage, error);
  const EstimateReport report = estimate_bundle(env, values.mask, call.arguments[0]);
  fputs((call.json ? estimate_json(report) : estimate_text(report)).c_str(), env.out);
  return fits(report) ? kExitOk : kExitFailed;
}
