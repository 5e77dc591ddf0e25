#pragma once

/// The compiler of sets of scalar formulas. Nodes and function objects feed it through their createDefs operations; so
/// far only its name is known, and every createDefs refuses.
class ExprComp;
