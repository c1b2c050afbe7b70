#include "nimbo/base/param.h"

#include <gtest/gtest.h>

namespace nimbo::base {
namespace {

/// One parameter "x" with a value and the type that it pretends to be stored with.
class OneParam : public IParam {
 public:
  OneParam(const std::type_info* type, long long value) : _type(type), _value(value) {}
  // Inlined, GCC 12 sees a value of another type that it is never called for.
  [[gnu::noinline]] bool GetWithType(const char* name, void* value, const std::type_info& requested,
                                     const Accept& accept) override {
    if (std::string(name) != "x" || !accept(_type)) return false;
    if (requested == typeid(long long)) *static_cast<long long*>(value) = _value;
    return true;
  }
  bool SetStr(const char*, const char*) override { return false; }
  bool GetStr(const char*, std::string&) override { return false; }

 private:
  const std::type_info* _type;
  long long _value;
};

constexpr long long Wide = 0x100000001;

TEST(ParamTest, IntegersOfEveryWidthAreReadAndCut) {
  for (const std::type_info* type :
       {&typeid(unsigned char), &typeid(unsigned short), &typeid(unsigned int),
        &typeid(unsigned long long), &typeid(unsigned long), &typeid(char), &typeid(short),
        &typeid(int), &typeid(long long), &typeid(long)}) {
    int value = 7;
    EXPECT_TRUE(OneParam(type, Wide).GetIntT("x", value)) << type->name();
    EXPECT_EQ(value, 1);
  }
  unsigned int value = 0;
  EXPECT_TRUE(OneParam(&typeid(int), -1).GetIntT("x", value));
  EXPECT_EQ(value, 0xFFFFFFFFu);
}

TEST(ParamTest, WhatIsNoIntegerIsRefusedAndLeavesTheValueAlone) {
  for (const std::type_info* type :
       {static_cast<const std::type_info*>(nullptr), &typeid(bool), &typeid(signed char),
        &typeid(float), &typeid(double), &typeid(const char*), &typeid(std::string)}) {
    int value = 7;
    EXPECT_FALSE(OneParam(type, Wide).GetIntT("x", value));
    EXPECT_EQ(value, 7);
  }
  int value = 7;
  EXPECT_TRUE(OneParam(&typeid(int), 1).Get("x", value));
  for (const std::type_info* type : {static_cast<const std::type_info*>(nullptr), &typeid(long)}) {
    EXPECT_FALSE(OneParam(type, 1).Get("x", value)) << "only what is stored as exactly an int";
  }
}

}  // namespace
}  // namespace nimbo::base
