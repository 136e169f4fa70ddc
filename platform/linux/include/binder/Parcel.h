// The platform's serialisation buffer, reduced to what the control protocol uses, for plain Linux.
// The bytes are exactly the platform's: little-endian, no type tags, every item padded to 4 bytes.
//
// As the platform's header it brings the log macros along: a name of ours that clashes with one of
// them fails here too. And as there a Parcel can be copied; nobody should, because the copies of
// the platform's free the same memory.
#pragma once

#include <errno.h>
#include <log/log.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace android {

typedef int32_t status_t;  // 0 is success, otherwise a negative errno value

class Parcel {
 public:
  Parcel();
  ~Parcel();

  // Replaces the content by a copy of `len` bytes and moves the read position to its start.
  status_t setData(const uint8_t* buffer, size_t len);

  const uint8_t* data() const;  // owned by the parcel, valid until the next write
  size_t dataSize() const;      // bytes
  size_t dataAvail() const;     // bytes behind the read position

  // A read that does not fit yields 0 or -ENODATA and leaves the position where it was.
  int32_t readInt32() const;
  status_t readInt32(int32_t* pArg) const;
  int64_t readInt64() const;  // 8 bytes at the next multiple of 4, not of 8
  status_t readInt64(int64_t* pArg) const;

  // int32 count, then count + 1 UTF-16 units, padded to 4; -1 alone is null. Returns a pointer into
  // the parcel and its length in units; null with length 0 for a negative count, a missing
  // terminator, or fewer bytes left than the padded length.
  const char16_t* readString16Inplace(size_t* outLen) const;

  status_t writeInt32(int32_t val);
  status_t writeInt64(int64_t val);
  status_t writeCString(const char* str);  // bytes and NUL, padded with zeros to 4, no length

 private:
  std::vector<uint8_t> mData;
  mutable size_t mDataPos = 0;

  uint8_t* grow(size_t len);
  status_t take(void* to, size_t len) const;
};

}  // namespace android
