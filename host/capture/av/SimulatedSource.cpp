#include "host/capture/av/SimulatedSource.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "host/base/Console.h"
#include "host/base/Framework.h"
#include "host/base/Nearest.h"
#include "nimbo/base/names.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace nimbo::capture::av {

namespace {

/// A capture that is later than this is left out.
constexpr std::int64_t LatestCapture = 200 * NsPerMillisecond;

/// Options of the consumer, which arrive here too.
constexpr const char* ConsumerOptions[] = {"plenckeys"};

bool ParseInt(const char* text, int& value) {
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, value);
  return error == std::errc() && stop == end;
}

}  // namespace

bool SimulatedSource::Open() {
  _streams.clear();
  if (!OpenEncoder()) return false;
  _streams.push_back(_output.Media());
  return true;
}

bool SimulatedSource::Start() {
  _output.Clear();
  _start = MonotonicNow();
  _next = 0;
  Begin(_start);
  _abort.Clear();
  return true;
}

Held<stream::Packet> SimulatedSource::Read() {
  while (_output.Empty()) {
    if (!NextPeriod()) return nullptr;
  }
  return _abort.IsSet() ? nullptr : _output.Take(0);
}

void SimulatedSource::Close() {
  _streams.clear();
  _output.Clear();
  CloseEncoder();
}

/// In 128 bits inside, because a product overflows 64 bits within days.
std::int64_t SimulatedSource::TimeOf(std::int64_t index) const {
  return _start + av_rescale(index, NsPerSecond * _pace.per, _pace.number);
}

bool SimulatedSource::NextPeriod() {
  if (!_abort.WaitUntil(TimeOf(_next + _delay))) return false;
  const std::int64_t now = MonotonicNow();
  if (now - TimeOf(_next + _delay) > LatestCapture) {
    _next =
        av_rescale_rnd(now - _start, _pace.number, NsPerSecond * _pace.per, AV_ROUND_DOWN) - _delay;
  }
  const std::int64_t index = _next++;
  return Produce(index, TimeOf(index));
}

bool SimulatedSource::ReadOptions(const base::AttrSet& options, const std::vector<Option>& table,
                                  const std::vector<const char*>& others) {
  for (const auto& [key, text] : Framework::Entries(options)) {
    const auto is = [id = base::Hash(key.c_str())](const char* known) {
      return base::Hash(known) == id;
    };
    const auto option = std::find_if(table.begin(), table.end(),
                                     [&](const Option& known) { return is(known.key); });
    if (option != table.end()) {
      const Range& range = option->range;
      int value = 0;
      if (!ParseInt(text.c_str(), value) || value < range.low || value > range.high) {
        return nimbo::Refuse(_name, ": option ", key, "=", text, " must be a number from ",
                             range.low, " to ", range.high);
      }
      *option->value = value;
    } else if (std::none_of(others.begin(), others.end(), is) &&
               std::none_of(std::begin(ConsumerOptions), std::end(ConsumerOptions), is)) {
      std::vector<std::string> names(others.begin(), others.end());
      for (const Option& known : table) names.emplace_back(known.key);
      Explain(_name, ": option ", key, " has no effect here", base::Suggest(key, names));
    }
  }
  return true;
}

bool SimulatedSource::Refuse(const std::string& text) const {
  return nimbo::Refuse(_name, ": ", text);
}

}  // namespace nimbo::capture::av
