#include "phone/adb/records.h"

#include <stdio.h>

#include "phone/util.h"

namespace {

uint32_t number_of(const char* bytes) {
  return number_at({bytes, sizeof(uint32_t)}, 0);
}

}  // namespace

const RecordFormat kMessageFormat = {24, [](const char* h) -> size_t { return number_of(h + 12); },
                                     kMostPayload};
const RecordFormat kFrameFormat = {5, [](const char* h) -> size_t { return number_of(h + 1); },
                                   kMostPayload};
// DONE has a time in place of the length.
const RecordFormat kSyncFormat = {
    8, [](const char* h) -> size_t { return number_of(h) == four("DONE") ? 0 : number_of(h + 4); },
    64 * 1024};

std::optional<Record> RecordReader::next() {
  if (broken_ || bytes_.size() < format_.header) return {};
  const size_t length = format_.length(bytes_.data());
  broken_ = length > format_.most;
  if (broken_ || bytes_.size() - format_.header < length) return {};
  Record record = {bytes_.substr(0, format_.header), bytes_.substr(format_.header, length)};
  bytes_.erase(0, format_.header + length);
  return record;
}

std::string little_endian(std::initializer_list<uint32_t> numbers) {
  std::string bytes;
  for (const uint32_t number : numbers) {
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift);
  }
  return bytes;
}

uint32_t number_at(std::string_view bytes, size_t at) {
  uint32_t number = 0;
  if (bytes.size() < sizeof number || at > bytes.size() - sizeof number) return 0;
  for (size_t i = sizeof number; i-- > 0;)
    number = number << 8 | static_cast<uint8_t>(bytes[at + i]);
  return number;
}

std::string encode(const AdbMessage& message) {
  return little_endian({message.command, message.arg0, message.arg1,
                        static_cast<uint32_t>(message.payload.size()), 0, ~message.command}) +
         message.payload;
}

bool decode(const Record& record, AdbMessage* message) {
  message->command = number_at(record.header, 0);
  message->arg0 = number_at(record.header, 4);
  message->arg1 = number_at(record.header, 8);
  message->payload = record.payload;
  return number_at(record.header, 20) == ~message->command;
}

std::string shell_frame(ShellFrame id, std::string_view payload) {
  return std::string(1, id) + little_endian({static_cast<uint32_t>(payload.size())}) +
         std::string(payload);
}

AdbService parse_service(std::string_view name) {
  AdbService service;
  name = name.substr(0, name.find('\0'));
  const size_t colon = name.find(':');
  if (colon == std::string_view::npos) return service;
  const std::vector<std::string> words = split(name.substr(0, colon), ",");
  constexpr struct {
    const char* name;
    AdbService::Kind kind;
  } kinds[] = {{"shell", AdbService::kShell},
               {"exec", AdbService::kShell},
               {"sync", AdbService::kSync},
               {"root", AdbService::kRoot},
               {"unroot", AdbService::kUnroot}};
  for (const auto& row : kinds) {
    if (!words.empty() && words[0] == row.name) service.kind = row.kind;
  }
  if (service.kind == AdbService::kShell) service.command = name.substr(colon + 1);
  bool raw = !service.command.empty();
  for (const std::string& word : words) {
    if (word == "v2") service.frames = true;
    if (word == "raw" || word == "pty") raw = word == "raw";
    if (word.compare(0, 5, "TERM=") == 0) service.terminal_type = word.substr(5);
  }
  service.terminal = service.frames && !raw;
  return service;
}

bool parse_send(std::string_view text, std::string* path, uint32_t* mode) {
  const size_t comma = text.rfind(',');
  long number = 0;
  if (comma == std::string_view::npos || !parse_number(text.substr(comma + 1), 0, 0177777, &number))
    return false;
  *path = text.substr(0, comma);
  const uint32_t owner = number & 0700;
  *mode = owner | owner >> 3 | owner >> 6;
  return true;
}

bool parse_window(std::string_view text, unsigned short* rows, unsigned short* columns) {
  return sscanf(std::string(text).c_str(), "%hux%hu,", rows, columns) == 2;
}
