#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "host/capture/CaptureSource.h"
#include "host/elements/FlowElement.h"
#include "host/stream/TreeList.h"
#include "nimbo/base/attr_set.h"

namespace nimbo::capture::av {

/// The element "av-source": brings what LibavSource reads into a pipeline, with one output for each
/// stream asked for. Its properties are that source's options (those for libavformat as one text
/// "options"), and "packets" and "bytes", delivered so far. At the end of the source it sends the
/// message "end_of_stream" up.
class AvSource final : public stream::ThreadElement {
 public:
  AvSource();
  ~AvSource() override;

  bool CanWait(const stream::Port& output) const override;
  bool Open() override;
  bool Close() override;
  bool Start() override;

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
  unsigned int GetPackets() const { return _packets; }
  unsigned long long GetBytes() const { return _bytes; }

  /// [control] Registers the class.
  static void Register();

 private:
  bool Keep(const char* key, const char* text);
  std::string Kept(const char* key) const;
  /// The settings as options of the source. False, with one line, when those for libavformat cannot
  /// be read.
  bool MakeOptions(base::AttrSet& options) const;
  stream::Port* OutputFor(const stream::IMedia* media) const;
  void Run() override;
  void EndWaits() override { _source->Abort(); }

  base::AttrSet _settings GUARDED_BY(stream::TreeMutex());
  std::unique_ptr<CaptureSource> _source;
  std::atomic<unsigned int> _packets{0};
  std::atomic<unsigned long long> _bytes{0};
};

}  // namespace nimbo::capture::av
