#pragma once

#include <cstddef>

#include "plugin/bytes/Bytes.h"

/// Pictures from the form of a byte stream into that of a file. Pure functions over memory that the
/// caller owns.
namespace nimbo::plugin {

/// The most bytes that WriteLengthPrefixed writes for a picture of `annexB` bytes: a start code may
/// be a byte shorter than a length, and something stands behind each.
constexpr std::size_t LengthPrefixedBound(std::size_t annexB) { return annexB + annexB / 4 + 1; }

/// Writes every NAL unit of a picture in Annex B form (ISO/IEC 14496-10 and 23008-2, annex B), each
/// behind its length in four bytes in place of its start code (ISO/IEC 14496-15, 4.3.3). Empty ones
/// are left out. Returns the number of bytes written, which LengthPrefixedBound bounds.
std::size_t WriteLengthPrefixed(unsigned char* out, Bytes annexB);

/// An AV1 temporal unit without the temporal delimiter in front, which files do not keep (AV1 ISO
/// media file format binding, 2.4).
Bytes WithoutTemporalDelimiter(Bytes temporalUnit);

}  // namespace nimbo::plugin
