// The rotating text file behind the touch recorder: a live file and at most three older
// generations of 10 MiB each. Its messages go to the Android log alone, without a tag.
#pragma once

#include <stdint.h>

class EventSaver {
 public:
  // `base` is the path without suffix: the live file is "<base>.txt", generation n "<base>.n.txt".
  // A base of 256 bytes or more ends the process with abort(). Opens nothing.
  explicit EventSaver(char* base);
  EventSaver(const EventSaver&) = delete;
  EventSaver& operator=(const EventSaver&) = delete;

  // Opens the live file for appending, mode 0600, and starts the count at its size. Returns the
  // descriptor, which this object owns, or a negative value; every later write then fails silently.
  int openLogFile();

  // Appends `text` with one write(2) and rotates when the file has passed the maximum size. A write
  // that fails takes 1 from the count and is not reported.
  void flushToFile(const char* text);

  // Shifts every generation up by one and opens a new live file. Returns its descriptor, negative
  // when it could not be opened. Generation 3 is removed first: generation 4 is never made.
  int rotate();

  // Returns close(2)'s result.
  int closeLogFile();

 private:
  int openLiveFile();

  int32_t mMaxSize = 0xA00000;      // bytes; a file is rotated above it
  char mBaseName[256];              // without suffix
  int32_t mFd = -1;                 // the live file; -1: not open
  int32_t mOutByteCount = 0;        // bytes in the live file
  int32_t mMaxGenerations = 4;      // rotation limit
  int32_t mCurrentGenerations = 0;  // rotations so far, at most the limit
};
