#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/Held.h"
#include "nimbo/base/api.h"
#include "nimbo/stream/media.h"
#include "nimbo/stream/packet.h"

namespace nimbo::capture {

/// Where encoded packets come from: an encoder, a device, a file. One object serves one consumer.
class NIMBO_API CaptureSource {
 public:
  virtual ~CaptureSource();

  /// [control] The codecs of its streams ("h264", "aac"), in their order, where they are known
  /// before it is opened: each gets an output that configurations can link. An empty text is any
  /// codec; no entries stand for one stream, whose codec the source's name may tell ("h264-0").
  virtual std::vector<std::string> Outputs() const { return {}; }
  /// [control] Opens the source. Afterwards its streams are known. False with one console line that
  /// says what is wrong; Close is called all the same.
  virtual bool Open() = 0;
  /// [control] The streams, one media each, in a fixed order; valid from Open to Close.
  virtual const std::vector<stream::IMedia*>& Streams() const = 0;
  /// [control] Begins to produce; the time stamps of all sources are those of CLOCK_MONOTONIC at
  /// which (or, for a file, as if) the picture or sound was taken.
  virtual bool Start() = 0;
  /// [control] The time stamp at which it began, once it was started; 0 where its time stamps begin
  /// there by themselves.
  virtual std::int64_t Began() const { return 0; }
  /// [capturing] The next packet. Its media is one of Streams(), or, where a stream changed its
  /// parameters, another one of that stream's codec. Waits until it is due. Null at the end of the
  /// source, after Abort, and on an error that was told in one console line.
  virtual Held<stream::Packet> Read() = 0;
  /// [any] Ends a Read that waits, and every later one until the next Start.
  virtual void Abort() = 0;
  /// [capturing] True when the end that Read told came before its time: the source failed, or is
  /// one that has no end.
  virtual bool Lost() const { return false; }
  /// [capturing] True while the source is gone and what Read gives stands in for it.
  virtual bool Away() const { return false; }
  /// [control] No Read is under way.
  virtual void Close() = 0;
  /// [any] True when the source can wait (a file or a pipe), so that a consumer that is slow holds
  /// it up instead of losing packets.
  virtual bool Unpaced() const { return false; }
  /// [capturing] True when the packet that Read gave last had been taken in before Start: such ones
  /// come all at once, and can wait.
  virtual bool Behind() const { return false; }
  /// [control] With how many bits a second its pictures are encoded here; 0: they are not.
  virtual std::int64_t BitRate() const { return 0; }
  /// [control] While it is open: encodes with so many from the next picture on.
  virtual void SetBitRate(std::int64_t) {}
};

}  // namespace nimbo::capture
