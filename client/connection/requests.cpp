#include "client/connection/requests.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>

#include "client/connection/connection.h"
#include "client/connection/progress.h"
#include "client/connection/session.h"
#include "client/support/files.h"
#include "client/support/json.h"
#include "client/support/settings.h"
#include "client/support/text.h"
#include "client/support/volume.h"
#include "model/destination.h"
#include "protocol/encode.h"
#include "protocol/names.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kVersionTimeout{10'000};  // a daemon that serves us answers at once
constexpr int64_t kRequestSerial = 2;

constexpr int32_t kStart = 2;
constexpr int32_t kDelete = 12;

// clang-format off

// Texts for a result that is not negative, and for a reply without one.
constexpr struct {
  int32_t code;
  const char* done;
  const char* nothing;
} kTexts[] = {
    { 1, "protocol version %", "(no version)"},
    { 2, "debug logging is started", "(no change): debug logging is on with these types already"},
    { 3, "debug logging is stopped", "(no result)"},
    { 4, "done", "done (this request does nothing)"},
    { 5, "done", "done (this request does nothing)"},
    { 6, "collected", "(nothing collected): the daemon cannot make /sdcard/Android/data/.harrowmoss/"},
    { 7, "build state %", "(no state)"},
    { 8, "a modem log is requested of the watchdog", "(no result)"},
    { 9, "%", "(no run yet)"},
    {10, "%", "(no size)"},
    {11, "%", "(no build identity)"},
    {12, "done", "all logs are deleted"},
    {13, "done", "the traces are in /sdcard/zelkalog/traces"},
    {14, "copied", "(no result)"},
    {15, "copied", "(nothing copied): no kernel log of this boot was saved"},
    {16, "%", "(no reason)"},
};

// Meanings of particular results.
constexpr struct {
  int32_t code;
  int32_t result;
  const char* meaning;
} kMeanings[] = {
    {6, -1, "the destination is refused, or a collector could not start"},
    {7,  0, "intact"},
    {7,  1, "modified: /system is not of its provisioned size"},
    {8, -1, "debug logging with MPSSDump is not on"},
    {15, -1, "the destination is refused, or the copy could not start"},
};

// clang-format on

std::string text_of(const Reply& answer, const RequestName& request) {
  if (request.reply == ReplyFields::kText) return printable(answer.text);
  return std::to_string(answer.number);
}

const char* meaning_of(const Reply& answer, const RequestName& request) {
  for (const auto& row : kMeanings) {
    if (row.code == request.code && row.result == answer.number) return row.meaning;
  }
  return "";
}

bool failed(const Reply& answer) {
  return answer.has_result && answer.number < 0;
}

// Connects, asks the version, makes `destination` unless it is "", and exchanges `frame` for
// `bytes`. The directory is made last: without a daemon nothing is left on the phone.
Outcome converse(const Invocation& call, Environment& env, std::string_view frame,
                 const std::string& destination, std::string* bytes) {
  Connection daemon;
  const SteadyTime served_by = after(std::min(kVersionTimeout, call.timeout));
  Outcome result = open_session(env, served_by, &daemon, nullptr);
  if (result.code != kExitOk) return result;

  if (!destination.empty() && !make_directories(destination)) {
    const int failure = errno;
    std::string error = "cannot make the directory " + destination + ": " + strerror(failure);
    VolumeSpace space;
    if (failure == ENOSPC && env.space(existing_parent(destination), &space)) {
      error += "; " + space_text(destination, space.block, space.available);
    }
    return {kExitUsage, error};
  }

  std::function<void()> tick;
  if (env.progress || call.progress) {
    tick = [steps = std::make_shared<ProgressLines>(env.self_log, env.err)] { steps->look(); };
  }
  result = daemon.exchange(frame, after(call.timeout), tick, bytes);
  if (result.code == kExitTimedOut) result.error += "; the daemon goes on with the request";
  return result;
}

