// SPDX-License-Identifier: LicenseRef-qxkernel
#include "vtu.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <ostream>

namespace examples {
namespace {

constexpr int kTriangle = 5; // VTK's number for it

void openArray(std::ostream& out, const std::string& type, const std::string& name, int components)
{
    out << "<DataArray type=\"" << type << "\" Name=\"" << name << "\" NumberOfComponents=\"" << components
        << "\" format=\"ascii\">\n";
}

// Numbers as text, handed to the stream in large pieces. A double has the fewest digits that read back to the same bits.
class Numbers
{
public:
    explicit Numbers(std::ostream& out) : out_(out) {}
    ~Numbers() { flush(); }
    Numbers(const Numbers&) = delete;
    Numbers& operator=(const Numbers&) = delete;

    template <class T>
    void add(T value, char behind)
    {
        if (used_ + kLongest > text_.size())
            flush();
        char* const first = text_.data() + used_;
        char* last = std::to_chars(first, first + kLongest, value).ptr;
        *last++ = behind;
        used_ += static_cast<std::size_t>(last - first);
    }
    void addField(double value)
    {
        if (!std::isnan(value))
            return add(value, '\n');
        flush();
        out_ << "NaN\n"; // as VTK spells it
    }

private:
    static constexpr std::size_t kLongest = 32; // of one number and what stands behind it

    void flush()
    {
        out_.write(text_.data(), static_cast<std::streamsize>(used_));
        used_ = 0;
    }

    std::ostream& out_;
    std::array<char, 1u << 16> text_;
    std::size_t used_ = 0;
};

} // namespace

void writeVtu(std::ostream& out, const Mesh& mesh, const std::vector<std::pair<std::string, std::vector<double>>>& fields)
{
    out << "<?xml version=\"1.0\"?>\n<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"LittleEndian\">\n"
        << "<UnstructuredGrid>\n<Piece NumberOfPoints=\"" << mesh.points.size() << "\" NumberOfCells=\""
        << mesh.triangles.size() << "\">\n<PointData>\n";
    for (const auto& [name, values] : fields) {
        openArray(out, "Float64", name, 1);
        {
            Numbers numbers(out);
            for (const double v : values)
                numbers.addField(v);
        }
        out << "</DataArray>\n";
    }
    out << "</PointData>\n<Points>\n";
    openArray(out, "Float64", "Points", 3);
    {
        Numbers numbers(out);
        for (const Point& p : mesh.points) {
            numbers.add(p[0], ' ');
            numbers.add(p[1], ' ');
            numbers.add(0, '\n');
        }
    }
    out << "</DataArray>\n</Points>\n<Cells>\n";
    openArray(out, "Int32", "connectivity", 1);
    {
        Numbers numbers(out);
        for (const Triangle& t : mesh.triangles) {
            numbers.add(t[0], ' ');
            numbers.add(t[1], ' ');
            numbers.add(t[2], '\n');
        }
    }
    out << "</DataArray>\n";
    openArray(out, "Int32", "offsets", 1);
    {
        Numbers numbers(out);
        for (std::size_t t = 1; t <= mesh.triangles.size(); ++t)
            numbers.add(3 * t, '\n');
    }
    out << "</DataArray>\n";
    openArray(out, "UInt8", "types", 1);
    {
        Numbers numbers(out);
        for (std::size_t t = 0; t < mesh.triangles.size(); ++t)
            numbers.add(kTriangle, '\n');
    }
    out << "</DataArray>\n</Cells>\n</Piece>\n</UnstructuredGrid>\n</VTKFile>\n";
}

} // namespace examples
