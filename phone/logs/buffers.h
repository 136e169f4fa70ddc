// The log buffers of a bench phone, as files; platform/linux/log_record.h has the format.
#pragma once

#include <sys/types.h>

#include <string>

// A larger buffer is cut to half of this.
constexpr off_t kLogBufferLimit = 16 << 20;

// Makes the empty buffers, writable for every process. False with errno.
bool create_log_buffers();

// Cuts every buffer that has grown past the limit. init calls it several times a second.
void cut_log_buffers();

// Bytes in a buffer (holes not counted); 0 when there is none.
off_t log_buffer_bytes(const std::string& buffer);

// Punches a hole over the first `bytes` of a buffer's remaining content; -1: over all of it.
// Offsets stay, so readers continue where they were. False with errno.
bool punch_log_buffer(const std::string& buffer, off_t bytes);

std::string log_buffer_path(const std::string& buffer);
