// The daemon's logging convention: every message goes to the Android log (tag "harrowmossd") and to
// the self log. Each source file names its column once:
//
//   constexpr char kLogSource[] = "utils";  // "harrowmoss" daemon/; "commands" debuglog/,
//                                           // catchers/, feedback/ and storage/store.cpp;
//                                           // "utils" else
//
// A log line takes no lock and no memory, so it may be written anywhere: in a signal handler, in a
// child forked beside a logging thread, in any thread.
#pragma once

#include <android/log.h>

// Writes one message to both logs; `priority` as in <android/log.h>. errno is kept.
void log_message(int priority, const char* source, const char* function, int line, const char* fmt,
                 ...) __attribute__((format(printf, 5, 6)));

// The same under the name of another function: an interface states the name, or several share it.
#define LOG_AS(priority, function, ...) \
  log_message(priority, kLogSource, function, __LINE__, __VA_ARGS__)
#define LOGD_AS(function, ...) LOG_AS(ANDROID_LOG_DEBUG, function, __VA_ARGS__)
#define LOGI_AS(function, ...) LOG_AS(ANDROID_LOG_INFO, function, __VA_ARGS__)
#define LOGW_AS(function, ...) LOG_AS(ANDROID_LOG_WARN, function, __VA_ARGS__)
#define LOGE_AS(function, ...) LOG_AS(ANDROID_LOG_ERROR, function, __VA_ARGS__)

#define LOGV(...) LOG_AS(ANDROID_LOG_VERBOSE, __func__, __VA_ARGS__)
#define LOGD(...) LOGD_AS(__func__, __VA_ARGS__)
#define LOGI(...) LOGI_AS(__func__, __VA_ARGS__)
#define LOGW(...) LOGW_AS(__func__, __VA_ARGS__)
#define LOGE(...) LOGE_AS(__func__, __VA_ARGS__)

// Android log only, for what cannot or must not go through the self log.
constexpr char kLogTag[] = "harrowmossd";
#define LOG_ANDROID(priority, ...) __android_log_print(priority, kLogTag, __VA_ARGS__)
