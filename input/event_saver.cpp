#include "input/event_saver.h"

#include <android/log.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/beneath.h"
#include "base/text.h"

namespace {

// Room for the base name, a dot, any int32 and ".txt".
constexpr size_t kPathSize = 256 + 16;

using EventPath = char[kPathSize];

// Generation 0 is the live file.
void compose_path(EventPath& path, const char* base, int32_t generation) {
  if (generation == 0) {
    format_cut(path, "%s.txt", base);
  } else {
    format_cut(path, "%s.%d.txt", base, generation);
  }
}

}  // namespace

EventSaver::EventSaver(char* base) {
  copy_or_abort(mBaseName, base);
}

// Opens the file, counts and logs; counts and logs also when it cannot be opened.
int EventSaver::openLiveFile() {
  EventPath path;
  compose_path(path, mBaseName, 0);
  mFd = open_file_beneath(path, O_WRONLY | O_CREAT | O_APPEND, 0600);
  struct stat info;
  mOutByteCount =
      stat(path, &info) == 0 ? static_cast<int32_t>(std::min<off_t>(info.st_size, INT32_MAX)) : 0;
  __android_log_print(ANDROID_LOG_ERROR, "", "openLogFile:%s.mOutByteCount = %d\n", path,
                      mOutByteCount);
  return mFd;
}

int EventSaver::openLogFile() {
  return openLiveFile();
}

void EventSaver::flushToFile(const char* text) {
  const int32_t written = static_cast<int32_t>(write(mFd, text, strlen(text)));
  // On a disk that stays full the count must not underflow.
  if (written >= 0 || mOutByteCount > INT32_MIN) mOutByteCount += written;
  if (mOutByteCount >= 0 && mOutByteCount > mMaxSize) rotate();
}

int EventSaver::rotate() {
  closeLogFile();
  if (mCurrentGenerations < mMaxGenerations) mCurrentGenerations++;
  EventPath from;
  EventPath to;
  if (mCurrentGenerations == mMaxGenerations) {
    compose_path(to, mBaseName, mMaxGenerations - 1);
    unlink(to);
  }
  for (int32_t n = mCurrentGenerations - 1; n >= 0; n--) {
    compose_path(from, mBaseName, n);
    compose_path(to, mBaseName, n + 1);
    if (rename(from, to) != 0 && errno != ENOENT)
      __android_log_print(ANDROID_LOG_ERROR, "", "rename err while rotating log files");
  }
  if (openLiveFile() < 0) __android_log_print(ANDROID_LOG_ERROR, "", "couldn't open output file");
  mOutByteCount = 0;
  return mFd;
}

int EventSaver::closeLogFile() {
  const int result = close(mFd);
  mFd = -1;
  return result;
}
