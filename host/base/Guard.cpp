#include "host/base/Guard.h"

#include <exception>

#include "host/base/ConfigText.h"
#include "log/Line.h"

namespace nimbo::base {

using log::Colour;
using log::Line;

void TellException(const std::string& what) noexcept {
  try {
    throw;
  } catch (const std::exception& error) {
    Line(Colour::Red) << Printable(what) << ": an exception escaped: " << Printable(error.what());
  } catch (...) {
    Line(Colour::Red) << Printable(what) << ": an exception of unknown type escaped";
  }
}

}  // namespace nimbo::base
