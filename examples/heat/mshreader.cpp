// SPDX-License-Identifier: LicenseRef-qxkernel
#include "mesh.hpp"

#include "support/fileerror.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace examples {
namespace {

// The words of a text and the line each stands in.
class Words
{
public:
    Words(std::string_view text, std::string file) : text_(text), file_(std::move(file)) {}

    [[noreturn]] void fail(const std::string& what) const { throw FileError(file_, line_, what); }

    // The next word; empty at the end.
    std::string_view next()
    {
        skipBlanks();
        const std::size_t start = at_;
        while (at_ < text_.size() && !isBlank(text_[at_]))
            ++at_;
        return text_.substr(start, at_ - start);
    }

    std::string_view need(const char* what)
    {
        const std::string_view word = next();
        if (word.empty())
            fail(std::string("the file ends where ") + what + " should be");
        return word;
    }

    // A text between quotes, which may hold blanks but no line end.
    std::string quoted(const char* what)
    {
        skipBlanks();
        const std::size_t end = at_ < text_.size() && text_[at_] == '"' ? text_.find_first_of("\"\n", at_ + 1)
                                                                        : std::string_view::npos;
        if (end == std::string_view::npos || text_[end] != '"')
            fail(std::string(what) + " must stand between quotes");
        const std::string inside(text_.substr(at_ + 1, end - at_ - 1));
        at_ = end + 1;
        return inside;
    }

    template <class T>
    T number(const char* what)
    {
        const std::string_view word = need(what);
        T value{};
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
        if (error != std::errc() || end != word.data() + word.size())
            fail(shown(std::string(word)) + " is no " + what);
        return value;
    }

    double coordinate()
    {
        const double v = number<double>("coordinate");
        if (!std::isfinite(v))
            fail("a coordinate is not finite");
        return v;
    }

    // A count of things that take at least two bytes each, so that no damaged count makes us ask for memory.
    std::size_t count(const char* what)
    {
        const auto n = number<std::uint64_t>(what);
        if (n > (text_.size() - at_) / 2 + 1)
            fail(std::string(what) + " " + std::to_string(n) + " is more than the file can hold");
        return static_cast<std::size_t>(n);
    }

    void expect(std::string_view word)
    {
        if (next() != word)
            fail("expected " + std::string(word));
    }

    // Steps over a section that is not needed, behind its last word.
    void skipTo(const std::string& end)
    {
        for (std::string_view word = next(); word != end; word = next())
            if (word.empty())
                fail("the file ends before " + end);
    }

private:
    static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

    void skipBlanks()
    {
        for (; at_ < text_.size() && isBlank(text_[at_]); ++at_)
            line_ += text_[at_] == '\n';
    }

    std::string_view text_;
    std::string file_;
    std::size_t at_ = 0;
    long line_ = 1;
};

class MshReader
{
public:
    MshReader(std::string_view text, const std::string& file) : words_(text, file), file_(file) {}

    NamedMesh read()
    {
        format();
        for (std::string_view word = words_.next(); !word.empty(); word = words_.next()) {
            if (word.size() < 2 || word[0] != '$')
                words_.fail("expected the name of a section, found " + shown(std::string(word)));
            const std::string section(word.substr(1));
            if (section == "PhysicalNames")
                physicalNames();
            else if (section == "Entities")
                entities();
            else if (section == "Nodes")
                nodes();
            else if (section == "Elements")
                elements();
            else {
                words_.skipTo("$End" + section);
                continue;
            }
            words_.expect("$End" + section);
        }
        if (triangles_.empty())
            throw FileError(file_, "the mesh has no triangles");
        return mesh();
    }

private:
    using Tag = std::int64_t;

    struct Element
    {
        Tag tag;
        long entity;
        int node[3];
    };

    void format()
    {
        words_.expect("$MeshFormat");
        const std::string version(words_.need("version"));
        if (version != "4.1")
            words_.fail("format version " + shown(version) + ", this reader needs 4.1");
        if (words_.number<int>("file type") != 0)
            words_.fail("the file is binary, this reader needs ASCII");
        words_.number<int>("data size");
        words_.expect("$EndMeshFormat");
    }

    void physicalNames()
    {
        const std::size_t n = words_.count("number of names");
        for (std::size_t i = 0; i < n; ++i) {
            const int dimension = words_.number<int>("dimension");
            const int tag = words_.number<int>("group number");
            const std::string name = words_.quoted("the name of a group");
            if (dimension == 1)
                names_[tag] = name;
        }
    }

    void entities()
    {
        std::size_t n[4];
        for (std::size_t& k : n)
            k = words_.count("number of entities");
        for (int dimension = 0; dimension < 4; ++dimension)
            for (std::size_t i = 0; i < n[dimension]; ++i) {
                const long tag = words_.number<long>("entity number");
                for (int k = 0; k < (dimension == 0 ? 3 : 6); ++k)
                    words_.coordinate();
                const std::size_t groups = words_.count("number of groups");
                for (std::size_t k = 0; k < groups; ++k) {
                    const int group = words_.number<int>("group number");
                    if (dimension == 1)
                        groupsOfCurve_[tag].push_back(group);
                }
                const std::size_t bounding = dimension == 0 ? 0 : words_.count("number of bounding entities");
                for (std::size_t k = 0; k < bounding; ++k)
                    words_.number<long>("entity number");
            }
    }

