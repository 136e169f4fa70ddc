#include "client/merge/merge.h"

#include <algorithm>
#include <tuple>

namespace {

// A stream at its next line.
struct Runner {
  LineStream* stream;
  size_t order;
  size_t epoch = 0;       // how often the clock had been set back before this line
  bool promoted = false;  // other streams told so, and not yet its own lines

  auto place() const { return std::make_tuple(epoch, stream->key(), order); }
};

class Merger {
 public:
  Merger(StreamList* streams, LineSink* sink) : streams_(streams), sink_(sink) {}

  // False when the sink wants no more.
  bool run();

 private:
  bool advance(Runner* at);
  void promote();

  StreamList* streams_;
  LineSink* sink_;
  std::vector<Runner> known_;    // of all streams, by their order
  std::vector<log_stamp> tops_;  // the latest time of each epoch that has ended
};

bool Merger::advance(Runner* at) {
  if (!at->stream->next()) return false;
  const LogLine& line = at->stream->line();
  if (line.kind != LineKind::kStep) return true;
  if (!at->promoted) ++at->epoch;
  at->promoted = false;
  if (tops_.size() < at->epoch) tops_.push_back(line.until);
  tops_[at->epoch - 1] = std::max(tops_[at->epoch - 1], line.until);
  return true;
}

// Later than anything before the clock was set back: it must have been written after that.
void Merger::promote() {
  for (Runner& at : known_) {
    while (at.epoch < tops_.size() && at.stream->key() > tops_[at.epoch] + kStepMin) {
      ++at.epoch;
      at.promoted = true;
    }
  }
}

bool Merger::run() {
  for (size_t i = known_.size(); i < streams_->size(); i++) {
    known_.push_back({(*streams_)[i].get(), i});
  }
  std::vector<Runner*> active;
  for (Runner& at : known_) {
    if (advance(&at)) active.push_back(&at);
  }
  const auto later = [](const Runner* a, const Runner* b) { return a->place() < b->place(); };
  while (!active.empty()) {
    promote();
    const auto first = std::min_element(active.begin(), active.end(), later);
    Runner* const at = *first;
    const Runner* second = nullptr;
    for (const Runner* other : active) {
      if (other != at && (second == nullptr || later(other, second))) second = other;
    }
    const auto limit = second == nullptr ? at->place() : second->place();
    const size_t steps = tops_.size();
    bool more;
    do {
      if (!sink_->take(*at->stream, at->stream->line())) return false;
      more = advance(at);
    } while (more && (!at->stream->line().stamped ||
                      (steps == tops_.size() && (second == nullptr || at->place() < limit))));
    if (!more) active.erase(first);
  }
  return true;
}

}  // namespace

void merge(StreamList* streams, LineSink* sink, const std::function<bool()>& more) {
  Merger all(streams, sink);
  while (all.run() && more && more()) {
  }
}
