#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/capture/ByteWindow.h"
#include "host/capture/H264.h"

namespace nimbo::capture {

/// One coded picture with what stands in front of it, in Annex B form. All views are valid until
/// the reader is called again.
struct AccessUnit {
  ByteSpan bytes;
  std::uint64_t offset = 0;  ///< in the file, in bytes
  bool key = false;          ///< an IDR picture
  /// The last parameter sets in it, without start codes; empty where there are none.
  ByteSpan sps;
  ByteSpan pps;
  // What is in the way of describing it on the wire.
  int slices = 0;
  bool partitioned = false;    ///< its slices are cut into data partitions
  bool bidirectional = false;  ///< it is a B picture
  bool severalSets = false;    ///< different SPS, or different PPS
};

/// Cuts an H.264 byte stream (ISO/IEC 14496-10, Annex B) into access units after 7.4.1.2.3: a unit
/// ends in front of an access unit delimiter, parameter set or SEI behind a slice, and in front of
/// a slice that starts a picture. It is therefore known when the next one starts.
class NIMBO_API AccessUnitReader {
 public:
  explicit AccessUnitReader(ByteWindow& window) : _window(window) {}

  /// The next unit. A failure says what is wrong, and at which byte. Bytes in front of the first
  /// start code are passed over; parameter sets behind the last picture are dropped.
  Result<Reading> Next(AccessUnit& unit);
  /// Forgets what it knows, after the window was taken back to the front.
  void Reset();

 private:
  /// Where a NAL unit lies in the window.
  struct Place {
    NalType type{};
    std::size_t start = 0;  ///< of its header, behind the start code
    std::size_t end = 0;
  };

  bool FindNext(bool atEnd, std::size_t& position);
  bool Take(std::size_t startCode);
  void EndNal(std::size_t position);
  void Keep(Place& set);
  ByteSpan At(const Place& place) const;
  void Fill(AccessUnit& unit, std::size_t end);

  ByteWindow& _window;
  std::size_t _used = 0;  ///< bytes of the unit that was given last
  std::size_t _scan = 0;  ///< where the search for the next start code goes on
  bool _in_unit = false;  ///< a start code was found
  bool _has_slice = false;
  bool _open = false;  ///< _nal has started and not ended
  AccessUnit _unit;    ///< what is known of it so far, without views
  Place _nal, _sps, _pps;
};

}  // namespace nimbo::capture
