// The wire formats of the adb protocol as values; no I/O.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>
#include <string_view>

// Three formats are records: a fixed-size header with the number of bytes that follow.
struct RecordFormat {
  size_t header;                         // bytes
  size_t (*length)(const char* header);  // bytes that follow
  size_t most;                           // a longer record is an error
};
constexpr size_t kMostPayload = 1024 * 1024;  // of a message; announced to the other side
extern const RecordFormat kMessageFormat;     // on the connection
extern const RecordFormat kFrameFormat;       // in a shell stream, version 2
extern const RecordFormat kSyncFormat;        // in a file stream, from the other side

struct Record {
  std::string header, payload;
};

// Cuts a stream of bytes into records.
class RecordReader {
 public:
  explicit RecordReader(const RecordFormat& format) : format_(format) {}
  void add(std::string_view bytes) { bytes_.append(bytes); }
  // Empty when bytes are missing, and always once broken().
  std::optional<Record> next();
  bool broken() const { return broken_; }

 private:
  const RecordFormat& format_;
  std::string bytes_;
  bool broken_ = false;
};

// A command or id of four letters.
constexpr uint32_t four(const char (&text)[5]) {
  return static_cast<uint8_t>(text[0]) | static_cast<uint8_t>(text[1]) << 8 |
         static_cast<uint8_t>(text[2]) << 16 | static_cast<uint32_t>(text[3]) << 24;
}
std::string little_endian(std::initializer_list<uint32_t> numbers);
uint32_t number_at(std::string_view bytes, size_t at);  // 0 beyond the end

constexpr uint32_t kProtocolVersion = 0x01000001;  // since this version checksums are ignored

struct AdbMessage {
  uint32_t command = 0;  // four("CNXN"), ...
  uint32_t arg0 = 0, arg1 = 0;
  std::string payload;
};
std::string encode(const AdbMessage& message);
// False when the header is inconsistent.
bool decode(const Record& record, AdbMessage* message);

// Ids of the shell stream.
enum ShellFrame : char { kStdin, kStdout, kStderr, kExit, kCloseStdin, kWindowSize };
std::string shell_frame(ShellFrame id, std::string_view payload);

// The service that a stream is opened for.
struct AdbService {
  enum Kind { kUnknown, kShell, kSync, kRoot, kUnroot } kind = kUnknown;
  bool frames = false;        // shell: framed, with separate standard error and exit status
  bool terminal = false;      // shell, framed: with a terminal
  std::string terminal_type;  // "": not given
  std::string command;        // "": an interactive shell
};
AdbService parse_service(std::string_view name);

// "PATH,MODE" of a file to receive; false without a mode. The owner's rights are given to all.
bool parse_send(std::string_view text, std::string* path, uint32_t* mode);

// "24x80,640x480": rows and columns; false for anything else.
bool parse_window(std::string_view text, unsigned short* rows, unsigned short* columns);
