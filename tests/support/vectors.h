// Reads protocol/vectors.json, the published examples of the control protocol.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <map>
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

// The root of the source tree.
inline std::string source_root() {
  return SOURCE_ROOT;
}

// As much of JSON as the file uses: objects, arrays, strings without \u, whole numbers.
struct JsonValue {
  std::string text;  // of a string or number
  std::vector<JsonValue> items;
  std::map<std::string, JsonValue> members;
};

class JsonReader {
 public:
  explicit JsonReader(std::string text) : text_(std::move(text)) {}
  JsonValue read() {
    JsonValue value;
    const char first = next();
    if (first == '{') {
      while (peek() != '}') {
        const std::string key = string(next());
        expect(':');
        value.members[key] = read();
        if (peek() == ',') next();
        if (failed_) return value;
      }
      next();
    } else if (first == '[') {
      while (peek() != ']') {
        value.items.push_back(read());
        if (peek() == ',') next();
        if (failed_) return value;
      }
      next();
    } else if (first == '"') {
      value.text = string(first);
    } else {
      for (value.text = first; strchr("0123456789", text_[at_]) != nullptr;) {
        value.text += text_[at_++];
      }
    }
    return value;
  }

 private:
  char peek() {
    while (at_ < text_.size() && strchr(" \n", text_[at_]) != nullptr) ++at_;
    if (at_ < text_.size()) return text_[at_];
    if (!failed_) ADD_FAILURE() << "the file ends too early";
    failed_ = true;
    return '\0';
  }
  char next() {
    const char c = peek();
    ++at_;
    return c;
  }
  void expect(char wanted) {
    if (next() == wanted) return;
    if (!failed_) ADD_FAILURE() << "no '" << wanted << "' before: " << text_.substr(at_, 60);
    failed_ = true;
  }
  std::string string(char quote) {
    std::string value;
    if (quote != '"') expect('"');
    for (; at_ < text_.size() && text_[at_] != '"'; ++at_) {
      if (text_[at_] == '\\') ++at_;
      value += text_[at_ - 1] == '\\' && text_[at_] == 'n' ? '\n' : text_[at_];
    }
    ++at_;
    return value;
  }

  std::string text_;
  size_t at_ = 0;
  bool failed_ = false;
};

inline VectorFile read_vectors() {
  std::ifstream stream(source_root() + "/protocol/vectors.json");
  EXPECT_TRUE(stream.good());
  JsonValue root = JsonReader({std::istreambuf_iterator<char>(stream), {}}).read();
  VectorFile file;
  file.protocol = atoi(root.members["protocol"].text.c_str());
  for (JsonValue& row : root.members["vectors"].items) {
    Vector vector;
    const auto texts = [&](const char* key) {
      std::vector<std::string> list;
      for (const JsonValue& item : row.members[key].items) list.push_back(item.text);
      return list;
    };
    vector.encodable = row.members.count("arguments") != 0;
    vector.name = row.members["name"].text;
    vector.given = texts("given");
    vector.code = static_cast<int32_t>(atoll(row.members["code"].text.c_str()));
    vector.serial = atoll(row.members["serial"].text.c_str());
    vector.arguments = texts("arguments");
    vector.request = row.members["request"].text;
    vector.reply = row.members["reply"].text;
    vector.then = row.members["then"].text;
    vector.meaning = row.members["meaning"].text;
    file.vectors.push_back(vector);
  }
  return file;
}
