#include "model/destination.h"

#include <algorithm>

namespace {

using Components = std::vector<std::string_view>;

// Without the empty ones: repeated slashes do not count.
Components split_components(std::string_view path) {
  Components components;
  for (size_t start = 0; start < path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    if (end > start) components.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  return components;
}

bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

bool is_inside(const Components& path, const DestinationFacts& facts) {
  const auto holds_path = [&](std::string_view source) {
    const Components dir = split_components(source);
    return dir.size() <= path.size() && std::equal(dir.begin(), dir.end(), path.begin());
  };
  const auto& sources = facts.sources;
  const auto& above = facts.destination_ids;
  const auto& ids = facts.source_ids;
  return std::any_of(sources.begin(), sources.end(), holds_path) ||
         std::find_first_of(above.begin(), above.end(), ids.begin(), ids.end()) != above.end();
}

}  // namespace

const char* judge_destination(std::string_view path, const DestinationFacts& facts) {
  if (path.empty() || path[0] != '/') return "not absolute";
  const Components components = split_components(path);
  if (components.size() < 2) return "too high in the tree";
  for (const std::string_view name : components) {
    if (name == "." || name == "..") return "has a . or .. component";
  }
  if (std::any_of(path.begin(), path.end(), is_control)) return "has a control byte";
  if (is_inside(components, facts)) return "inside of what is copied";
  if (facts.is_trap) return "a link or no directory is in the way";
  return facts.fits ? nullptr : "too long";
}
