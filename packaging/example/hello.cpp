// A plug-in with one command. nimbo-host --plugin ./libhello.so shell <<<"hello name=you"
#include <string>

#include "nimbo/base/command.h"
#include "nimbo/base/ostream.h"

static const int registered =
    nimbo::base::omfCmdRegister("hello", [](nimbo::base::AttrSet& arguments) {
      const char* name = arguments.Get("name");
      nimbo::base::cout << "Hello, " + std::string(name ? name : "world") + "\n";
      return true;
    });
