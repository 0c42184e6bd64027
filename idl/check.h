// The passes over the tree. Each reports what is wrong and fills in what the tree marks as found by it; each takes
// what earlier ones could not find as null, and says nothing more about it.
#pragma once

#include "diagnostics.h"
#include "tree.h"

namespace idl {

/// What names mean; repository ids; bases of interfaces.
void check_names(Tree& tree, Diagnostics& diagnostics);
/// The values of constants, bounds, dimensions and union labels.
void check_constants(Tree& tree, Diagnostics& diagnostics);
/// Which types may stand where.
void check_types(Tree& tree, Diagnostics& diagnostics);
/// What may inherit what, and what may not be declared again.
void check_inheritance(Tree& tree, Diagnostics& diagnostics);
/// Discriminators and labels.
void check_unions(Tree& tree, Diagnostics& diagnostics);
/// Oneway, raises, context, what may be a parameter.
void check_operations(Tree& tree, Diagnostics& diagnostics);

/// All of them, in this order.
void check(Tree& tree, Diagnostics& diagnostics);

}  // namespace idl
