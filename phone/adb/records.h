// The wire formats of the adb protocol as values. Nothing in here touches a descriptor.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>
#include <string_view>

// Three formats are records: a header of fixed size that holds the number of bytes behind it.
struct RecordFormat {
  size_t header;                         // bytes
  size_t (*length)(const char* header);  // bytes behind it
  size_t most;                           // a longer record breaks the stream
};
constexpr size_t kMostPayload = 1024 * 1024;  // of a message, and what we tell the other side
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
  // Empty when bytes are missing, and for good when broken().
  std::optional<Record> next();
  bool broken() const { return broken_; }

 private:
  const RecordFormat& format_;
  std::string bytes_;
  bool broken_ = false;
};

// Four letters as they stand in commands and ids.
constexpr uint32_t four(const char (&text)[5]) {
  return static_cast<uint8_t>(text[0]) | static_cast<uint8_t>(text[1]) << 8 |
         static_cast<uint8_t>(text[2]) << 16 | static_cast<uint32_t>(text[3]) << 24;
}
std::string little_endian(std::initializer_list<uint32_t> numbers);
uint32_t number_at(std::string_view bytes, size_t at);  // 0 when it is not all there

constexpr uint32_t kProtocolVersion = 0x01000001;  // from this one on nobody looks at the checksum

struct AdbMessage {
  uint32_t command = 0;  // four("CNXN"), ...
  uint32_t arg0 = 0, arg1 = 0;
  std::string payload;
};
std::string encode(const AdbMessage& message);
// False when the header contradicts itself.
bool decode(const Record& record, AdbMessage* message);

// Ids of the shell stream.
enum ShellFrame : char { kStdin, kStdout, kStderr, kExit, kCloseStdin, kWindowSize };
std::string shell_frame(ShellFrame id, std::string_view payload);

// What a stream is opened for.
struct AdbService {
  enum Kind { kUnknown, kShell, kSync, kRoot, kUnroot } kind = kUnknown;
  bool frames = false;        // shell: framed, standard error and the exit status apart
  bool terminal = false;      // shell, framed: on a terminal of its own
  std::string terminal_type;  // "": not told
  std::string command;        // "": an interactive shell
};
AdbService parse_service(std::string_view name);

// "PATH,MODE" of a file that is sent; false when there is no mode. The owner's rights hold for all.
bool parse_send(std::string_view text, std::string* path, uint32_t* mode);

// "24x80,640x480": rows and columns; false for anything else.
bool parse_window(std::string_view text, unsigned short* rows, unsigned short* columns);
