#include "host/capture/AccessUnits.h"

#include <cstring>

namespace nimbo::capture {

namespace {

constexpr std::size_t StartCodeSize = 3;  ///< 00 00 01
constexpr unsigned int NalTypeMask = 0x1F;
constexpr unsigned char FirstMacroblockIsZero = 0x80;  ///< ue(v) 0 is a single 1 bit

// ISO/IEC 14496-10, table 7-1.
enum NalType : unsigned int {
  Slice = 1,
  PartitionA = 2,
  PartitionC = 4,
  IdrSlice = 5,
  Sei = 6,
  Sps = 7,
  Pps = 8,
  Delimiter = 9,
  FirstReservedInFront = 14,
  LastReservedInFront = 18,
};

bool StandsInFront(unsigned int type) {
  return (type >= Sei && type <= Delimiter) ||
         (type >= FirstReservedInFront && type <= LastReservedInFront);
}

bool IsSlice(unsigned int type) { return type >= Slice && type <= IdrSlice; }

bool IsPartition(unsigned int type) { return type >= PartitionA && type <= PartitionC; }

/// Whether the first byte behind the header of this type tells where the slice starts.
bool TellsMacroblock(unsigned int type) {
  return type == Slice || type == PartitionA || type == IdrSlice;
}

/// Whether the first byte of a header tells that a slice, which starts its picture, is a B slice.
bool IsBidirectional(unsigned char first) {
  // first_mb_in_slice is the bit 1, and slice_type 010 or 00111: 1 or 6 in table 7-6.
  return (first & 0xF0) == 0xA0 || (first & 0xFC) == 0x9C;
}

}  // namespace

void AccessUnitReader::Reset() {
  _used = _scan = 0;
  _in_unit = _has_slice = _open = false;
  _unit = AccessUnit();
  _nal = _sps = _pps = NalUnit();
}

AccessUnitReader::Result AccessUnitReader::Next(AccessUnit& unit, std::string& error) {
  if (_used != 0) {
    _window.Use(_used);
    Reset();
  }
  bool at_end = false;
  for (;;) {
    std::size_t position = 0;
    while (FindStartCode(at_end, position)) {
      if (!Take(position)) {
        Fill(unit, position);
        return Result::Unit;
      }
    }
    if (at_end) {
      if (!_has_slice) return Result::End;
      EndNal(_window.Size());
      Fill(unit, _window.Size());
      return Result::Unit;
    }
    if (!_in_unit && _scan != 0) {
      _window.Use(_scan);  // no start code yet: nothing of it is needed
      _scan = 0;
    }
    switch (_window.More()) {
      case ByteWindow::Result::More:
        break;
      case ByteWindow::Result::End:
        at_end = true;
        break;
      case ByteWindow::Result::Aborted:
        return Result::Aborted;
      case ByteWindow::Result::TooLarge:
        error = "the picture that starts at byte " + std::to_string(_window.Offset()) +
                " does not end within " + std::to_string(_window.Size()) + " bytes";
        return Result::Failed;
      case ByteWindow::Result::Failed:
        error = _window.Error() + " at byte " + std::to_string(_window.Offset() + _window.Size());
        return Result::Failed;
    }
  }
}

/// Finds the next start code with the two bytes behind it that Take looks at (at the end of the
/// stream one will do), and moves the search to it or to where it has to go on.
bool AccessUnitReader::FindStartCode(bool atEnd, std::size_t& position) {
  const unsigned char* data = _window.Data();
  const std::size_t size = _window.Size();
  const std::size_t behind = atEnd ? 1 : 2;
  while (_scan + StartCodeSize + behind <= size) {
    const std::size_t last = size - behind;
    const void* found = std::memchr(data + _scan + 2, 1, last - (_scan + 2));
    if (!found) {
      _scan = last - 2;
      return false;
    }
    const auto one = static_cast<std::size_t>(static_cast<const unsigned char*>(found) - data);
    if (data[one - 1] == 0 && data[one - 2] == 0) {
      position = one - 2;
      _scan = position;
      return true;
    }
    _scan = one - 1;
  }
  return false;
}

/// Takes the NAL unit behind a start code into the unit. False when it starts the next one, which
/// then starts at the zero byte in front of the start code, if there is one.
bool AccessUnitReader::Take(std::size_t startCode) {
  const unsigned char* data = _window.Data();
  if (!_in_unit) {
    // The unit starts with the start code, and with the zero byte in front of it.
    const std::size_t zero = startCode != 0 && data[startCode - 1] == 0 ? 1 : 0;
    _window.Use(startCode - zero);
    startCode = zero;
    data = _window.Data();
    _in_unit = true;
  }
  const std::size_t header = startCode + StartCodeSize;
  const unsigned int type = data[header] & NalTypeMask;
  const bool tells = TellsMacroblock(type) && header + 1 < _window.Size();
  const bool starts_picture = tells && (data[header + 1] & FirstMacroblockIsZero) != 0;
  EndNal(startCode);
  if (_has_slice && (StandsInFront(type) || starts_picture)) return false;
  _has_slice = _has_slice || IsSlice(type);
  _unit.key = _unit.key || type == IdrSlice;
  _unit.slices += IsSlice(type) ? 1 : 0;
  _unit.partitioned = _unit.partitioned || IsPartition(type);
  if (starts_picture) _unit.bidirectional = IsBidirectional(data[header + 1]);
  _nal = {type, header, header};
  _open = true;
  _scan = header;
  return true;
}

void AccessUnitReader::EndNal(std::size_t position) {
  if (!_open) return;
  const unsigned char* data = _window.Data();
  // A NAL unit does not end in a zero byte: such bytes belong to the byte stream (B.1).
  while (position > _nal.start && data[position - 1] == 0) --position;
  _nal.end = position;
  _open = false;
  if (_nal.type == Sps) Keep(_sps);
  if (_nal.type == Pps) Keep(_pps);
}

void AccessUnitReader::Keep(NalUnit& set) {
  const unsigned char* data = _window.Data();
  const std::size_t size = _nal.end - _nal.start;
  const bool same =
      set.end - set.start == size && std::memcmp(data + set.start, data + _nal.start, size) == 0;
  if (set.end != 0 && !same) _unit.severalSets = true;
  set = _nal;
}

void AccessUnitReader::Fill(AccessUnit& unit, std::size_t end) {
  const unsigned char* data = _window.Data();
  unit = _unit;
  unit.data = data;
  unit.size = _nal.end;
  unit.offset = _window.Offset();
  unit.sps = _sps.end != 0 ? data + _sps.start : nullptr;
  unit.spsSize = _sps.end - _sps.start;
  unit.pps = _pps.end != 0 ? data + _pps.start : nullptr;
  unit.ppsSize = _pps.end - _pps.start;
  // The zero byte in front of a start code belongs to it.
  _used = end < _window.Size() && data[end - 1] == 0 ? end - 1 : end;
}

}  // namespace nimbo::capture
