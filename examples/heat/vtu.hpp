// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "support/contour.hpp"

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace examples {

/// Writes a mesh with values at its points as a VTK unstructured grid (.vtu, ASCII), which ParaView opens.
/// Each field is a name and one number a point. Source: VTK file formats, "XML file formats, UnstructuredGrid".
void writeVtu(std::ostream& out, const Mesh& mesh, const std::vector<std::pair<std::string, std::vector<double>>>& fields);

} // namespace examples
