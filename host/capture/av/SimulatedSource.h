#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/capture/AbortEvent.h"
#include "host/capture/CaptureSource.h"
#include "host/capture/av/StreamOutput.h"
#include "nimbo/base/attr_set.h"

namespace nimbo::capture::av {

/// What a simulated camera and a simulated microphone share: they produce at a fixed rate in real
/// time. Who is late does not catch up: what was not captured in time is left out.
class SimulatedSource : public CaptureSource {
 public:
  explicit SimulatedSource(std::string name) : _name(std::move(name)) {}

  /// [control] Reads the options. False with one line when one is wrong.
  virtual bool Configure(const base::AttrSet& options) = 0;

  bool Open() final;
  const std::vector<stream::IMedia*>& Streams() const final { return _streams; }
  bool Start() final;
  std::int64_t Began() const final { return _start; }
  Held<stream::Packet> Read() final;
  void Abort() final { _abort.Set(); }
  void Close() final;

 protected:
  /// Periods per second, as a fraction.
  struct Pace {
    int number = 1;
    int per = 1;
  };
  struct Range {
    int low;
    int high;
  };
  /// One of the source's own options.
  struct Option {
    const char* key;
    int* value;
    Range range;
  };

  /// [control] Opens the encoder and sets the output's media.
  virtual bool OpenEncoder() = 0;
  /// [control] Production begins at `start` on CLOCK_MONOTONIC.
  virtual void Begin(std::int64_t start) = 0;
  /// [capturing] Encodes what was captured in period `index`, which begins at `time`.
  virtual bool Produce(std::int64_t index, std::int64_t time) = 0;
  /// [control] Frees the encoder.
  virtual void CloseEncoder() = 0;

  /// Reads the options of the table. False, with one line, when a value is not a number in its
  /// range. Options in none of the tables get a line and have no effect.
  bool ReadOptions(const base::AttrSet& options, const std::vector<Option>& table,
                   const std::vector<const char*>& others);
  /// Prints a red line about this source. Always false.
  bool Refuse(const std::string& text) const;

  const std::string& Name() const noexcept { return _name; }
  void SetPace(Pace pace) { _pace = pace; }
  /// How many periods pass before what was captured in one can be handed over.
  void SetDelay(int periods) { _delay = periods; }

  StreamOutput _output;

 private:
  std::int64_t TimeOf(std::int64_t index) const;
  bool NextPeriod();

  std::string _name;
  Pace _pace;
  int _delay = 0;
  AbortEvent _abort;
  std::vector<stream::IMedia*> _streams;
  std::int64_t _start = 0;
  std::int64_t _next = 0;  ///< index of the next period
};

/// The maker of such a source for the registry. Null, with one line, when an option is wrong.
template <class Source>
std::unique_ptr<CaptureSource> MakeSimulated(const std::string& name,
                                             const base::AttrSet& options) {
  auto source = std::make_unique<Source>(name);
  if (!source->Configure(options)) return nullptr;
  return source;
}

}  // namespace nimbo::capture::av
