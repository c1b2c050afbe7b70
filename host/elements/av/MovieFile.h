#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "common/Status.h"
#include "host/capture/av/Libav.h"
#include "nimbo/stream/packet.h"

namespace nimbo::stream {

/// A recording in fragmented MP4 (ISO/IEC 14496-12): a file that is cut off at any byte, because
/// the process was killed or the disk is full, plays up to its last whole second. One thread at a
/// time.
class MovieFile {
 public:
  MovieFile() = default;
  MovieFile(const MovieFile&) = delete;
  MovieFile& operator=(const MovieFile&) = delete;
  ~MovieFile();

  /// Creates the file, with a track for each media that is not null; times count from `start`.
  /// Fails when a media cannot be described or the file not be written.
  Status Open(const std::string& path, IMedia* video, IMedia* audio, std::int64_t start);
  bool IsOpen() const noexcept { return _format != nullptr; }
  /// Writes a packet of one of the media, or of one that differs from it in its times alone. Those
  /// of others are left out.
  Status Write(const Packet& packet);
  /// Writes what the end needs. Afterwards it is closed in any case.
  Status Close();

 private:
  struct CloseFile {
    void operator()(AVFormatContext* format) const;
  };

  Status AddTrack(IMedia& media, AVCodecID codec);

  std::unique_ptr<AVFormatContext, CloseFile> _format;
  capture::av::PacketPtr _packet;
  std::array<AVStream*, 2> _tracks = {};  ///< of pictures and of sound; null: there is none
  std::int64_t _start = 0;
};

/// True for a packet of pictures, and for one of sound, that can be recorded.
bool IsPicture(const IMedia& media);
bool IsSound(const IMedia& media);
/// True when both describe the same stream, whatever they tell of its times.
bool SameStream(IMedia& one, IMedia& other);

}  // namespace nimbo::stream
