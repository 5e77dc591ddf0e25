#include "vtu.hpp"

#include "support/csv.hpp"

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

// Collects lines and hands them to the stream in large pieces.
class Lines
{
public:
    explicit Lines(std::ostream& out) : out_(out) {}
    ~Lines() { flush(); }
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;

    void add(const std::string& line)
    {
        text_ += line;
        text_ += '\n';
        if (text_.size() > (1u << 16))
            flush();
    }

private:
    void flush()
    {
        out_.write(text_.data(), static_cast<std::streamsize>(text_.size()));
        text_.clear();
    }

    std::ostream& out_;
    std::string text_;
};

} // namespace

void writeVtu(std::ostream& out, const Mesh& mesh, const std::vector<std::pair<std::string, std::vector<double>>>& fields)
{
    out << "<?xml version=\"1.0\"?>\n<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"LittleEndian\">\n"
        << "<UnstructuredGrid>\n<Piece NumberOfPoints=\"" << mesh.points.size() << "\" NumberOfCells=\""
        << mesh.triangles.size() << "\">\n<PointData>\n";
    for (const auto& [name, values] : fields) {
        openArray(out, "Float64", name, 1);
        Lines lines(out);
        for (const double v : values)
            lines.add(std::isnan(v) ? "NaN" : toText(v));
        lines.add("</DataArray>");
    }
    out << "</PointData>\n<Points>\n";
    openArray(out, "Float64", "Points", 3);
    {
        Lines lines(out);
        for (const Point& p : mesh.points)
            lines.add(toText(p[0]) + " " + toText(p[1]) + " 0");
    }
    out << "</DataArray>\n</Points>\n<Cells>\n";
    openArray(out, "Int32", "connectivity", 1);
    {
        Lines lines(out);
        for (const Triangle& t : mesh.triangles)
            lines.add(std::to_string(t[0]) + " " + std::to_string(t[1]) + " " + std::to_string(t[2]));
    }
    out << "</DataArray>\n";
    openArray(out, "Int32", "offsets", 1);
    {
        Lines lines(out);
        for (std::size_t t = 1; t <= mesh.triangles.size(); ++t)
            lines.add(std::to_string(3 * t));
    }
    out << "</DataArray>\n";
    openArray(out, "UInt8", "types", 1);
    {
        Lines lines(out);
        for (std::size_t t = 0; t < mesh.triangles.size(); ++t)
            lines.add(std::to_string(kTriangle));
    }
    out << "</DataArray>\n</Cells>\n</Piece>\n</UnstructuredGrid>\n</VTKFile>\n";
}

} // namespace examples
