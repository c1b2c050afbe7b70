#pragma once

#include <cstdint>
#include <string>

#include "nimbo/base/api.h"
#include "nimbo/base/arr32.h"
#include "nimbo/base/object_base.h"

namespace nimbo::base {

/// The 32-bit name hash: FNV-1a over the bytes of `text` with ASCII capitals folded to lower case.
/// A null text hashes to 0. It identifies every named object, class and codec.
inline std::uint32_t Hash(const char* text) noexcept;

/// A name and its identifier. Constructed with the empty name.
class NIMBO_API object_name : public object_base {
 public:
  object_name() = default;
  virtual ~object_name();

  /// [control] Sets the name. True always.
  virtual bool Name(const char* name) = 0;
  /// [any] The identifier: Hash of the name.
  virtual std::uint32_t ID() const { return _id; }
  /// [any] The sort key in ordered lists: the identifier.
  virtual std::uint32_t Order() const { return _id; }

  /// [any] The name as it was given; the empty text before it was.
  const std::string& Name() const noexcept { return _name; }

 protected:
  object_name(const object_name&) = default;
  object_name& operator=(const object_name&) = default;

  std::string _name;
  std::uint32_t _id = Hash("");
};

/// A name whose parts, split at each "-", are keywords that it can be found by.
class NIMBO_API object_keywords : public object_name {
 public:
  ~object_keywords() override;

  /// [control] Sets name, identifier and keywords; a null name changes nothing. True always.
  inline bool Name(const char* name) override;
  using object_name::Name;

  /// [any] The hashes of the name's parts, in order.
  const Arr32& Keywords() const noexcept { return _keywords; }

 protected:
  Arr32 _keywords;
};

}  // namespace nimbo::base

#include "base/reflect/Names.h"
