// SPDX-License-Identifier: LicenseRef-qxkernel
#include "output.hpp"

#include "heat/vtu.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <limits>
#include <map>

namespace examples {
namespace {

std::string pieceOf(const std::string& file, int rank)
{
    return std::filesystem::path(file).replace_extension().string() + "_" + std::to_string(rank) + ".vtu";
}

void writeIndex(std::ostream& out, const std::string& file, int ranks, const Fields& fields)
{
    out << "<?xml version=\"1.0\"?>\n<VTKFile type=\"PUnstructuredGrid\" version=\"1.0\" byte_order=\"LittleEndian\">\n"
        << "<PUnstructuredGrid GhostLevel=\"0\">\n<PPointData>\n";
    for (const auto& field : fields)
        out << "<PDataArray type=\"Float64\" Name=\"" << field.first << "\" NumberOfComponents=\"1\"/>\n";
    out << "</PPointData>\n<PPoints>\n<PDataArray type=\"Float64\" Name=\"Points\" NumberOfComponents=\"3\"/>\n</PPoints>\n";
    for (int r = 0; r < ranks; ++r)
        out << "<Piece Source=\"" << std::filesystem::path(pieceOf(file, r)).filename().string() << "\"/>\n";
    out << "</PUnstructuredGrid>\n</VTKFile>\n";
}

/// Lists of all ranks on the first one.
template <class T>
std::vector<T> gathered(const Session& session, const std::vector<T>& mine)
{
    const int bytes = static_cast<int>(mine.size() * sizeof(T));
    std::vector<int> counts(static_cast<std::size_t>(session.size())), at(counts.size() + 1, 0);
    MPI_Gather(&bytes, 1, MPI_INT, counts.data(), 1, MPI_INT, 0, session.comm());
    if (session.rank() == 0)
        for (std::size_t r = 0; r < counts.size(); ++r)
            at[r + 1] = at[r] + counts[r];
    std::vector<T> all(static_cast<std::size_t>(at.back()) / sizeof(T));
    MPI_Gatherv(mine.data(), bytes, MPI_BYTE, all.data(), counts.data(), at.data(), MPI_BYTE, 0, session.comm());
    return all;
}

} // namespace

void writePieces(const Session& session, const std::string& file, const MeshPart& part, const Fields& fields)
{
    if (file.empty())
        return;
    session.together([&] {
        writeWhole(pieceOf(file, session.rank()), [&](std::ostream& out) { writeVtu(out, part, fields); });
    });
    session.together([&] { // when all pieces are there
        if (session.rank() == 0)
            writeWhole(file, [&](std::ostream& out) { writeIndex(out, file, session.size(), fields); });
    });
}

std::vector<double> readVtuArray(const std::string& file, const std::string& name)
{
    std::ifstream in(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (!in.is_open() || text.empty())
        throw FileError(file, "cannot be read or is empty");
    const std::size_t head = text.find("Name=\"" + name + "\"");
    const std::size_t from = head == std::string::npos ? head : text.find('>', head);
    const std::size_t to = from == std::string::npos ? from : text.find("</DataArray>", from);
    if (to == std::string::npos)
        throw FileError(file, "has no field '" + name + "'");
    std::vector<double> values;
    const char* at = text.data() + from + 1;
    const char* const end = text.data() + to;
    while (true) {
        while (at < end && (*at == ' ' || *at == '\n'))
            ++at;
        if (at == end)
            return values;
        double v = 0.0;
        const auto [behind, failure] = std::from_chars(at, end, v);
        if (failure != std::errc())
            throw FileError(file, "has something else than numbers in '" + name + "'");
        values.push_back(v);
        at = behind;
    }
}

std::vector<double> readPiece(const Session& session, const std::string& file, const MeshPart& part, const std::string& field)
{
    const std::string piece = pieceOf(file, session.rank());
    const std::vector<double> points = readVtuArray(piece, "Points");
    bool same = points.size() == 3 * part.points.size();
    for (std::size_t k = 0; same && k < part.points.size(); ++k)
        same = points[3 * k] == part.points[k][0] && points[3 * k + 1] == part.points[k][1];
    if (!same)
        throw FileError(piece, "is of another mesh, refinement or number of ranks");
    std::vector<double> values = readVtuArray(piece, field);
    if (values.size() != part.points.size())
        throw FileError(piece, "has not one value a point");
    return values;
}

Overview overview(const Session& session, const MeshPart& coarse, const MeshPart& fine, const std::vector<double>& values)
{
    struct Node
    {
        Index number;
        Point at;
        double value;
    };
    std::vector<Node> mine; // points of the coarse part come first among those of the fine one
    for (std::size_t k = 0; k < coarse.points.size(); ++k)
        if (fine.owner[k] == session.rank())
            mine.push_back({coarse.nodeNumber[k], coarse.points[k], values[k]});
    std::vector<std::array<Index, 3>> triangles;
    for (const Triangle& t : coarse.triangles)
        triangles.push_back({coarse.nodeNumber[static_cast<std::size_t>(t[0])], coarse.nodeNumber[static_cast<std::size_t>(t[1])],
                             coarse.nodeNumber[static_cast<std::size_t>(t[2])]});
    const std::vector<Node> nodes = gathered(session, mine);
    const std::vector<std::array<Index, 3>> corners = gathered(session, triangles);
    Overview o;
    o.mesh.points.resize(nodes.size());
    o.values.resize(nodes.size());
    for (const Node& n : nodes) {
        o.mesh.points[static_cast<std::size_t>(n.number)] = n.at;
        o.values[static_cast<std::size_t>(n.number)] = n.value;
    }
    for (const auto& [a, b, c] : corners)
        o.mesh.triangles.push_back({static_cast<int>(a), static_cast<int>(b), static_cast<int>(c)});
    return o;
}

double valueAt(const Session& session, const MeshPart& part, const std::vector<double>& values, const Point& p)
{
    const auto area = [](const Point& a, const Point& b, const Point& c) {
        return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
    };
    int finder = session.size();
    double value = std::numeric_limits<double>::quiet_NaN();
    for (const Triangle& t : part.triangles) {
        const std::size_t n[3] = {static_cast<std::size_t>(t[0]), static_cast<std::size_t>(t[1]), static_cast<std::size_t>(t[2])};
        const Point& a = part.points[n[0]];
        const Point& b = part.points[n[1]];
        const Point& c = part.points[n[2]];
        const double whole = area(a, b, c);
        const double weight[3] = {area(p, b, c) / whole, area(a, p, c) / whole, area(a, b, p) / whole};
        constexpr double rounding = -1e-12; // a point on a side may be outside of both triangles by rounding
        if (*std::min_element(weight, weight + 3) < rounding)
            continue;
        finder = session.rank();
        value = weight[0] * values[n[0]] + weight[1] * values[n[1]] + weight[2] * values[n[2]];
        break;
    }
    int first = 0;
    MPI_Allreduce(&finder, &first, 1, MPI_INT, MPI_MIN, session.comm());
    if (first < session.size())
        MPI_Bcast(&value, 1, MPI_DOUBLE, first, session.comm());
    return value;
}

} // namespace examples
