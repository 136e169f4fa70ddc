#include "model/destination.h"

#include <algorithm>

namespace {

// Takes the next component off `rest`, "" at the end. Repeated slashes do not count.
std::string_view next_component(std::string_view* rest) {
  rest->remove_prefix(std::min(rest->find_first_not_of('/'), rest->size()));
  const std::string_view component = rest->substr(0, rest->find('/'));
  rest->remove_prefix(component.size());
  return component;
}

bool is_same_or_below(std::string_view path, std::string_view directory) {
  for (;;) {
    const std::string_view component = next_component(&directory);
    if (component.empty()) return true;
    if (next_component(&path) != component) return false;
  }
}

bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

bool is_inside_source(std::string_view path, const DestinationFacts& facts) {
  for (const std::string_view source : facts.sources) {
    if (is_same_or_below(path, source)) return true;
  }
  for (const FileIdentity& above : facts.destination_ids) {
    for (const FileIdentity& source : facts.source_ids) {
      if (above == source) return true;
    }
  }
  return false;
}

}  // namespace

const char* judge_destination(std::string_view path, const DestinationFacts& facts) {
  if (path.empty() || path[0] != '/') return "not absolute";
  int components = 0;
  bool has_dots = false;
  std::string_view rest = path;
  for (std::string_view name; !(name = next_component(&rest)).empty(); components++) {
    has_dots = has_dots || name == "." || name == "..";
  }
  if (components < 2) return "too high in the tree";
  if (has_dots) return "has a . or .. component";
  if (std::any_of(path.begin(), path.end(), is_control)) return "has a control byte";
  if (is_inside_source(path, facts)) return "inside of what is copied";
  if (facts.is_trap) return "a link or no directory is in the way";
  return facts.fits ? nullptr : "too long";
}
