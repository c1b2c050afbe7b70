#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/base/ConfigText.h"
#include "host/capture/Patience.h"
#include "host/capture/av/Encoding.h"
#include "nimbo/base/attr_set.h"

struct AVInputFormat;

namespace nimbo::capture::av {

/// What the client that gets the packets can carry.
enum class Carried : unsigned char {
  Classic,  ///< H.264 and AAC as its messages describe them
  Any,      ///< that where it is so, else everything
  Live,     ///< everything
};

/// What is to be read, and how.
struct InputOptions {
  std::string url;          ///< anything that libavformat opens; "-" is the standard input
  std::string format;       ///< libavformat's name of the format or device; empty: it finds out
  bool realtime = true;     ///< packets come when they are due, not as soon as they are asked for
  std::uint64_t plays = 1;  ///< 0: without end
  bool video = true;
  bool audio = true;
  Carried carried = Carried::Classic;
  bool enhanced = false;                       ///< carries what takes Enhanced RTMP, too
  bool silence = false;                        ///< where there is no sound
  bool keep = false;                           ///< opened again whenever it has ended
  bool keepIfPossible = false;                 ///< no line where it cannot be
  std::string slate;                           ///< file of what is shown meanwhile; may be empty
  bool transcode = false;                      ///< also what could be passed through
  std::int64_t patience = FirstFramePatience;  ///< how long (ns) an input may be silent at first
  Encoding encoding;                           ///< of what is transcoded
  std::vector<base::Attribute> rest;           ///< for libavformat

  /// The descriptor that `url` stands for; -1 when it is none.
  int Pipe() const;
  /// What `format` names, or the address alone tells; null: libavformat finds out.
  const AVInputFormat* Format() const;
  /// True for a camera, a microphone and the like.
  bool Device() const;
  /// True for what goes on whether it is read or not: a device or a stream from the network.
  bool Live() const;
  /// True for what comes from another machine.
  bool Network() const;
  /// `url` as it may be shown: without the password.
  std::string Shown() const;
  /// The end of a line about an address of no known kind: the kind that was meant, if any.
  std::string WhyUnknown() const;
  /// The end of a line about an option that libavformat has no use for either: the one of these
  /// that was meant, if any.
  static std::string WhyUseless(const std::string& key);
};

/// Reads the options of LibavSource; all others are meant for libavformat. False, with one line,
/// when a value is wrong or there is no url.
bool ReadInputOptions(const base::AttrSet& from, InputOptions& options);

}  // namespace nimbo::capture::av