void show_frame(const Invocation& call, Environment& env, const RequestFrame& frame) {
  const std::string_view payload = std::string_view(frame.bytes).substr(2);
  if (call.json) {
    JsonWriter json;
    json.begin_object().member("command", call.what->name).member("frame", hex_text(frame.bytes));
    json.key("fields").begin_array();
    for (const FrameField& field : frame.fields) {
      json.begin_object().member("name", field.name).member("value", field.value);
      json.member("hex", hex_text(std::string_view(frame.bytes).substr(field.offset, field.size)));
      json.end_object();
    }
    json.end_array().member("dump_text", static_cast<int64_t>(dump_text_length(payload)));
    fprintf(env.out, "%s\n", json.end_object().text().c_str());
    return;
  }
  fprintf(env.out, "frame: %s\n", hex_text(frame.bytes).c_str());
  for (const FrameField& field : frame.fields) {
    const std::string_view bytes = std::string_view(frame.bytes).substr(field.offset, field.size);
    fprintf(env.out, "  %-8s%-24s %s\n", field.name, hex_text(bytes).c_str(),
            printable(field.value).c_str());
  }
  fprintf(env.out, "dump text: %zu of %zu characters; nothing was sent\n",
          dump_text_length(payload), kDumpTextMax);
}

// A warning about a successful reply, or "". The daemon answers 0 to a start even when it
// found too little space and switched logging off.
std::string warning_of(const Reply& answer, const RequestName& request, const Environment& env) {
  if (failed(answer)) return "";
  if (answer.code != kStart) return loss_while_logging(&request, env);
  if (read_settings(env).logging) return "";
  std::string text =
      "the daemon accepted the start, but debug logging is off: it wants more than "
      "64 MiB free on /sdcard and more than 128 MiB on /data";
  for (const VolumeReading& volume : read_volumes(env)) text += "; " + space_text(volume);
  return text;
}

int show_reply(const Invocation& call, Environment& env, const std::string& bytes) {
  const RequestName& request = *call.what->request;
  Reply answer;
  std::string error;
  if (!decode_reply(bytes, request, kRequestSerial, &answer, &error)) {
    return fail(call, env, kExitBadReply, error);
  }
  const std::string warning = warning_of(answer, request, env);
  if (!warning.empty()) fprintf(env.err, "harrowmossctl: %s\n", warning.c_str());
  const bool not_started = answer.code == kStart && !warning.empty();
  const std::string text = not_started ? "debug logging is off" : reply_text(answer, request);
  if (call.json) {
    fputs(reply_json(answer, request, warning).c_str(), env.out);
  } else {
    fprintf(failed(answer) ? env.err : env.out, "%s\n", text.c_str());
  }
  return failed(answer) ? kExitDaemonFailed : kExitOk;
}

bool parse_hex(const std::vector<std::string>& words, std::string* bytes) {
  std::string digits;
  for (const std::string& word : words) {
    for (const char c : word) {
      if (c != ' ') digits += c;
    }
  }
  if (digits.size() % 2 != 0) return false;
  if (digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return false;
  for (size_t i = 0; i < digits.size(); i += 2) {
    *bytes += static_cast<char>(strtol(digits.substr(i, 2).c_str(), nullptr, 16));
  }
  return true;
}

}  // namespace

bool read_values(const Invocation& call, Environment& env, RequestValues* values,
                 std::string* error) {
  const RequestArguments kind = call.what->request->arguments;
  const bool types = kind == RequestArguments::kMask;
  if (types || kind == RequestArguments::kMaskPathInt) {
    const MaskWords& words = types ? kLoggerTypeWords : kFeedbackWords;
    const std::string& list = types ? call.arguments[0] : call.select;
    if (!types && list.empty()) {
      *error = "--select is missing; for example --select general,tombstone";
      return false;
    }
    if (!parse_mask(words, list, &values->mask, error)) return false;
    const int32_t unnamed = unnamed_bits(words, values->mask);
    if (unnamed != 0) {
      fprintf(env.err, "harrowmossctl: note: bits 0x%x select nothing\n",
              static_cast<unsigned>(unnamed));
    }
  }
  if (types || kind == RequestArguments::kNone) return true;
  values->path = call.arguments[0];
  *error = check_destination(values->path);
  return error->empty();
}

