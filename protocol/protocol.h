// The control protocol's shared names and limits: the daemon checks its own tables against these,
// and the client and the tests build and read messages from them. Only constants; the wire format
// is described in docs/control-protocol.md.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "model/masks.h"

// The name of the reserved local socket (/dev/socket/harrowmossd).
constexpr const char* kControlSocketName = "harrowmossd";

constexpr int32_t kProtocolVersion = 1;  // what request 1 answers

// Request payloads are 1..1023 bytes; the daemon hangs up on any other length.
constexpr size_t kPayloadMax = 1023;

// The daemon dumps every message as text ("%x-" a byte) into 1024 bytes, terminator included, and
// aborts when that overflows. A client must never send a payload whose text is longer than this.
constexpr size_t kDumpTextMax = 1023;

// What a request carries behind its code and serial.
enum class RequestArguments {
  kNone,
  kMask,         // int32
  kPath,         // String16
  kMaskPathInt,  // int32, String16, int32 (read and not used)
};

// What a reply carries behind the echoed code and serial. Any reply may end before it: then there
// is no result, which is not an error.
enum class ReplyFields {
  kNone,
  kInt,   // int32
  kText,  // int32 length without terminator, CString
};

struct RequestName {
  int32_t code;
  const char* command;  // the client's sub-command
  const char* handler;  // the daemon's function
  RequestArguments arguments;
  ReplyFields reply;
};

// clang-format off

// Every request, by code.
inline constexpr RequestName kRequestNames[] = {
    { 1, "version",         "do_get_version",            RequestArguments::kNone,        ReplyFields::kInt},
    { 2, "start",           "do_start_debug_log",        RequestArguments::kMask,        ReplyFields::kInt},
    { 3, "stop",            "do_stop_debug_log",         RequestArguments::kNone,        ReplyFields::kInt},
    { 4, "feedback-start",  "do_start_feedback_log",     RequestArguments::kNone,        ReplyFields::kNone},
    { 5, "feedback-stop",   "do_stop_feedback_log",      RequestArguments::kNone,        ReplyFields::kNone},
    { 6, "feedback",        "do_get_feedback_log",       RequestArguments::kMaskPathInt, ReplyFields::kInt},
    { 7, "build-state",     "do_get_build_state",        RequestArguments::kNone,        ReplyFields::kInt},
    { 8, "no-service",      "do_no_service_catch_modem", RequestArguments::kNone,        ReplyFields::kInt},
    { 9, "log-dir",         "do_get_pstore_dir",         RequestArguments::kNone,        ReplyFields::kText},
    {10, "system-size",     "do_get_system_mount_size",  RequestArguments::kNone,        ReplyFields::kText},
    {11, "build-id",        "do_get_build_id",           RequestArguments::kNone,        ReplyFields::kText},
    {12, "delete-logs",     "do_del_log",                RequestArguments::kNone,        ReplyFields::kNone},
    {13, "move-traces",     "do_move_trace",             RequestArguments::kNone,        ReplyFields::kNone},
    {14, "copy-traces",     "do_copy_sys_trace_log",     RequestArguments::kPath,        ReplyFields::kInt},
    {15, "copy-kernel-log", "do_copy_kernel_pmic",       RequestArguments::kPath,        ReplyFields::kInt},
    {16, "boot-reason",     "do_get_boot_reason",        RequestArguments::kNone,        ReplyFields::kText},
};

// clang-format on

constexpr bool requests_are_in_code_order() {
  int32_t code = 0;
  for (const RequestName& row : kRequestNames) {
    if (row.code != ++code) return false;
  }
  return true;
}
static_assert(requests_are_in_code_order(), "rows are found by code - 1");
