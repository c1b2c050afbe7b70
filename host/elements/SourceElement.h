#pragma once

#include <atomic>
#include <memory>

#include "host/capture/CaptureSource.h"
#include "host/elements/FlowElement.h"

namespace nimbo::stream {

/// An element that brings the packets of a capture source into its pipeline, in a thread of its
/// own. Their time stamps count from when the first source of the process began. At the end of the
/// source it sends the message "end_of_stream" up, in front of it "source_lost" where that end came
/// before its time; and "source_away" and "source_back" where something
/// stands in for it meanwhile. Property "bit-rate": bits a second that a source is to encode its
/// pictures with, while it is open.
class NIMBO_API SourceElement : public ThreadElement {
 public:
  bool CanWait(const Port&) const override { return _source && _source->Unpaced(); }
  bool Behind(const Port&) const override { return _source && _source->Behind(); }
  bool Start() override;

  /// [any] Figures: what the outputs have delivered.
  unsigned int GetPackets() const { return _packets; }
  unsigned long long GetBytes() const { return _bytes; }

  static constexpr char BitRateText[] =
      "bits a second that its pictures are encoded with; 0: they are not encoded here";

  /// [control] Bits a second that its pictures are encoded with; 0: it is not open, or does not
  /// encode.
  long long GetBitRate() const { return _source ? _source->BitRate() : 0; }
  bool SetBitRate(const char* text);

 protected:
  using ThreadElement::ThreadElement;

  /// [delivering] Where the packet leaves the element; null: nowhere.
  virtual Port* OutputFor(const Packet& packet) const = 0;

  std::unique_ptr<capture::CaptureSource> _source;  ///< there from Open to Close at least

 private:
  void Run() override;
  void EndWaits() override;

  std::int64_t _zero = 0;  ///< of the source's time stamps
  std::atomic<unsigned int> _packets{0};
  std::atomic<unsigned long long> _bytes{0};
};

}  // namespace nimbo::stream
