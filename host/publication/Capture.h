#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/Status.h"
#include "host/base/ConfigText.h"
#include "nimbo/stream/application.h"
#include "nimbo/stream/element.h"
#include "nimbo/stream/packet_ring.h"

namespace nimbo::publication {

/// What a pusher is to publish: a whole configuration text, files, or an encoder of the camera.
struct CaptureOptions {
  std::string encoder;
  std::string configuration;
  std::vector<std::string> inputs;
};

/// The selection that is published when nothing is asked for.
extern const char* const DefaultEncoder;

/// The configuration text of the capture application. Fails for an input that cannot be read or
/// named in such a text.
Result<std::string> CaptureConfiguration(const CaptureOptions& options);

/// The configuration text of a pipeline that captures from `source`, a capture source with its
/// options; `behind` are the elements that follow, each with a "+" in front.
std::string CapturePipeline(const std::string& source, const std::string& behind = "+RingSink");

/// The capture source that reads `inputs`, as the text behind "pv:": one file, device or address
/// for libavformat ("-" is the standard input), or elementary streams, one of video and one of
/// audio. Fails for an input that cannot be read or named in such a text.
Result<std::string> InputConnection(const std::vector<std::string>& inputs);

/// The same for any input that libavformat opens, with options of the capture source "av".
Result<std::string> LibavConnection(const std::string& input,
                                    const std::vector<base::Attribute>& options);

/// True for a file that the host reads itself.
bool IsElementary(const std::string& input);
/// True for an input that can be read once only: the standard input or another pipe.
bool IsPipe(const std::string& input);

/// What a pusher has taken out of the rings of its capture application.
struct CaptureCount {
  std::uint64_t videoPackets = 0;
  std::uint64_t audioPackets = 0;
  std::uint64_t lost = 0;  ///< packets that it was too late for
};

/// Looks into the capture application of a pusher, which is the newest application that there is.
/// It must not be used any more once that pusher was closed. [control]
class CaptureView {
 public:
  CaptureView();
  CaptureView(const CaptureView&) = delete;
  CaptureView& operator=(const CaptureView&) = delete;
  ~CaptureView();

  /// Looks for the application; false when there is none.
  bool Find();
  CaptureCount Count() const;
  /// True when every source has come to its end.
  bool Ended() const;
  /// True when a source has ended before its time.
  bool Lost() const noexcept { return _lost; }
  /// True when all packets were taken out of the queues and rings.
  bool Empty() const;

 private:
  std::vector<stream::PacketRing*> Rings() const;
  std::vector<stream::IElement*> Elements() const;

  stream::Application* _application = nullptr;
  int _listener;
  std::ptrdiff_t _ended = 0;  ///< sources that have come to their end
  bool _lost = false;
};

}  // namespace nimbo::publication
