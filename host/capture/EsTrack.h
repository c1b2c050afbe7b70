#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "common/Held.h"
#include "host/capture/AccessUnits.h"
#include "host/capture/Adts.h"
#include "host/capture/ByteWindow.h"
#include "host/capture/Patience.h"
#include "host/capture/Sps.h"
#include "host/stream/PacketPool.h"
#include "nimbo/stream/media.h"

namespace nimbo::capture {

/// One elementary stream in a file or pipe: it finds the frames, numbers and times them. A frame's
/// time counts from the first frame of the file.
class NIMBO_API EsTrack {
 public:
  EsTrack(std::string path, const AbortEvent& abort, std::size_t readSize)
      : _path(std::move(path)), _window(abort, readSize) {}
  virtual ~EsTrack();
  EsTrack(const EsTrack&) = delete;
  EsTrack& operator=(const EsTrack&) = delete;

  /// [control] How long (ns) Begin waits for the first frame.
  void SetPatience(std::int64_t patience) { _patience = patience; }
  /// [control] Opens the file; a named pipe without waiting for its writer. A failure has been told
  /// in one console line, here and below.
  Status Open();
  /// [control] Reads up to the first frame, which tells the media, and looks at the first frames of
  /// a file, so that Warn comes early. Fails also when no frame comes in time.
  Status Begin();
  /// [control]
  void Close();
  /// What the frame that Peek found belongs to. It changes when the stream's parameters do.
  stream::IMedia* Media() const { return _media.get(); }

  /// [capturing] Finds the next frame, which stays the next one until it is taken.
  Result<Reading> Peek();
  /// Time in nanoseconds of the frame that Peek found, or, at the end, of the stream's end.
  std::int64_t Time() const { return TimeOf(_frames, _rate); }
  /// [capturing] The frame as a packet whose time stamp is Time() and `base`.
  Held<stream::Packet> Take(std::int64_t base);
  /// [capturing] Starts again at the first frame. The numbers of the packets go on. Fails for a
  /// pipe.
  Status Rewind();

 protected:
  struct Frame {
    ByteSpan bytes;
    bool key = false;
  };

  /// Finds the next frame, states its media with SetMedia, and drops the one before.
  virtual Result<Reading> Find(Frame& frame) = 0;
  /// The window was taken to the front of the file: of the same one, unless there is no media.
  virtual void Reset() = 0;

  ByteWindow& Window() { return _window; }
  void SetMedia(Held<stream::IMedia> media) { _media = std::move(media); }
  void SetRate(const FrameRate& rate) { _rate = rate; }
  /// Says in one yellow line what players will make of such a stream and what to do about it. Only
  /// the first call after Open does.
  void Warn(const std::string& what);

 private:
  /// Tells `why` in one console line.
  Status Refuse(const std::string& why) const;
  void Survey();

  std::string _path;
  bool _warned = false;
  ByteWindow _window;
  std::int64_t _patience = FirstFramePatience;
  stream::PacketPool _pool;
  Held<stream::IMedia> _media;
  FrameRate _rate{1, 1};
  std::uint64_t _frames = 0;    ///< taken since the front of the file
  std::uint32_t _sequence = 1;  ///< of the next packet; 0 would mean "none" to some consumers
  bool _found = false;
  Frame _frame;
};

/// H.264 in Annex B form. It is passed on as it is: what the wire format cannot describe is warned
/// of.
class NIMBO_API EsVideoTrack final : public EsTrack {
 public:
  /// `rate` is {0, 1} when the stream is to tell it.
  EsVideoTrack(std::string path, const AbortEvent& abort, const FrameRate& rate)
      : EsTrack(std::move(path), abort, ReadSize), _asked(rate), _reader(Window()) {}

 private:
  static constexpr std::size_t ReadSize = std::size_t{64} * 1024;

  Result<Reading> Find(Frame& frame) override;
  void Reset() override;
  Status TakeParameters(const AccessUnit& unit);
  void Check(const AccessUnit& unit);

  FrameRate _asked;
  AccessUnitReader _reader;
  std::vector<unsigned char> _sps;
  std::vector<unsigned char> _pps;
};

/// AAC in ADTS frames. It is passed on as it is: what the wire format cannot describe is warned of.
class NIMBO_API EsAudioTrack final : public EsTrack {
 public:
  EsAudioTrack(std::string path, const AbortEvent& abort)
      : EsTrack(std::move(path), abort, ReadSize) {}

 private:
  static constexpr std::size_t ReadSize = std::size_t{8} * 1024;  ///< half a second at 128 kb/s

  Result<Reading> Find(Frame& frame) override;
  void Reset() override;
  void TakeParameters(const AdtsHeader& header);
  Result<Reading> Need(std::size_t size);

  std::size_t _used = 0;  ///< bytes of the frame that was given last
  AdtsHeader _header;     ///< of the frame before; length 0 when there was none
};

}  // namespace nimbo::capture
