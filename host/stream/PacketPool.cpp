#include "host/stream/PacketPool.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "sync/Mutex.h"

namespace nimbo::stream {

namespace {

/// Free packets are kept up to this many bytes, and up to this part of what is in use.
constexpr std::size_t SpareBytes = std::size_t{256} * 1024;
constexpr std::size_t SparePart = 8;
/// A free packet serves a request that needs at least this part of its room.
constexpr unsigned int WorstFit = 2;
constexpr unsigned int SmallestRoom = 512;
/// Room is rounded up by at most an eighth, so that packets of similar sizes serve each other.
constexpr unsigned int RoundingParts = 8;

unsigned int Rounded(unsigned int capacity) {
  if (capacity <= SmallestRoom) return SmallestRoom;
  unsigned int step = SmallestRoom;
  while (step <= capacity / 2) step *= 2;
  step /= RoundingParts;
  const unsigned int remainder = capacity % step;
  if (remainder == 0 || capacity > std::numeric_limits<unsigned int>::max() - step) return capacity;
  return capacity + step - remainder;
}

}  // namespace

/// What the packets of a pool share; lives until the pool and the last packet in use are gone.
struct PacketPool::Shared {
  sync::Mutex mutex;
  /// The one that was returned last stands at the end.
  std::vector<HostPacket*> free GUARDED_BY(mutex);
  std::size_t packets GUARDED_BY(mutex) = 0;
  std::size_t free_bytes GUARDED_BY(mutex) = 0;
  std::size_t used_bytes GUARDED_BY(mutex) = 0;
  bool closed GUARDED_BY(mutex) = false;
};

struct HostPacket::Storage {
  std::unique_ptr<unsigned char[]> bytes;
  unsigned int capacity;
  std::shared_ptr<PacketPool::Shared> pool;  ///< null while the packet is free
};

HostPacket::HostPacket() = default;
HostPacket::~HostPacket() = default;

unsigned char* HostPacket::Bytes() noexcept { return _storage->bytes.get(); }

void HostPacket::Describe(unsigned int size, bool key, std::int64_t timeStamp,
                          std::uint32_t sequence, IMedia* media) {
  if (media) media->Hold();
  if (_media) _media->Release();
  _media = media;
  _data = _storage->bytes.get();
  _size = size;
  _key = key;
  _time_stamp = timeStamp;
  _sequence = sequence;
}

void HostPacket::SetBack(std::int64_t zero) noexcept {
  _time_stamp = std::max<std::int64_t>(_time_stamp - zero, 0);
}

void HostPacket::Destroy() noexcept {
  if (_media) _media->Release();
  _media = nullptr;
  const std::shared_ptr<PacketPool::Shared> pool = std::move(_storage->pool);
  HostPacket* surplus = nullptr;
  {
    const sync::Lock lock(pool->mutex);
    pool->used_bytes -= _storage->capacity;
    if (pool->closed) {
      surplus = this;
    } else {
      pool->free.push_back(this);  // room was reserved when the packet was made
      pool->free_bytes += _storage->capacity;
      if (pool->free_bytes > pool->used_bytes / SparePart + SpareBytes) {
        // The one that lay unused longest has the size that is wanted least.
        surplus = pool->free.front();
        pool->free.erase(pool->free.begin());
        pool->free_bytes -= surplus->_storage->capacity;
      }
    }
    if (surplus) --pool->packets;
  }
  delete surplus;
}

PacketPool::PacketPool() : _shared(std::make_shared<Shared>()) {}

PacketPool::~PacketPool() {
  std::vector<HostPacket*> free;
  {
    const sync::Lock lock(_shared->mutex);
    _shared->closed = true;
    free.swap(_shared->free);
  }
  for (HostPacket* packet : free) delete packet;
}

Held<HostPacket> PacketPool::New(unsigned int capacity) {
  {
    const sync::Lock lock(_shared->mutex);
    auto& free = _shared->free;
    auto best = free.end();
    for (auto it = free.begin(); it != free.end(); ++it) {
      const unsigned int room = (*it)->_storage->capacity;
      if (room < capacity || (room > SmallestRoom && room / WorstFit > capacity)) continue;
      if (best == free.end() || room < (*best)->_storage->capacity) best = it;
    }
    if (best != free.end()) {
      HostPacket* packet = *best;
      free.erase(best);
      _shared->free_bytes -= packet->_storage->capacity;
      _shared->used_bytes += packet->_storage->capacity;
      packet->_storage->pool = _shared;
      packet->Hold();  // it was free with no reference
      return Held<HostPacket>(packet);
    }
  }
  const unsigned int room = Rounded(capacity);
  struct Deleter {
    void operator()(HostPacket* packet) const { delete packet; }
  };
  std::unique_ptr<HostPacket, Deleter> packet(new HostPacket);
  packet->_storage = std::make_unique<HostPacket::Storage>();
  // Not cleared: untouched pages of a large packet then cost no memory.
  packet->_storage->bytes.reset(new unsigned char[room]);
  packet->_storage->capacity = room;
  packet->_storage->pool = _shared;
  const sync::Lock lock(_shared->mutex);
  const std::size_t packets = ++_shared->packets;
  if (_shared->free.capacity() < packets) _shared->free.reserve(packets * 2);
  _shared->used_bytes += room;
  return Held<HostPacket>(packet.release());
}

}  // namespace nimbo::stream
