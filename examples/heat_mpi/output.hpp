// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "meshpart.hpp"

#include <string>
#include <utility>
#include <vector>

namespace examples {

using Fields = std::vector<std::pair<std::string, std::vector<double>>>;

/// Together: NAME.pvtu and beside it NAME_<rank>.vtu from each rank. Every file is written under another name first: what is
/// there afterwards is whole.
void writePieces(const Session& session, const std::string& file, const MeshPart& part, const Fields& fields);

/// Local: the values of a field of this rank's piece. Raises FileError if the file is no such, or of another mesh or number of ranks.
std::vector<double> readPiece(const Session& session, const std::string& file, const MeshPart& part, const std::string& field);

/// The numbers of a field (or "Points") in a .vtu file as this program and `heat` write it. Raises FileError.
std::vector<double> readVtuArray(const std::string& file, const std::string& name);

/// A mesh with values that the first rank gathers for a picture: triangles of an earlier refinement, whose nodes are those
/// of the fine mesh with the lowest numbers.
struct Overview
{
    NamedMesh mesh;
    std::vector<double> values;
};

/// Together. coarse: the part as it was when it was coarse enough to be gathered.
Overview overview(const Session& session, const MeshPart& coarse, const MeshPart& fine, const std::vector<double>& values);

/// Together: the value at a point, from the lowest rank that has a triangle around it; NaN if none has.
double valueAt(const Session& session, const MeshPart& part, const std::vector<double>& values, const Point& point);

/// Writes a file under another name first, then renames it.
template <class Write>
void writeWhole(const std::string& file, const Write& write);

} // namespace examples

#include "support/fileerror.hpp"

#include <cstdio>
#include <fstream>

template <class Write>
void examples::writeWhole(const std::string& file, const Write& write)
{
    const std::string unfinished = file + ".part";
    std::ofstream out(unfinished, std::ios::binary);
    write(out);
    if (!out.flush() || (out.close(), std::rename(unfinished.c_str(), file.c_str()) != 0)) {
        std::remove(unfinished.c_str());
        throw FileError(file, "cannot be written");
    }
}
