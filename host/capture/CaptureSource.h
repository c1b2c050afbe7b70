#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nimbo/base/attr_set.h"
#include "nimbo/stream/media.h"
#include "nimbo/stream/packet.h"

namespace nimbo::capture {

/// Where encoded packets come from: an encoder, a device, a file. One object serves one consumer.
class NIMBO_API CaptureSource {
 public:
  virtual ~CaptureSource();

  /// [control] The codecs of its streams ("h264", "aac"), in their order, where they are known
  /// before it is opened: each gets an output that configurations can link. An empty text is any
  /// codec; no entries stand for one stream, whose codec the source's name may tell ("h264-0").
  virtual std::vector<std::string> Outputs() const { return {}; }
  /// [control] Opens the source. Afterwards its streams are known. False with one console line that
  /// says what is wrong; Close is called all the same.
  virtual bool Open() = 0;
  /// [control] The streams, one media each, in a fixed order; valid from Open to Close.
  virtual const std::vector<stream::IMedia*>& Streams() const = 0;
  /// [control] Begins to produce; the time stamps of all sources are those of CLOCK_MONOTONIC at
  /// which (or, for a file, as if) the picture or sound was taken.
  virtual bool Start() = 0;
  /// [capturing] The next packet; the caller gets its reference. Its media is one of Streams(), or,
  /// where a stream changed its parameters, another one of that stream's codec. Waits until it is
  /// due. Null at the end of the source, after Abort, and on an error that was told in one console
  /// line.
  virtual stream::Packet* Read() = 0;
  /// [any] Ends a Read that waits, and every later one until the next Start.
  virtual void Abort() = 0;
  /// [control] No Read is under way.
  virtual void Close() = 0;
  /// [any] True when the source can wait (a file or a pipe), so that a consumer that is slow holds
  /// it up instead of losing packets.
  virtual bool Unpaced() const { return false; }
};

/// The capture sources by name. A name that ends in "-" stands for any number behind it ("h264-"
/// serves "h264-0"). [control]
class NIMBO_API CaptureRegistry {
 public:
  using Maker = std::function<std::unique_ptr<CaptureSource>(const std::string& name,
                                                             const base::AttrSet& options)>;
  static CaptureRegistry& Globle();
  /// A source of the same name is replaced. `description` says what it is and its options.
  void Add(std::string name, Maker maker, const char* description = "");
  /// Makes the source `name`; loads the libav* module when the name is not known otherwise. Null
  /// with one console line that names the known ones.
  std::unique_ptr<CaptureSource> Make(const std::string& name, const base::AttrSet& options);

  /// A source as it is shown: "h264-N" for "h264-".
  struct Shown {
    std::string name;
    std::string description;
  };
  std::vector<Shown> Sources() const;

 private:
  struct Entry {
    std::string name;
    Maker maker;
    std::string description;
  };
  const Maker* Find(const std::string& name) const;
  /// The end of a line about a name that no source has.
  std::string Suggest(const std::string& name) const;
  std::vector<Entry> _entries;
};

/// Loads the module libnimbo-av.so, which registers its capture sources and classes, once. False
/// with one console line when it cannot be loaded. [control]
NIMBO_API bool LoadAvModule();

}  // namespace nimbo::capture
