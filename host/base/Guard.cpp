#include "host/base/Guard.h"

#include <exception>

#include "base/reflect/Line.h"

namespace nimbo::base {

void TellException(const std::string& what) noexcept {
  try {
    throw;
  } catch (const std::exception& error) {
    Line(Colour::Red) << what << ": an exception escaped: " << error.what();
  } catch (...) {
    Line(Colour::Red) << what << ": an exception of unknown type escaped";
  }
}

}  // namespace nimbo::base
