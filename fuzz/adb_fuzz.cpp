// Any bytes on an adb connection, split in any way, give the same records; none is longer than its
// format allows, and parsing stays within its text.
#include <algorithm>

#include "fuzz/require.h"
#include "phone/adb/records.h"

namespace {

std::string read_all(const RecordFormat& format, std::string_view stream, size_t block) {
  RecordReader reader(format);
  std::string records;
  while (!stream.empty()) {
    reader.add(stream.substr(0, block));
    stream.remove_prefix(std::min(block, stream.size()));
    while (const auto record = reader.next()) {
      require(record->header.size() == format.header && record->payload.size() <= format.most);
      AdbMessage message;
      if (&format == &kMessageFormat && decode(*record, &message))
        require(message.payload == record->payload);
      records += record->header + record->payload;
    }
  }
  return records;
}

}  // namespace

// Input: a byte for the format, one for the block size, then the stream.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const RecordFormat* formats[] = {&kMessageFormat, &kFrameFormat, &kSyncFormat};
  const RecordFormat& format = *formats[data[0] % std::size(formats)];
  const std::string_view stream(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::string whole = read_all(format, stream, stream.size());
  require(stream.substr(0, whole.size()) == whole);
  require(read_all(format, stream, data[1] + 1) == whole);
  require(parse_service(stream).command.size() <= stream.size());
  std::string path;
  uint32_t mode = 0;
  unsigned short rows = 0, columns = 0;
  if (parse_send(stream, &path, &mode)) require(path.size() < stream.size() && mode <= 0777);
  parse_window(stream, &rows, &columns);
  return 0;
}
