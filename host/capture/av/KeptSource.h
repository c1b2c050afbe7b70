#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/capture/CaptureSource.h"
#include "host/capture/av/KeptTimes.h"
#include "host/capture/av/Slate.h"
#include "host/stream/Backoff.h"
#include "nimbo/base/thread.h"
#include "sync/Mutex.h"

namespace nimbo::capture::av {

/// A live source that may go and come back: it is read in a thread of its own and opened again,
/// after pauses of 1 s to 15 s, as often as it ends. Where no picture comes for a moment, a slate
/// and silence stand in for it, until the next key frame: twice a second, so that nobody behind it
/// takes the stream for dead. Times never fall, and packets are numbered without gaps. The
/// descriptions of its streams may change with every return; those that are known from the
/// beginning say so ("varies"), for whoever cannot carry that.
class KeptSource final : public CaptureSource {
 public:
  using Maker = std::function<std::unique_ptr<CaptureSource>()>;

  /// `make` makes one more source like `first`; `shown` is what it is called in lines; `slate` is
  /// the file of the still picture, which may be empty.
  KeptSource(std::unique_ptr<CaptureSource> first, Maker make, std::string shown,
             std::string slate);
  ~KeptSource() override;

  std::vector<std::string> Outputs() const override { return _outputs; }
  /// The first time, the source has to be there.
  bool Open() override EXCLUDES(_mutex);
  const std::vector<stream::IMedia*>& Streams() const override { return _streams; }
  bool Start() override EXCLUDES(_mutex);
  std::int64_t Began() const override { return _began; }
  Held<stream::Packet> Read() override EXCLUDES(_mutex);
  void Abort() override EXCLUDES(_mutex);
  void Close() override EXCLUDES(_mutex);
  bool Behind() const override { return _behind; }
  bool Away() const override { return _away; }
  std::int64_t BitRate() const override EXCLUDES(_mutex);
  void SetBitRate(std::int64_t bitRate) override EXCLUDES(_mutex);

 private:
  /// A packet of the source on its way to the reader.
  struct Item {
    Held<stream::Packet> packet;
    bool behind = false;
    unsigned int round = 0;  ///< how often the source had been opened by then
  };

  // In the thread that reads the source.
  void Keep() EXCLUDES(_mutex);
  void Forward() EXCLUDES(_mutex);
  void Leave() EXCLUDES(_mutex);
  bool Pause() EXCLUDES(_mutex);
  void OpenAgain() EXCLUDES(_mutex);
  /// True when the source still has the stream that leads: that of pictures, if there is one.
  bool Fits(const CaptureSource& source) const;

  // In the thread that calls Read.
  /// Waits for a packet. False: it is time for the slate, or playing ends.
  bool Take(Item& item) EXCLUDES(_mutex);
  bool Stopped() const EXCLUDES(_mutex);
  /// The packet as it goes on; null when it is not wanted.
  Held<stream::Packet> Pass(Item& item);
  void StandIn();
  void Return(const stream::Packet& first);
  /// Gives a packet its time, its number, and its way out.
  Held<stream::Packet> Stamp(Held<stream::Packet> packet, std::int64_t time);
  bool Leads(const stream::Packet& packet) const;

  const Maker _make;
  const std::string _shown;
  const std::string _slate_file;
  std::vector<std::string> _outputs;
  std::vector<Held<stream::IMedia>> _media;  ///< keeps what _streams shows
  std::vector<stream::IMedia*> _streams;
  std::int64_t _began = 0;
  base::Thread _thread;

  mutable sync::Mutex _mutex;  ///< the locks of the source's own waits are taken under it
  sync::Condition _changed;
  std::unique_ptr<CaptureSource> _source GUARDED_BY(_mutex);  ///< replaced by the thread alone
  bool _stands GUARDED_BY(_mutex) = false;                    ///< it is open and started
  bool _stopped GUARDED_BY(_mutex) = true;
  std::int64_t _bit_rate GUARDED_BY(_mutex) = 0;  ///< the last that was known
  bool _adapted GUARDED_BY(_mutex) = false;       ///< somebody asked for it
  std::deque<Item> _queue GUARDED_BY(_mutex);
  unsigned int _round GUARDED_BY(_mutex) = 0;
  stream::Backoff _pauses;

  // Of the thread that calls Read.
  KeptTimes _times;
  Slate _slate;
  std::deque<Held<stream::Packet>> _ready;
  std::array<Held<stream::IMedia>, KindCount> _described;  ///< as the last packet of the kind says
  std::array<std::uint32_t, KindCount> _numbers{};
  unsigned int _joined = 0;  ///< the round of the packets that go on
  bool _joining = false;     ///< nothing goes on up to a key frame
  bool _away = false;        ///< the slate stands in
  bool _behind = false;
  std::int64_t _since = 0;     ///< when that began
  std::int64_t _due = 0;       ///< when the slate is due
  std::int64_t _interval = 0;  ///< from one packet of the leading stream to the next, usually
  std::int64_t _previous = 0;  ///< own time of the last of them
};

}  // namespace nimbo::capture::av
