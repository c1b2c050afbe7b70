#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "common/Status.h"
#include "host/capture/av/H264Units.h"
#include "host/capture/av/Libav.h"
#include "host/capture/av/SilentPath.h"
#include "host/capture/av/StreamOutput.h"
#include "nimbo/stream/media.h"

namespace nimbo::capture::av {

/// What is shown and heard in place of a source that gives nothing: a still picture in the size and
/// the profile of the source, encoded once, and silence.
class Slate {
 public:
  /// Takes the picture out of a file; without it, it is a grey one that says NO SIGNAL. Fails where
  /// there is none.
  Status Load(const std::string& file);
  /// Gets ready to stand in for streams of these descriptions, either of which may be null. Fails
  /// when there are no such encoders.
  Status Begin(stream::IMedia* video, stream::IMedia* audio);

  bool HasPicture() const { return !_encoded[0].empty(); }
  bool HasSound() const { return _silent; }
  /// The picture as a key frame of that time.
  Held<stream::Packet> Picture(std::int64_t time);
  /// The next frame of silence, the first of which has the time `begin`; null when the next one is
  /// later than `end`.
  Held<stream::Packet> Sound(std::int64_t begin, std::int64_t end);

 private:
  /// What the encoded picture was made for.
  struct Form {
    int width = 0;
    int height = 0;
    const char* profile = "";
    bool operator==(const Form&) const = default;
  };

  static Form FormOf(stream::IMedia& video);
  Status Encode(const Form& form);
  /// Draws into a frame of the encoder's format.
  Status Draw(AVFrame& frame) const;

  FramePtr _loaded;  ///< what stands in the file; null: there is none
  Form _form;
  /// Twice, because key frames that follow each other have different numbers (ISO/IEC 14496-10,
  /// 7.4.3).
  std::array<Bytes, 2> _encoded;
  std::size_t _next = 0;
  StreamOutput _pictures;
  SilentPath _silence;
  bool _silent = false;
};

}  // namespace nimbo::capture::av
