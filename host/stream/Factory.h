#pragma once

#include <string>
#include <utility>
#include <vector>

#include "nimbo/stream/factory.h"

namespace nimbo::stream {

/// [control] The layout pairs registered with LayoutAdd, as (common, layout), in order.
NIMBO_API const std::vector<std::pair<std::string, std::string>>& FactoryLayouts();

}  // namespace nimbo::stream
