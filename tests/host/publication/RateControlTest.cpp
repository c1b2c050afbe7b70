#include "host/publication/RateControl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <utility>

namespace nimbo::publication {
namespace {

using std::chrono::milliseconds;

/// A camera whose encoder follows what is wanted, in front of a link with a queue, on a clock of
/// their own. What the link holds changes, and differs a little from moment to moment.
class Simulation {
 public:
  Simulation(unsigned int seed, double most) : _random(seed), _control(most / 20, most) {
    _round_trip = In(5, 200);
    _noise = In(0, 0.1);
    _key = In(2, 6);
    _follows = In(0.1, 0.6);
    _group = static_cast<int>(In(25, 60));
    _encoded = most;
  }

  /// Lets so many seconds pass on a link of `capacity` bits a second.
  void Run(double capacity, double duration) {
    for (const double end = _now + duration; _now < end; _now += Picture) {
      _encoded += (_control.BitRate() - _encoded) * Picture / _follows;
      // Key frames are larger than the others, which are all the smaller.
      const double mean = _group / (_group - 1 + _key);
      const double size = _encoded * Picture * (_index++ % _group == 0 ? _key : 1) * mean;
      _written += size * In(0.8, 1.2);
      _pictures.emplace_back(_now, _written);
      _taken = std::min(_written, _taken + capacity * Picture * In(1 - _noise, 1 + _noise));
      while (!_pictures.empty() && _pictures.front().second <= _taken) _pictures.pop_front();
      if (_now < _look) continue;
      _look = _now + In(0.2, 0.35);
      LinkFigures link;
      link.acknowledged = static_cast<std::uint64_t>(_taken / 8);
      link.unsent = static_cast<std::uint64_t>((_written - _taken) / 8);
      link.roundTrip = _round_trip * In(1, 1.2);
      link.lag = _round_trip + Delay() * 1000;
      const double before = _control.BitRate();
      _control.Add(RateControl::Time(milliseconds(static_cast<int>(_now * 1000))), link);
      if (_control.BitRate() < before * 0.8) ++falls;
      lowest = std::min(lowest, _control.BitRate());
      highest = std::max(highest, _control.BitRate());
      sum += _control.BitRate();
      ++looks;
      longest = std::max(longest, Delay());
    }
  }
  /// Begins to count anew.
  void Settle() {
    falls = looks = 0;
    lowest = 1e12;
    highest = longest = sum = 0;
  }
  double Rate() const { return _control.BitRate(); }

  int falls = 0;  ///< times that the rate fell by more than a fifth
  int looks = 0;
  double lowest = 0, highest = 0, sum = 0;
  double longest = 0;  ///< seconds that a picture waited

 private:
  static constexpr double Picture = 1.0 / 30;

  double In(double least, double most) {
    return std::uniform_real_distribution<double>(least, most)(_random);
  }
  double Delay() const { return _pictures.empty() ? 0 : _now - _pictures.front().first; }

  std::mt19937 _random;
  RateControl _control;
  double _round_trip, _noise, _key, _follows;
  int _group;
  double _encoded, _written = 0, _taken = 0, _now = 0, _look = 0;
  int _index = 0;
  std::deque<std::pair<double, double>> _pictures;  ///< when they were written, and what was then
};

constexpr unsigned int Links = 1000, SomeLinks = 300;
constexpr double Million = 1e6;

TEST(RateControlTest, FollowsALinkDownAndUpWithoutSwinging) {
  double sum = 0;
  for (unsigned int seed = 0; seed < Links; ++seed) {
    SCOPED_TRACE(seed);
    Simulation camera(seed, 5 * Million);
    for (const double capacity : {4 * Million, Million}) {
      camera.Run(capacity, 10);
      camera.Settle();
      camera.Run(capacity, 40);
      const double mean = camera.sum / camera.looks / capacity;
      sum += mean;
      ASSERT_TRUE(mean > 0.8 && mean < 0.95) << mean;
      ASSERT_LE(camera.longest, 0.75) << "seconds";
      ASSERT_LE(camera.falls, 2);
      ASSERT_LE(camera.highest, 1.25 * capacity) << "while it is tried whether more goes";
    }
    camera.Run(4 * Million, 60);
    camera.Settle();
    camera.Run(4 * Million, 20);
    ASSERT_GE(camera.sum / camera.looks, 0.7 * 4 * Million) << "back within a minute";
  }
  EXPECT_NEAR(sum / (2 * Links), 0.89, 0.03) << "of what the link holds";
}

TEST(RateControlTest, ComesBackToWhatTheLinkHeldBeforeItStoodStill) {
  for (unsigned int seed = 0; seed < SomeLinks; ++seed) {
    SCOPED_TRACE(seed);
    Simulation camera(seed, 5 * Million);
    camera.Run(2 * Million, 20);
    camera.Run(0, 4);
    EXPECT_LE(camera.Rate(), Million) << "meanwhile hardly anything is added";
    camera.Run(2 * Million, 20);
    ASSERT_TRUE(camera.Rate() > 0.6 * 2 * Million && camera.Rate() < 1.1 * 2 * Million)
        << camera.Rate();
  }
}

TEST(RateControlTest, LeavesAFreeLinkAlone) {
  for (unsigned int seed = 0; seed < SomeLinks; ++seed) {
    Simulation camera(seed, 5 * Million);
    camera.Run(12 * Million, 60);
    ASSERT_EQ(camera.Rate(), 5 * Million) << seed;
  }
}

}  // namespace
}  // namespace nimbo::publication
