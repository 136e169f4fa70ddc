// Queries of the file system. Only is_directory(), make_directories() and resolved() follow a
// symbolic link at the end of a path.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

// Names in `directory` without "." and "..", sorted; empty when it cannot be read.
std::vector<std::string> list_directory(const std::string& directory);

// Calls `visit` with the path below `root` ("mobile/x.txt") and the size in bytes of every regular
// file. What cannot be read is skipped.
void walk_files(const std::string& root,
                const std::function<void(const std::string& path, int64_t bytes)>& visit);

// At most `limit` bytes from the start of `path`; "" when it cannot be read.
std::string read_start(const std::string& path, size_t limit);

bool is_directory(const std::string& path);
bool is_link(const std::string& path);

// `path` with every link resolved; "" when it does not exist.
std::string resolved(const std::string& path);

// `path` without slashes at its end; "/" stays.
std::string without_slashes(std::string path);

// Makes `path` and its missing parents with mode 0777. False with errno set on failure.
bool make_directories(const std::string& path);

// "12.3 MiB", for people.
std::string size_text(int64_t bytes);
