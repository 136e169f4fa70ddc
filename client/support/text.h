// Text from elsewhere, made safe for a terminal.
#pragma once

#include <string>
#include <string_view>

// `bytes` with control characters but newlines, and bytes that are not UTF-8, as "\x1b".
std::string printable(std::string_view bytes);

// The same for one line: newlines are escaped too.
std::string one_line(std::string_view bytes);

// "02 00 ff"
std::string hex_text(std::string_view bytes);
