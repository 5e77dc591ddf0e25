#pragma once

#include "fwd.hpp"

// ExprComp: the compiler of sets of scalar formulas. Nodes and function objects feed it through their createDefs
// operations; only its name is known so far, and every createDefs refuses.
