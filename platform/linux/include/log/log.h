// The platform's log macros, which <binder/Parcel.h> brings along, for plain Linux. The daemon uses
// none of them; they are here so that a name of ours that clashes with one fails to compile.
#pragma once

#include <android/log.h>
#include <stdlib.h>

#ifndef LOG_NDEBUG
#define LOG_NDEBUG 1
#endif
#ifndef LOG_TAG
#define LOG_TAG nullptr
#endif

#define android_printLog(prio, tag, ...) __android_log_print(prio, tag, __VA_ARGS__)
#define LOG_PRI(priority, tag, ...) android_printLog(priority, tag, __VA_ARGS__)
#define ALOG(priority, tag, ...) LOG_PRI(ANDROID_##priority, tag, __VA_ARGS__)

#define ALOGV(...) ALOG(LOG_VERBOSE, LOG_TAG, __VA_ARGS__)
#define ALOGD(...) ALOG(LOG_DEBUG, LOG_TAG, __VA_ARGS__)
#define ALOGI(...) ALOG(LOG_INFO, LOG_TAG, __VA_ARGS__)
#define ALOGW(...) ALOG(LOG_WARN, LOG_TAG, __VA_ARGS__)
#define ALOGE(...) ALOG(LOG_ERROR, LOG_TAG, __VA_ARGS__)
#define ALOGV_IF(cond, ...) ((cond) ? (void)ALOGV(__VA_ARGS__) : (void)0)
#define ALOGD_IF(cond, ...) ((cond) ? (void)ALOGD(__VA_ARGS__) : (void)0)
#define ALOGI_IF(cond, ...) ((cond) ? (void)ALOGI(__VA_ARGS__) : (void)0)
#define ALOGW_IF(cond, ...) ((cond) ? (void)ALOGW(__VA_ARGS__) : (void)0)
#define ALOGE_IF(cond, ...) ((cond) ? (void)ALOGE(__VA_ARGS__) : (void)0)

// The system and radio buffers have the same set.
#define SLOGV ALOGV
#define SLOGD ALOGD
#define SLOGI ALOGI
#define SLOGW ALOGW
#define SLOGE ALOGE
#define RLOGV ALOGV
#define RLOGD ALOGD
#define RLOGI ALOGI
#define RLOGW ALOGW
#define RLOGE ALOGE

#define LOG_ALWAYS_FATAL_IF(cond, ...) ((cond) ? abort() : (void)0)
#define LOG_ALWAYS_FATAL(...) abort()
#define LOG_FATAL_IF(cond, ...) ((void)0)
#define LOG_FATAL(...) ((void)0)
#define ALOG_ASSERT(cond, ...) LOG_FATAL_IF(!(cond), __VA_ARGS__)
