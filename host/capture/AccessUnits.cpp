#include "host/capture/AccessUnits.h"

#include <algorithm>

namespace nimbo::capture {

namespace {

/// What in front of a picture belongs to it: behind a slice it starts the next unit.
bool StandsInFront(NalType type) {
  return (type >= NalType::Sei && type <= NalType::Delimiter) ||
         (type >= NalType::FirstReservedInFront && type <= NalType::LastReservedInFront);
}

}  // namespace

void AccessUnitReader::Reset() {
  _used = _scan = 0;
  _in_unit = _has_slice = _open = false;
  _unit = AccessUnit();
  _nal = _sps = _pps = Place();
}

Result<Reading> AccessUnitReader::Next(AccessUnit& unit) {
  if (_used != 0) {
    _window.Use(_used);
    Reset();
  }
  bool at_end = false;
  for (;;) {
    std::size_t position = 0;
    while (FindNext(at_end, position)) {
      if (!Take(position)) {
        Fill(unit, position);
        return Reading::Ready;
      }
    }
    if (at_end) {
      if (!_has_slice) return Reading::End;
      EndNal(_window.Size());
      Fill(unit, _window.Size());
      return Reading::Ready;
    }
    if (!_in_unit && _scan != 0) {
      _window.Use(_scan);  // no start code yet: nothing of it is needed
      _scan = 0;
    }
    if (_window.Full()) {
      return Status::Failed("the picture that starts at byte " + std::to_string(_window.Offset()) +
                            " does not end within " + std::to_string(_window.Size()) + " bytes");
    }
    auto more = _window.More();
    if (!more || *more == Reading::Aborted) return more;
    at_end = *more == Reading::End;
  }
}

/// Finds the next start code with the two bytes behind it that Take looks at (at the end of the
/// stream one will do), and moves the search to it or to where it has to go on.
bool AccessUnitReader::FindNext(bool atEnd, std::size_t& position) {
  const ByteSpan bytes = _window.Bytes();
  const std::size_t behind = atEnd ? 1 : 2;
  if (_scan + StartCodeSize + behind > bytes.size()) return false;
  const ByteSpan searched = bytes.first(bytes.size() - behind);
  position = FindStartCode(searched, _scan);
  const bool found = position < searched.size();
  _scan = found ? position : searched.size() - (StartCodeSize - 1);
  return found;
}

/// Takes the NAL unit behind a start code into the unit. False when it starts the next one, which
/// then starts at the zero byte in front of the start code, if there is one.
bool AccessUnitReader::Take(std::size_t startCode) {
  if (!_in_unit) {
    // The unit starts with the start code, and with the zero byte in front of it.
    const std::size_t zero = startCode != 0 && _window.Bytes()[startCode - 1] == 0 ? 1 : 0;
    _window.Use(startCode - zero);
    startCode = zero;
    _in_unit = true;
  }
  const std::size_t header = startCode + StartCodeSize;
  const NalUnit nal{_window.Bytes().subspan(header)};
  const bool starts_picture = nal.StartsPicture();
  const bool has_picture = nal.IsSlice() || nal.IsPartition();
  EndNal(startCode);
  if (_has_slice && (StandsInFront(nal.Type()) || starts_picture)) return false;
  _has_slice = _has_slice || has_picture;
  _unit.key = _unit.key || nal.Type() == NalType::IdrSlice;
  _unit.slices += has_picture ? 1 : 0;
  _unit.partitioned = _unit.partitioned || nal.IsPartition();
  // The slice type of a slice that starts its picture stands in the byte behind the header.
  if (starts_picture) _unit.bidirectional = nal.IsBidirectional();
  _nal = {nal.Type(), header, header};
  _open = true;
  _scan = header;
  return true;
}

void AccessUnitReader::EndNal(std::size_t position) {
  if (!_open) return;
  _nal.end = position;
  _nal.end = _nal.start + WithoutTrailingZeros(At(_nal)).size();
  _open = false;
  if (_nal.type == NalType::Sps) Keep(_sps);
  if (_nal.type == NalType::Pps) Keep(_pps);
}

ByteSpan AccessUnitReader::At(const Place& place) const {
  return _window.Bytes().subspan(place.start, place.end - place.start);
}

void AccessUnitReader::Keep(Place& set) {
  if (set.end != 0 && !std::ranges::equal(At(set), At(_nal))) _unit.severalSets = true;
  set = _nal;
}

void AccessUnitReader::Fill(AccessUnit& unit, std::size_t end) {
  const ByteSpan bytes = _window.Bytes();
  unit = _unit;
  unit.bytes = bytes.first(_nal.end);
  unit.offset = _window.Offset();
  unit.sps = At(_sps);
  unit.pps = At(_pps);
  // The zero byte in front of a start code belongs to it.
  _used = end < bytes.size() && bytes[end - 1] == 0 ? end - 1 : end;
}

}  // namespace nimbo::capture
