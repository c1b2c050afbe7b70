#pragma once

/// Marks what crosses the boundary between framework and plug-in. Both sides are built with hidden
/// visibility; the tables and type information of these classes are shared.
#define NIMBO_API __attribute__((visibility("default")))
