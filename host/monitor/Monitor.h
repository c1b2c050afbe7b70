#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/Status.h"
#include "host/publication/ClientFigures.h"

/// The monitor: a web page on this machine that shows how a publication is doing. It is a module of
/// its own, loaded when it is asked for, so that the program does without its library otherwise.
namespace nimbo::monitor {

using publication::ClientFigures;

struct Options {
  unsigned short port = 0;  ///< on the loopback interface; 0: a free one
  std::string picture;      ///< address of an HLS playlist that the page plays; may be empty
  std::vector<std::string> clients;  ///< their addresses, as they may be shown
};

/// Serves the page from its making to its end. [any]
class Monitor {
 public:
  Monitor() = default;
  Monitor(const Monitor&) = delete;
  Monitor& operator=(const Monitor&) = delete;
  virtual ~Monitor() = default;

  /// Where a browser finds the page.
  virtual std::string Address() const = 0;
  /// How the clients are doing now, in the order of their addresses; wanted once a second.
  virtual void Add(std::vector<ClientFigures> clients) = 0;
  /// A message of client number `client` came up. What is told of it is an event of the page; empty
  /// where it is only counted.
  virtual void Tell(std::size_t client, const std::string& message, const std::string& told) = 0;
};

/// The module and its only function, `OpenFunction`: it opens a monitor, or says why it cannot
/// serve.
constexpr char ModuleName[] = "libnimbo-monitor.so";
constexpr char ModuleFunction[] = "OpenMonitor";
using OpenFunction = void(const Options& options, Result<std::unique_ptr<Monitor>>& opened);

}  // namespace nimbo::monitor