    void nodes()
    {
        const std::size_t blocks = words_.count("number of blocks");
        const std::size_t total = words_.count("number of nodes");
        words_.number<Tag>("node number");
        words_.number<Tag>("node number");
        points_.reserve(total);
        for (std::size_t b = 0; b < blocks; ++b) {
            const int dimension = words_.number<int>("dimension");
            words_.number<long>("entity number");
            const int parameters = words_.number<int>("parametric flag") != 0 ? dimension : 0;
            const std::size_t n = words_.count("number of nodes");
            for (std::size_t i = 0; i < n; ++i) {
                const Tag tag = words_.number<Tag>("node number");
                if (!nodeOf_.try_emplace(tag, static_cast<int>(points_.size() + i)).second)
                    words_.fail("node " + std::to_string(tag) + " is there twice");
            }
            for (std::size_t i = 0; i < n; ++i) {
                const double x = words_.coordinate();
                const double y = words_.coordinate();
                if (words_.coordinate() != 0.0)
                    words_.fail("the mesh is not flat: z must be 0");
                for (int k = 0; k < parameters; ++k)
                    words_.coordinate();
                points_.push_back({x, y});
            }
        }
        if (points_.size() != total)
            words_.fail(std::to_string(points_.size()) + " nodes, the section promised " + std::to_string(total));
    }

    void elements()
    {
        const std::size_t blocks = words_.count("number of blocks");
        const std::size_t total = words_.count("number of elements");
        words_.number<Tag>("element number");
        words_.number<Tag>("element number");
        std::size_t read = 0;
        for (std::size_t b = 0; b < blocks; ++b) {
            words_.number<int>("dimension");
            const long entity = words_.number<long>("entity number");
            const int type = words_.number<int>("element type");
            const std::size_t n = words_.count("number of elements");
            // 1 line, 2 triangle, 15 point
            const int corners = type == 1 ? 2 : type == 2 ? 3 : type == 15 ? 1 : 0;
            if (corners == 0)
                words_.fail("element type " + std::to_string(type) + ", only lines and triangles of first order are read");
            for (std::size_t i = 0; i < n; ++i)
                element(entity, corners);
            read += n;
        }
        if (read != total)
            words_.fail(std::to_string(read) + " elements, the section promised " + std::to_string(total));
    }

    void element(long entity, int corners)
    {
        Element e{words_.number<Tag>("element number"), entity, {0, 0, 0}};
        for (int k = 0; k < corners; ++k) {
            const Tag tag = words_.number<Tag>("node number");
            const auto at = nodeOf_.find(tag);
            if (at == nodeOf_.end())
                words_.fail("element " + std::to_string(e.tag) + " names node " + std::to_string(tag) +
                            ", which is not there");
            e.node[k] = at->second;
        }
        if (corners == 2)
            edges_.push_back(e);
        if (corners == 3) {
            const Point& a = points_[static_cast<std::size_t>(e.node[0])];
            const Point& b = points_[static_cast<std::size_t>(e.node[1])];
            const Point& c = points_[static_cast<std::size_t>(e.node[2])];
            if ((b[0] - a[0]) * (c[1] - a[1]) == (b[1] - a[1]) * (c[0] - a[0]))
                words_.fail("element " + std::to_string(e.tag) + " has no area");
            triangles_.push_back(e);
        }
    }

    NamedMesh mesh() const
    {
        NamedMesh mesh;
        std::vector<int> number(points_.size(), -1);
        for (const Element& e : triangles_)
            for (const int n : e.node)
                number[static_cast<std::size_t>(n)] = 0;
        for (std::size_t i = 0; i < points_.size(); ++i)
            if (number[i] == 0) {
                number[i] = static_cast<int>(mesh.points.size());
                mesh.points.push_back(points_[i]);
            }
        for (const Element& e : triangles_) {
            Triangle t{};
            for (std::size_t k = 0; k < 3; ++k)
                t[k] = number[static_cast<std::size_t>(e.node[k])];
            mesh.triangles.push_back(t);
        }
        orient(mesh);
        for (const Element& e : edges_) {
            const int a = number[static_cast<std::size_t>(e.node[0])];
            const int b = number[static_cast<std::size_t>(e.node[1])];
            const auto groups = groupsOfCurve_.find(e.entity);
            if (a < 0 || b < 0 || groups == groupsOfCurve_.end())
                continue;
            for (const int group : groups->second) {
                const auto name = names_.find(group);
                mesh.boundaries[name == names_.end() ? std::to_string(group) : name->second].push_back({a, b});
            }
        }
        return mesh;
    }

    Words words_;
    std::string file_;
    std::map<int, std::string> names_;                  // of the groups of curves
    std::map<long, std::vector<int>> groupsOfCurve_;
    std::unordered_map<Tag, int> nodeOf_;
    std::vector<Point> points_;
    std::vector<Element> edges_;
    std::vector<Element> triangles_;
};

} // namespace

NamedMesh readMshText(const std::string& text, const std::string& file)
{
    return MshReader(text, file).read();
}

NamedMesh readMsh(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (!in.is_open() || in.bad() || text.empty())
        throw FileError(file, "cannot be read or is empty");
    return readMshText(text, file);
}

} // namespace examples
