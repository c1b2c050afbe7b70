#pragma once

#include <span>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "common/Held.h"
#include "nimbo/stream/media.h"
#include "nimbo/stream/packet.h"

namespace nimbo::stream {

/// A media description of the reference host. Filled by its producer before anyone else sees it.
class NIMBO_API Media final : public IMedia {
 public:
  explicit Media(std::string codec) : _codec(std::move(codec)) {}

  const char* Codec() const override { return _codec.c_str(); }
  bool GetWithType(const char* name, void* value, const std::type_info& requested,
                   const Accept& accept) override;
  bool SetStr(const char* key, const char* value) override;
  bool GetStr(const char* key, std::string& value) override;

  /// Adds or replaces an integer parameter, stored as `int` or `unsigned int`.
  void SetInt(const char* name, int value);
  void SetUnsigned(const char* name, unsigned int value);
  /// Adds or replaces bytes, stored as `unsigned char*` to a copy that lives as long as the media.
  void SetBytes(const char* name, const unsigned char* bytes, std::size_t size);
  /// Adds or replaces any other stored type; for tests of the readers.
  void SetTyped(const char* name, const std::type_info* type, long long value);

 private:
  struct Entry {
    std::uint32_t id;
    const std::type_info* type;
    bool integer;  ///< of any width, so that it can be read as long long
    long long number;
    std::vector<unsigned char> bytes;
  };
  Entry& Slot(const char* name);
  std::string _codec;
  std::vector<Entry> _entries;
};

/// The media of an H.264 stream: w, h, sps, isps, pps, ipps. `sps` and `pps` are NAL units without
/// start codes; the size is read from the SPS by the caller.
NIMBO_API Held<Media> NewH264Media(int width, int height, std::span<const unsigned char> sps,
                                   std::span<const unsigned char> pps);
/// The media of an AAC stream: adtslen, profile, channel, rate.
NIMBO_API Held<Media> NewAacMedia(int adtsLength, int profile, int channels, int rate);

/// [any] True for a codec of pictures, by its name in a media, and for a packet of one.
NIMBO_API bool IsVideo(const char* codec);
NIMBO_API bool IsVideo(const Packet& packet);

}  // namespace nimbo::stream
