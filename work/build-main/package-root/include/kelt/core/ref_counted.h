// Base of every object of the implementation layer.
#pragma once

#include "kelt/math/ptr.h"
#include "kelt/math/ref_counted.h"

namespace kelt {
namespace core_family {
struct tag;
}
using ref_counted = basic_ref_counted<core_family::tag>;
} // namespace kelt
