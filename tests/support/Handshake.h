#pragma once

#include <optional>

#include "tests/support/Bytes.h"

namespace nimbo::test {

/// The server's side of the plain RTMP handshake (RTMP 1.0, section 5.2).
constexpr std::size_t HandshakeSize = 1536;
constexpr unsigned char RtmpVersion = 3;

/// S0, S1 and S2 in answer to C0 and C1; nothing when these ask for another version.
inline std::optional<Bytes> AnswerHandshake(const Bytes& c0c1) {
  if (c0c1.size() != 1 + HandshakeSize || c0c1[0] != RtmpVersion) return std::nullopt;
  Bytes answer{RtmpVersion};
  AppendBig(answer, 0, 8);  // S1: own time, version zero, then "random" bytes
  while (answer.size() < 1 + HandshakeSize) {
    answer.push_back(static_cast<unsigned char>(answer.size() * 31));
  }
  answer.insert(answer.end(), c0c1.begin() + 1, c0c1.end());  // S2 echoes C1
  return answer;
}

}  // namespace nimbo::test
