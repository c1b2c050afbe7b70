#include "host/base/PluginLoader.h"

#include <gtest/gtest.h>

#include "host/base/CommandTable.h"
#include "nimbo/base/command.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::base {
namespace {

std::string PluginPath() { return PluginLoader::OwnFolder() + "tests/libbase_test_plugin.so"; }

template <class Result>
Result Call(const char* name) {
  const auto function = reinterpret_cast<Result (*)()>(PluginLoader::Global().Symbol(name));
  return function ? function() : Result();
}

TEST(PluginLoaderTest, APluginIsRegisteredOnceInItsOrderAndItsExceptionsAreTold) {
  PluginLoader& loader = PluginLoader::Global();
  const std::size_t before = loader.Names().size();
  test::ConsoleCapture console;
  EXPECT_FALSE(loader.Load(PluginPath()));
  EXPECT_EQ(console.Text(),
            "\033[31mplug-in SampleThrowing: an exception escaped: no classes today\n\033[0m");
  EXPECT_STREQ(Call<const char*>("fwSampleCalls"),
               "SampleEarly;SampleThrowing;SampleLate;SampleLast;");
  EXPECT_TRUE(loader.Load(PluginPath())) << "loaded and told already";
  EXPECT_STREQ(Call<const char*>("fwSampleCalls"),
               "SampleEarly;SampleThrowing;SampleLate;SampleLast;");
  EXPECT_EQ(loader.Names().size(), before + 4);
  EXPECT_EQ(loader.Names()[static_cast<std::size_t>(Call<int>("fwSampleNumber"))], "SampleLast");
  EXPECT_EQ(loader.Libraries().back(), PluginPath());
}

TEST(PluginLoaderTest, OnlyThePluginsOwnFunctionsAreFound) {
  PluginLoader& loader = PluginLoader::Global();
  loader.Load(PluginPath());
  EXPECT_EQ(loader.Exports("fwSample"),
            (std::vector<std::string>{"fwSampleCalls", "fwSampleNumber"}));
  EXPECT_TRUE(loader.Exports("fwOther").empty());
  for (const char* name : {"fwSampleHidden", "fwSampleData", "fwSample", "printf", ""}) {
    EXPECT_EQ(loader.Symbol(name), nullptr) << name;
  }
}

TEST(PluginLoaderTest, WhatCannotBeLoadedIsToldInOneLine) {
  test::ConsoleCapture console;
  EXPECT_FALSE(PluginLoader::Global().Load("./no-such-plugin.so"));
  ASSERT_EQ(console.Lines().size(), 1u);
  EXPECT_EQ(console.Count("cannot load the plug-in: ./no-such-plugin.so"), 1u);
}

TEST(CommandTableTest, ALaterCommandTakesThePlaceOfOneOfItsName) {
  CommandTable& table = CommandTable::Global();
  const int first = omfCmdRegister("twice", [](AttrSet&) { return false; });
  EXPECT_EQ(omfCmdRegister("other", [](AttrSet&) { return false; }), first + 1);
  EXPECT_EQ(omfCmdRegister("twice", [](AttrSet&) { return true; }), first);
  AttrSet none;
  EXPECT_TRUE((*table.Find("twice"))(none));
  EXPECT_EQ(table.Names()[static_cast<std::size_t>(first)], "twice");
  EXPECT_EQ(table.Names().size(), static_cast<std::size_t>(first) + 2);
}

TEST(CommandTableTest, ACommandsResultAndItsExceptionsReachTheCaller) {
  PluginLoader::Global().Load(PluginPath());
  const CommandTable::Handler* handler = CommandTable::Global().Find("sample");
  ASSERT_NE(handler, nullptr);
  AttrSet good("p0=good"), bad("p0=bad"), none;
  EXPECT_TRUE((*handler)(good));
  EXPECT_FALSE((*handler)(bad));
  test::ConsoleCapture console;
  EXPECT_FALSE((*handler)(none));
  EXPECT_EQ(console.Text(), "\033[31mcommand sample: an exception escaped: p0 is missing\n\033[0m");
}

}  // namespace
}  // namespace nimbo::base
