// The destructors of classes that have no other code of their own. Defined here, they keep the
// tables and type information of these classes in one place, shared by the framework and its
// plug-ins.

#include "nimbo/base/attributes.h"
#include "nimbo/base/names.h"
#include "nimbo/base/param.h"
#include "nimbo/base/reference.h"

namespace nimbo::base {

object_name::~object_name() = default;
object_keywords::~object_keywords() = default;
IParam::~IParam() = default;
IAttributes::~IAttributes() = default;
Reference::~Reference() = default;

}  // namespace nimbo::base
