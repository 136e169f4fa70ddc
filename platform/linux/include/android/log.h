// The system log: the platform's own names and signatures, for plain Linux.
#pragma once

typedef enum android_LogPriority {
  ANDROID_LOG_UNKNOWN = 0,
  ANDROID_LOG_DEFAULT,
  ANDROID_LOG_VERBOSE,
  ANDROID_LOG_DEBUG,
  ANDROID_LOG_INFO,
  ANDROID_LOG_WARN,
  ANDROID_LOG_ERROR,
  ANDROID_LOG_FATAL,
  ANDROID_LOG_SILENT,
} android_LogPriority;

extern "C" {

// Appends one record to the "main" log buffer; a null tag reads as "". Messages are cut at 1023
// bytes, as the platform does. Returns the bytes written, or a negative errno value. One writev,
// no lock, no allocation. Any process, any thread, signal handlers included.
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((__format__(printf, 3, 4)));

}  // extern "C"
