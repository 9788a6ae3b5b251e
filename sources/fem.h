// The whole public interface of kelt FEM.
#pragma once

#include "kelt/core/types.h"
#include "kelt/math/math.h"
#include "kelt/fem/base_class.h"
#include "kelt/fem/bases_mgr.h"
#include "kelt/fem/context.h"
#include "kelt/fem/DOFs_mgr.h"
#include "kelt/fem/evolution_funcs_mgr.h"
#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/FEM_states.h"
#include "kelt/fem/loads_mgr.h"
#include "kelt/fem/numerical_model_base.h"
#include "kelt/fem/numerical_models_mgr.h"
#include "kelt/fem/problem_data.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/stress_mgr.h"
#include "kelt/fem/tables.h"
