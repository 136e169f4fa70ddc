// Helpers for the client's tests: hexadecimal, temporary directories, a client without a phone.
#pragma once

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "client/commands.h"
#include "tests/support/contains.h"

// "01 ff" as bytes; blanks are for the reader.
inline std::string from_hex(const std::string& text) {
  std::string bytes, digits;
  for (const char c : text) {
    if (c != ' ') digits += c;
  }
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

class TemporaryTree {
 public:
  TemporaryTree() {
    char path[] = "/tmp/ctl-test-XXXXXX";
    root_ = mkdtemp(path);
  }
  ~TemporaryTree() { std::filesystem::remove_all(root_); }
  const std::string& root() const { return root_; }
  // Creates parents, too.
  void put(const std::string& path, const std::string& content) const {
    const std::filesystem::path file = root_ + "/" + path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::app) << content;
  }

 private:
  std::string root_;
};

// An environment without a phone: properties from a map, everything else below a temporary root.
// `out` and `err` are the command's output.
struct BenchClient {
  TemporaryTree tree;
  std::map<std::string, std::string> properties;
  std::map<std::string, int64_t> free_bytes;  // by path of the phone; others: 1 GiB
  Environment env;
  std::string out, err;

  BenchClient() {
    env.dial = [] { return errno = ENOENT, -1; };
    env.property = [this](const char* key, const char* fallback) {
      const auto found = properties.find(key);
      return found == properties.end() || found->second.empty() ? fallback : found->second;
    };
    env.space = [this](const std::string& path, VolumeSpace* space) {
      space->available = 1 << 30;
      for (const auto& [volume, bytes] : free_bytes) {
        if (path.compare(0, env.root.size() + volume.size(), env.root + volume) == 0) {
          space->available = bytes;
        }
      }
      return space->available >= 0;
    };
    env.progress = false;
    env.root = tree.root();
    env.proc = tree.root() + "/proc";
    env.store = tree.root() + "/sdcard/zelkalog";
    env.working = tree.root() + "/data/misc/zelkalog";
    env.self_log = env.working + "/.logger/harrowmossd.txt";
  }

  int run(const std::vector<std::string>& words) {
    env.out = open_memstream(&texts[0], &sizes[0]);
    env.err = open_memstream(&texts[1], &sizes[1]);
    const int code = run_client(words, env);
    fclose(env.out);
    fclose(env.err);
    out = so_far();
    err.assign(texts[1], sizes[1]);
    free(texts[0]);
    free(texts[1]);
    return code;
  }

  // What the command that runs has flushed to standard output.
  std::string so_far() const { return {texts[0], sizes[0]}; }

 private:
  char* texts[2] = {};
  size_t sizes[2] = {};
};
