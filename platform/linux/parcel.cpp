#include <binder/Parcel.h>
#include <errno.h>
#include <string.h>

namespace android {
namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "items are stored in native order");

constexpr size_t kMaxSize = INT32_MAX;  // sizes travel as int32

constexpr size_t padded(size_t len) {
  return (len + 3) & ~size_t{3};
}

}  // namespace

Parcel::Parcel() = default;
Parcel::~Parcel() = default;

status_t Parcel::setData(const uint8_t* buffer, size_t len) {
  if (len > kMaxSize) return -EINVAL;
  mData.assign(buffer, buffer + len);
  mDataPos = 0;
  return 0;
}

const uint8_t* Parcel::data() const {
  return mData.empty() ? nullptr : mData.data();
}

size_t Parcel::dataSize() const {
  return mData.size();
}

size_t Parcel::dataAvail() const {
  return mData.size() - mDataPos;
}

status_t Parcel::take(void* to, size_t len) const {
  if (dataAvail() < len) return -ENODATA;
  memcpy(to, mData.data() + mDataPos, len);
  mDataPos += len;
  return 0;
}

status_t Parcel::readInt32(int32_t* pArg) const {
  return take(pArg, sizeof(*pArg));
}

int32_t Parcel::readInt32() const {
  int32_t value = 0;
  take(&value, sizeof(value));
  return value;
}

status_t Parcel::readInt64(int64_t* pArg) const {
  return take(pArg, sizeof(*pArg));
}

int64_t Parcel::readInt64() const {
  int64_t value = 0;
  take(&value, sizeof(value));
  return value;
}

const char16_t* Parcel::readString16Inplace(size_t* outLen) const {
  *outLen = 0;
  const int32_t count = readInt32();
  if (count < 0) return nullptr;
  // No overflow: at most 2^32 bytes, in 64 bits; on 32 bits the units alone exceed any parcel.
  const uint64_t bytes = (uint64_t{static_cast<uint32_t>(count)} + 1) * sizeof(char16_t);
  if (bytes > kMaxSize || padded(bytes) > dataAvail()) return nullptr;
  const char16_t* text = reinterpret_cast<const char16_t*>(mData.data() + mDataPos);
  mDataPos += padded(bytes);
  if (text[count] != u'\0') return nullptr;
  *outLen = static_cast<size_t>(count);
  return text;
}

status_t Parcel::writeInt32(int32_t val) {
  uint8_t* at = grow(sizeof(val));
  if (at == nullptr) return -EINVAL;
  memcpy(at, &val, sizeof(val));
  return 0;
}

status_t Parcel::writeInt64(int64_t val) {
  uint8_t* at = grow(sizeof(val));
  if (at == nullptr) return -EINVAL;
  memcpy(at, &val, sizeof(val));
  return 0;
}

status_t Parcel::writeCString(const char* str) {
  const size_t len = strlen(str) + 1;
  uint8_t* at = len > kMaxSize ? nullptr : grow(padded(len));
  if (at == nullptr) return -EINVAL;
  memcpy(at, str, len);
  memset(at + len, 0, padded(len) - len);
  return 0;
}

// Makes `len` bytes at the position part of the content and moves the position behind them. Writes
// go to the position as on the platform: behind what was written before, over what setData()
// brought. Null, and nothing moves, when the parcel would outgrow an int32.
uint8_t* Parcel::grow(size_t len) {
  const size_t start = mDataPos;
  const size_t end = start + len;
  if (end > kMaxSize) return nullptr;
  if (mData.size() < end) mData.resize(end);
  mDataPos = end;
  return mData.data() + start;
}

}  // namespace android
