// The platform's serialisation buffer, reduced to what the control protocol uses, for plain Linux.
// The bytes are exactly the platform's: little-endian, no type tags, every item padded to 4 bytes.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace android {

typedef int32_t status_t;  // 0 is success, otherwise a negative errno value

class Parcel {
 public:
  Parcel();
  ~Parcel();
  Parcel(const Parcel&) = delete;
  Parcel& operator=(const Parcel&) = delete;

  // Replaces the content by a copy of `len` bytes and moves the read position to its start.
  status_t setData(const uint8_t* buffer, size_t len);

  const uint8_t* data() const;  // owned by the parcel, valid until the next write
  size_t dataSize() const;      // bytes
  size_t dataAvail() const;     // bytes behind the read position

  // A read that does not fit yields 0 and leaves the position where it was.
  int32_t readInt32() const;
  int64_t readInt64() const;  // 8 bytes at the next multiple of 4, not of 8

  // int32 count, then count + 1 UTF-16 units, padded to 4; -1 alone is null. Returns a pointer into
  // the parcel and its length in units; null with length 0 for a negative count, a missing
  // terminator, or fewer bytes left than the padded length.
  const char16_t* readString16Inplace(size_t* outLen) const;

  status_t writeInt32(int32_t val);
  status_t writeInt64(int64_t val);
  status_t writeCString(const char* str);  // bytes and NUL, padded with zeros to 4, no length

 private:
  uint8_t* mData;
  size_t mDataSize;
  size_t mDataCapacity;
  mutable size_t mDataPos;

  uint8_t* grow(size_t len);
};

}  // namespace android
