// Reads protocol/vectors.json, the published examples of the control protocol.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

struct Vector {
  std::string name;
  std::vector<std::string> given;  // what must be so before
  int32_t code = 0;
  int64_t serial = 0;
  bool encodable = false;  // a client can write it: `arguments` holds
  std::vector<std::string> arguments;
  std::string request;  // hex with blanks
  std::string reply;    // hex with blanks and placeholders
  std::string then;     // "", "closed", "daemon ends"
  std::string meaning;
};

struct VectorFile {
  int protocol = 0;
  std::vector<Vector> vectors;
};

// The root of the source tree; the build tells it, because a compiler cache shortens __FILE__.
inline std::string source_root() {
  return SOURCE_ROOT;
}

// The strings in `json`, in order; "\\n" is a newline, another escaped character itself.
inline std::vector<std::string> json_strings(const std::string& json) {
  static const std::regex quoted("\"((?:\\\\.|[^\"\\\\])*)\"");
  std::vector<std::string> found;
  for (std::sregex_iterator it(json.begin(), json.end(), quoted), end; it != end; ++it) {
    const std::string newline = std::regex_replace((*it)[1].str(), std::regex("\\\\n"), "\n");
    found.push_back(std::regex_replace(newline, std::regex("\\\\(.)"), "$1"));
  }
  return found;
}

// Reads as much of JSON as the file uses: each object is flat and begins with its name, and a list
// of strings holds no brace.
inline VectorFile read_vectors() {
  std::ifstream stream(source_root() + "/protocol/vectors.json");
  EXPECT_TRUE(stream.good());
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  static const std::regex member(
      "\"([a-z]+)\": (\\[[^\\]{]*\\]|\"(?:\\\\.|[^\"\\\\])*\"|-?[0-9]+)");
  VectorFile file;
  for (std::sregex_iterator it(text.begin(), text.end(), member), end; it != end; ++it) {
    const std::string key = (*it)[1], value = (*it)[2];
    const std::vector<std::string> strings = json_strings(value);
    const std::string first = strings.empty() ? "" : strings[0];
    if (key == "protocol") file.protocol = atoi(value.c_str());
    if (key == "name") file.vectors.emplace_back();
    if (file.vectors.empty()) continue;
    Vector& vector = file.vectors.back();
    if (key == "name") vector.name = first;
    if (key == "given") vector.given = strings;
    if (key == "code") vector.code = static_cast<int32_t>(atoll(value.c_str()));
    if (key == "serial") vector.serial = atoll(first.c_str());
    if (key == "arguments") vector.encodable = true, vector.arguments = strings;
    if (key == "request") vector.request = first;
    if (key == "reply") vector.reply = first;
    if (key == "then") vector.then = first;
    if (key == "meaning") vector.meaning = first;
  }
  EXPECT_GT(file.vectors.size(), 80u);
  return file;
}
