#include "base/text.h"

size_t append_or_abort(char* dst, size_t size, const char* src) {
  const size_t have = strnlen(dst, size);
  const size_t more = strlen(src);
  if (have + more >= size) abort();
  memcpy(dst + have, src, more + 1);
  return have + more;
}
