// The log buffers of a bench phone as init keeps them; platform/linux/log_record.h has the format.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>

// A buffer that holds more is cut to its younger half.
constexpr off_t kLogBufferLimit = 16 << 20;

// Makes the empty buffers, writable for every process. False with errno.
bool create_log_buffers();

// Cuts every buffer that has grown past the limit. init calls it several times a second.
void cut_log_buffers();

// Bytes that a buffer holds now (holes not counted); 0 when there is none.
off_t log_buffer_bytes(const std::string& buffer);

// Takes the first `bytes` of what a buffer still holds out of it, or everything for -1. Offsets
// stay, so readers go on where they were. False with errno.
bool punch_log_buffer(const std::string& buffer, off_t bytes);

std::string log_buffer_path(const std::string& buffer);
