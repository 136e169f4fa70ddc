#include "client/merge/merge.h"

#include <algorithm>

namespace {

// The order of lines: by epoch, then by time; of equal ones by their streams.
struct Place {
  bool operator<(const Place& other) const {
    return epoch < other.epoch || (epoch == other.epoch && time < other.time);
  }
  size_t epoch;  // how often the clock was set back before the line
  LogStamp time;
};
constexpr Place kEnded = {SIZE_MAX, kLastStamp};

// A stream at its next line.
struct Runner {
  LineStream* stream;
  size_t epoch = 0;
  bool promoted = false;  // to this epoch by promote(): its own step is still to come
  Place place = kEnded;   // of the line; kEnded for none
};

class Merger {
 public:
  Merger(StreamList* streams, LineSink* sink) : streams_(streams), sink_(sink) {}

  // False when the sink ended the list.
  bool run();

 private:
  void advance(Runner* at);
  void promote();

  StreamList* streams_;
  LineSink* sink_;
  std::vector<Runner> known_;   // of all streams, by their order
  std::vector<LogStamp> tops_;  // the latest time of each epoch that has ended
};

void Merger::advance(Runner* at) {
  at->place = kEnded;
  if (!at->stream->next()) return;
  const LogLine& line = at->stream->line();
  if (line.kind == LineKind::kStep) {
    if (!at->promoted) ++at->epoch;
    at->promoted = false;
    if (tops_.size() < at->epoch) tops_.push_back(line.until);
    tops_[at->epoch - 1] = std::max(tops_[at->epoch - 1], line.until);
  }
  at->place = {at->epoch, at->stream->key()};
}

// A line later than all lines of its epoch was written after the clock was set back.
void Merger::promote() {
  for (Runner& at : known_) {
    while (at.place.epoch < tops_.size() && at.place.time > tops_[at.epoch] + kStepMin) {
      at.place.epoch = ++at.epoch;
      at.promoted = true;
    }
  }
}

bool Merger::run() {
  for (size_t i = known_.size(); i < streams_->size(); i++) {
    known_.push_back({(*streams_)[i].get()});
  }
  for (Runner& at : known_) advance(&at);
  for (;;) {
    if (!tops_.empty()) promote();
    Runner* first = nullptr;
    Place earliest = kEnded;
    for (Runner& at : known_) {
      if (!(at.place < earliest)) continue;
      earliest = at.place;
      first = &at;
    }
    if (first == nullptr) return true;
    const LogLine& line = first->stream->line();
    do {
      if (!sink_->take(*first->stream, line)) return false;
      advance(first);
    } while (first->place < kEnded && !line.stamped);
  }
}

}  // namespace

void merge(StreamList* streams, LineSink* sink, const std::function<bool()>& more) {
  Merger all(streams, sink);
  while (all.run() && more && more()) {
  }
}
