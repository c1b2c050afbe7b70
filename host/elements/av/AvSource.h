#pragma once

#include <string>

#include "host/elements/SourceElement.h"
#include "host/stream/TreeList.h"
#include "nimbo/base/attr_set.h"

namespace nimbo::stream {

/// The element "av-source": brings what LibavSource reads into a pipeline, with one output for each
/// stream asked for. Its properties are that source's options (those for libavformat as one text
/// "options"), and "packets" and "bytes", delivered so far.
class AvSource final : public SourceElement {
 public:
  AvSource();
  ~AvSource() override;

  bool Open() override;
  bool Close() override;

  /// The properties that are kept as texts and read when the source is opened.
  template <const auto& Key>
  bool SetText(const char* text) {
    return Keep(Key, text);
  }
  template <const auto& Key>
  std::string GetText() const {
    return Kept(Key);
  }
  /// False, with one line, once an output is linked.
  bool SetStreams(const char* text);

  /// [control] Registers the class.
  static void Register();

 private:
  bool Keep(const char* key, const char* text);
  std::string Kept(const char* key) const;
  /// The settings as options of the source. False, with one line, when those for libavformat cannot
  /// be read.
  bool MakeOptions(base::AttrSet& options) const;
  Port* OutputOf(const IMedia& media) const;
  Port* OutputFor(const Packet& packet) const override { return OutputOf(*packet.Media()); }

  base::AttrSet _settings GUARDED_BY(TreeMutex());
};

}  // namespace nimbo::stream
