// Whatever bytes a request has and in whatever order it is read: a read gives what stands at the
// position, or nothing; the position never goes back, nor past the end, nor on without a value.
#include <binder/Parcel.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "fuzz/require.h"

namespace {

template <typename Number>
void check_number(const android::Parcel& parcel, Number (android::Parcel::*read)() const) {
  const size_t left = parcel.dataAvail();
  Number expected = 0;
  const bool fits = left >= sizeof(expected);
  if (fits) memcpy(&expected, parcel.data() + parcel.dataSize() - left, sizeof(expected));
  require((parcel.*read)() == expected);
  require(parcel.dataAvail() == left - (fits ? sizeof(expected) : 0));
}

void check_text(const android::Parcel& parcel) {
  const size_t left = parcel.dataAvail();
  size_t length = 77;  // every outcome has to set it
  const char16_t* text = parcel.readString16Inplace(&length);
  require(parcel.dataAvail() <= left);
  if (text == nullptr) {
    require(length == 0);
    return;
  }
  // Where the count says, with the terminator, and the position behind the padding.
  const uint8_t* begin = parcel.data() + parcel.dataSize() - left;
  const size_t bytes = ((length + 1) * sizeof(char16_t) + 3) & ~size_t{3};
  int32_t count;
  memcpy(&count, begin, sizeof(count));
  require(reinterpret_cast<const uint8_t*>(text) == begin + sizeof(count));
  require(length == static_cast<size_t>(count) && text[length] == 0);
  require(parcel.dataAvail() == left - sizeof(count) - bytes);
}

}  // namespace

// Input: a byte with the number of reads, a byte for each, the request.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t reads = std::min<size_t>(data[0], size - 1);
  android::Parcel parcel;
  require(parcel.setData(data + 1 + reads, size - 1 - reads) == 0);
  for (size_t i = 1; i <= reads; i++) {
    if (data[i] % 3 == 0) check_number(parcel, &android::Parcel::readInt32);
    if (data[i] % 3 == 1) check_number(parcel, &android::Parcel::readInt64);
    if (data[i] % 3 == 2) check_text(parcel);
  }
  return 0;
}
