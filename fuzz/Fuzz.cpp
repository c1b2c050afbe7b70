#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  nimbo::fuzz::Run(FuzzedDataProvider(data, size));
  return 0;
}
