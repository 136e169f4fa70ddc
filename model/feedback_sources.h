// The directories that a feedback bundle is made of.
#pragma once

#include <stdint.h>

#include "model/masks.h"
#include "model/paths.h"

enum class SourceUse {
  kCopied,       // with all that is in it
  kNewestFatal,  // the newest entry with kFatalWord in its name is copied, the directory removed
  kNotInBundle,  // cleared, or moved elsewhere
};

struct FeedbackSource {
  int32_t selection;
  const char* directory;
  SourceUse use;
};

// clang-format off
constexpr FeedbackSource kFeedbackSources[] = {
    {kSelectBootfail,   kAnrDir,           SourceUse::kCopied},
    {kSelectGeneral,    kGeneralDir,       SourceUse::kCopied},
    {kSelectGeneral,    kAnrDir,           SourceUse::kNotInBundle},
    {kSelectTombstone,  kTombstoneDir,     SourceUse::kCopied},
    {kSelectAnr,        kAnrDir,           SourceUse::kCopied},
    {kSelectPstore,     kPstoreDir,        SourceUse::kCopied},
    {kSelectPower,      kPowerFeedbackDir, SourceUse::kCopied},
    {kSelectExceptions, kExceptionDir,     SourceUse::kNewestFatal},
    {kSelectBluetooth,  kBluetoothLogs,    SourceUse::kNotInBundle},
};
// clang-format on

constexpr char kFatalWord[] = "fatal";
constexpr char kDumpLines[] = "80000";  // of each log buffer, in the general selection
