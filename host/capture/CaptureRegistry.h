#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/capture/CaptureSource.h"
#include "nimbo/base/attr_set.h"

namespace nimbo::capture {

/// The capture sources by name. A name that ends in "-" stands for any number behind it ("h264-"
/// serves "h264-0"). [control]
class NIMBO_API CaptureRegistry {
 public:
  using Maker = std::function<std::unique_ptr<CaptureSource>(const std::string& name,
                                                             const base::AttrSet& options)>;
  static CaptureRegistry& Global();
  /// A source of the same name is replaced. `description` says what it is and its options.
  void Add(std::string name, Maker maker, const char* description = "");
  /// Makes the source `name`; loads the libav* module when the name is not known otherwise. Null
  /// with one console line that names the known ones.
  std::unique_ptr<CaptureSource> Make(const std::string& name, const base::AttrSet& options);

  /// A source as it is shown: "h264-N" for "h264-".
  struct Shown {
    std::string name;
    std::string description;
  };
  std::vector<Shown> Sources() const;

 private:
  struct Entry {
    std::string name;
    Maker maker;
    std::string description;
  };
  const Maker* Find(const std::string& name) const;
  /// The end of a line about a name that no source has.
  std::string Suggest(const std::string& name) const;
  std::vector<Entry> _entries;
};

/// Loads the module libnimbo-av.so, which registers its capture sources and classes, once. False
/// with one console line when it cannot be loaded. [control]
NIMBO_API bool LoadAvModule();

}  // namespace nimbo::capture
