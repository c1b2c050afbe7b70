#include "host/base/Guard.h"

#include <exception>

#include "base/reflect/Line.h"
#include "host/base/ConfigText.h"

namespace nimbo::base {

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
