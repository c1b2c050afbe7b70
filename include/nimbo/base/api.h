#pragma once

/// Marks what crosses the boundary between framework and plug-in. Both sides are built with hidden
/// visibility; the tables and type information of these classes are shared.
#define NIMBO_API __attribute__((visibility("default")))

namespace nimbo {

/// Whoever implements these headers: the framework of a device, or the reference host. It alone
/// reaches their private members. Opaque to plug-ins, which have no use for it.
class Framework;

}  // namespace nimbo
