#include "host/publication/RateControl.h"

#include <algorithm>

namespace nimbo::publication {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// What is looked back at: longer than key frames take.
constexpr milliseconds Window{1000};
/// What a link holds that has just changed shows in its last part.
constexpr milliseconds Newest{500};
/// A decision shows in what is acknowledged after this.
constexpr milliseconds Effect{1000};
constexpr milliseconds LongestPatience{20'000};

// ms
constexpr double Free = 100;    ///< all the time: more may go
constexpr double Queued = 200;  ///< all the time: more than bursts explain
constexpr double Late = 500;    ///< at any time

// Parts of what the link holds.
constexpr double Safe = 0.85;
constexpr double Beyond = 1.15;
constexpr double LeastWhileDraining = 0.3;

/// In which what is queued shall be gone.
constexpr double DrainSeconds = 2;
constexpr double Step = 1.06;
constexpr double CarefulStep = 1.03;  ///< where the link held no more last
/// A source that uses less of its rate tells nothing about more.
constexpr double Used = 0.6;

constexpr double BitsPerByte = 8;

}  // namespace

void RateControl::Add(Time time, const LinkFigures& link) {
  // A count that goes back is another link's.
  if (!_samples.empty() && link.acknowledged < _samples.back().acknowledged) _samples.clear();
  if (link.roundTrip > 0) {
    _round_trip = _round_trip > 0 ? std::min(_round_trip, link.roundTrip) : link.roundTrip;
  }
  _samples.push_back({time, link.acknowledged, std::max(0.0, link.lag - _round_trip)});
  while (_samples.size() > 2 && time - _samples[1].time >= Window) _samples.pop_front();
  if (time - _samples.front().time < Window / 2) return;
  if (Congested()) {
    if (time >= _yield_next) Yield(time, static_cast<double>(link.unsent) * BitsPerByte);
  } else if (LeastDelay() < Queued) {
    if (_draining) {
      _draining = false;
      Want(Safe * _held);
      _raise_next = time + _patience;
    } else if (time >= _raise_next) {
      Raise(time);
    }
  }
}

bool RateControl::Congested() const {
  return LeastDelay() > Queued || _samples.back().delay > Late;
}

double RateControl::LeastDelay() const {
  return std::ranges::min_element(_samples, {}, &Sample::delay)->delay;
}

double RateControl::Acknowledged() const {
  const Sample& last = _samples.back();
  const Sample& first = *std::ranges::find_if(
      _samples, [&](const Sample& sample) { return last.time - sample.time <= Newest; });
  return static_cast<double>(last.acknowledged - first.acknowledged) * BitsPerByte /
         std::chrono::duration<double>(last.time - first.time).count();
}

void RateControl::Yield(Time now, double unsent) {
  // More than it held last was too much: the next try may wait.
  if (!_draining && _held > 0) _patience = std::min(_patience * 3 / 2, LongestPatience);
  _draining = true;
  // A link that stands still has not become another one.
  if (Acknowledged() > 0) _held = Acknowledged();
  const double queued = std::max(unsent, _samples.back().delay / 1000 * _held);
  Want(std::max(LeastWhileDraining * _held, Safe * _held - queued / DrainSeconds));
  _yield_next = now + Effect;
}

void RateControl::Raise(Time now) {
  if (_rate >= _most || LeastDelay() > Free || Acknowledged() < Used * _rate) return;
  if (_held > 0 && _rate > Beyond * _held) {
    _held = 0;
    _patience = FirstPatience;
  }
  Want(_rate * (_held > 0 ? CarefulStep : Step));
  _raise_next = now + Effect;
}

void RateControl::Want(double rate) { _rate = std::clamp(rate, _least, _most); }

}  // namespace nimbo::publication
