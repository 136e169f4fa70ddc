#include "client/view/page.h"

#include <algorithm>

#include "client/support/json.h"

namespace {

constexpr size_t kTalkers = 40;
constexpr size_t kRowsMax = 2000;             // of marks and of files, fewer when they are long
constexpr size_t kPageMax = 2 * 1024 * 1024;  // bytes
constexpr size_t kFixedMax = 128 * 1024;      // for the page's own text

template <typename Key>
std::vector<std::pair<Key, Talker>> loudest(const std::unordered_map<Key, Talker>& all) {
  std::vector<std::pair<Key, Talker>> list(all.begin(), all.end());
  std::sort(list.begin(), list.end(), [](const auto& a, const auto& b) {
    return a.second.lines != b.second.lines ? a.second.lines > b.second.lines : a.first < b.first;
  });
  if (list.size() > kTalkers) list.resize(kTalkers);
  return list;
}

void add_lanes(const RunSurvey& survey, JsonWriter* json) {
  // Intervals are counted from `base`, to keep the numbers short.
  const int64_t base = survey.times.first();
  json->member("width", survey.times.width()).member("base", base * survey.times.width());
  json->key("lanes").begin_array();
  const auto& lanes = survey.times.lanes();
  for (const char* name :
       {"main", "system", "radio", "events", "crash", "kernel", "touch", "net"}) {
    const auto found = std::find(survey.lane_names.begin(), survey.lane_names.end(), name);
    const size_t lane = static_cast<size_t>(found - survey.lane_names.begin());
    if (lane >= lanes.size()) continue;
    // Four numbers for each interval: its number, lines, warnings, errors.
    json->begin_object().member("name", name).key("counts").begin_array();
    for (const auto& [number, counts] : lanes[lane]) {
      json->number(number - base)
          .number(counts.lines)
          .number(counts.warnings)
          .number(counts.errors);
    }
    json->end_array().end_object();
  }
  json->end_array();
}

template <typename Key>
void add_talkers(const char* key, const std::unordered_map<Key, Talker>& all, JsonWriter* json) {
  json->key(key).begin_array();
  for (const auto& [who, counted] : loudest(all)) {
    json->begin_array();
    if constexpr (std::is_same_v<Key, int>) {
      json->string(std::to_string(who));
    } else {
      json->string(who);
    }
    json->number(counted.lines).number(counted.errors).end_array();
  }
  json->end_array();
}

void add_time(const char* key, LogStamp time, JsonWriter* json) {
  json->key(key);
  time == kNoStamp ? json->null() : json->number(time);
}

std::string data_json(const RunPage& page, const RunSurvey& survey, size_t rows) {
  JsonWriter json;
  json.begin_object().member("run", page.run).member("name", page.name);
  json.member("state", page.state).member("types", page.types).member("build", page.build);
  json.member("quota", page.quota);
  add_time("first", survey.first, &json);
  add_time("last", survey.last, &json);
  add_lanes(survey, &json);
  json.key("marks").begin_array();
  size_t shown = 0;
  for (const auto& [time, mark] : survey.marks) {
    if (shown++ == rows) break;
    json.begin_object().member("kind", mark.kind);
    add_time("time", time, &json);
    if (mark.until != kNoStamp) json.member("until", mark.until);
    json.member("text", mark.text).end_object();
  }
  const auto cut = [&](size_t all) { return static_cast<int64_t>(all - std::min(all, rows)); };
  json.end_array().member("marks_left_out", survey.marks_left_out + cut(survey.marks.size()));
  add_talkers("tags", survey.tags, &json);
  add_talkers("pids", survey.pids, &json);
  json.key("crashes").begin_array();
  for (const CrashLines& crash : survey.crashes) {
    json.begin_object().member("time", crash.time).key("lines").begin_array();
    for (const std::string& line : crash.lines) json.string(line);
    json.end_array().end_object();
  }
  json.end_array().key("files").begin_array();
  for (size_t i = 0; i < page.files.size() && i < rows; i++) {
    const PageFile& file = page.files[i];
    json.begin_array().string(file.path).number(file.bytes).string(file.finding).end_array();
  }
  json.end_array().member("files_left_out", cut(page.files.size()));
  json.key("findings").begin_array();
  for (const std::string& finding : page.findings) json.string(finding);
  return json.end_array().end_object().text();
}

}  // namespace

std::string page_html(const RunPage& page, const RunSurvey& survey) {
  std::string data;
  for (size_t rows = kRowsMax; rows > 0; rows /= 2) {
    data.clear();
    // In JSON '<' occurs in strings only. Escaped, no text can end the script element.
    for (const char c : data_json(page, survey, rows)) {
      c == '<' ? data += "\\u003c" : data += c;
    }
    if (data.size() < kPageMax - kFixedMax) break;
  }
  return std::string(kPageHead) + "<style>" + kPageStyle + "</style>" + kPageTail +
         "<script type=\"application/json\" id=\"data\">" + data + "</script>\n<script>" +
         kPageScript + "</script>\n</body>\n</html>\n";
}