std::string check_destination(std::string_view path) {
  const char* fault = judge_destination(path, {});
  return fault == nullptr ? "" : std::string("the destination is refused: ") + fault;
}

std::string loss_while_logging(const RequestName* request, const Environment& env) {
  if (request == nullptr || request->code != kDelete || !read_settings(env).logging) return "";
  return "debug logging is on and goes on in deleted files: what is captured until the next start "
         "is lost (`harrowmossctl stop`, then start)";
}

std::string reply_text(const Reply& answer, const RequestName& request) {
  if (answer.unknown && request.reply != ReplyFields::kInt) {
    return "the daemon does not know this request (-1)";
  }
  const std::string meaning = meaning_of(answer, request);
  if (failed(answer)) {
    return "the daemon reports failure (" + std::to_string(answer.number) + ")" +
           (meaning.empty() ? "" : ": " + meaning);
  }
  const auto& row = kTexts[request.code - 1];
  const bool empty = request.reply == ReplyFields::kText && answer.text.empty();
  if (!answer.has_result || empty) return row.nothing;
  std::string text = row.done;
  const size_t mark = text.find('%');
  if (mark != std::string::npos) text.replace(mark, 1, text_of(answer, request));
  return meaning.empty() ? text : text + " (" + meaning + ")";
}

std::string reply_json(const Reply& answer, const RequestName& request,
                       const std::string& warning) {
  JsonWriter json;
  json.begin_object().member("command", request.command).member("code", request.code);
  json.key("result");
  if (!answer.has_result) {
    json.null();
  } else if (request.reply == ReplyFields::kText && !answer.unknown) {
    json.string(answer.text);
  } else {
    json.number(answer.number);
  }
  const std::string meaning = meaning_of(answer, request);
  if (answer.has_result && !meaning.empty()) json.member("meaning", meaning);
  if (!warning.empty()) json.member("warning", warning);
  return json.end_object().text() + "\n";
}

int run_request(const Invocation& call, Environment& env) {
  RequestValues values;
  RequestFrame frame;
  std::string error;
  if (!read_values(call, env, &values, &error) ||
      !encode_request(*call.what->request, kRequestSerial, values, &frame, &error)) {
    return fail(call, env, kExitUsage, error);
  }
  if (call.dry_run) {
    show_frame(call, env, frame);
    return kExitOk;
  }
  std::string bytes;
  const Outcome result = converse(call, env, frame.bytes, std::string(values.path), &bytes);
  if (result.code != kExitOk) return fail(call, env, result.code, result.error);
  return show_reply(call, env, bytes);
}

int run_raw(const Invocation& call, Environment& env) {
  std::string payload;
  RequestFrame frame;
  std::string error = "the payload is not whole hexadecimal bytes";
  if (!parse_hex(call.arguments, &payload) || !frame_payload(payload, &frame.bytes, &error)) {
    return fail(call, env, kExitUsage, error);
  }
  if (call.dry_run) {
    frame.fields = {{"length", 0, 2, std::to_string(payload.size())},
                    {"payload", 2, payload.size(), ""}};
    show_frame(call, env, frame);
    return kExitOk;
  }
  std::string bytes;
  const Outcome result = converse(call, env, frame.bytes, "", &bytes);
  if (result.code != kExitOk) return fail(call, env, result.code, result.error);
  if (call.json) {
    JsonWriter json;
    json.begin_object().member("command", "raw").member("reply", hex_text(bytes)).end_object();
    fprintf(env.out, "%s\n", json.text().c_str());
  } else {
    fprintf(env.out, "%s\n", hex_text(bytes).c_str());
  }
  const bool number = bytes.size() == kReplyMin + 4;
  return number && int32_at(bytes, kReplyMin) < 0 ? kExitDaemonFailed : kExitOk;
}
