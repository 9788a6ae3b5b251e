// The container layer: buffers, windows, fixed-size values, LAPACK.
#pragma once

#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/fixed.h"
#include "kelt/math/lapack.h"
#include "kelt/math/ptr.h"
#include "kelt/math/symmetric_full.h"
#include "kelt/math/vector_num.h"
