// Reads protocol/vectors.json, the published examples of the control protocol.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

struct Vector {
  std::string name;
  std::vector<std::string> given;  // preconditions
  int32_t code = 0;
  int64_t serial = 0;
  bool encodable = false;  // a client can write it from `arguments`
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

// The root of the source tree, defined by the build: a compiler cache may shorten __FILE__.
inline std::string source_root() {
  return SOURCE_ROOT;
}

inline VectorFile read_vectors() {
  std::ifstream stream(source_root() + "/protocol/vectors.json");
  EXPECT_TRUE(stream.good());
  const nlohmann::json root = nlohmann::json::parse(stream);
  VectorFile file;
  file.protocol = root.at("protocol");
  for (const nlohmann::json& row : root.at("vectors")) {
    const std::vector<std::string> none;
    file.vectors.push_back({row.at("name"), row.value("given", none), row.value("code", 0),
                            std::stoll(row.value("serial", "0")), row.contains("arguments"),
                            row.value("arguments", none), row.at("request"), row.value("reply", ""),
                            row.value("then", ""), row.at("meaning")});
  }
  EXPECT_GT(file.vectors.size(), 80u);
  return file;
}
