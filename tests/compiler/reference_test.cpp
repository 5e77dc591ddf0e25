// SPDX-License-Identifier: LicenseRef-qxkernel
// The bytes of generated classes against a second writer, the script tests/reference/class_writer.py.
#include "class_reader.hpp"
#include "probe.hpp"

#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

using namespace qxtest;

namespace {

struct Formulas
{
    Texts definitions, inputs, outputs;
};

std::map<std::string, Formulas> readFormulas(const std::string& file)
{
    std::map<std::string, Formulas> all;
    std::ifstream in(file);
    Formulas* now = nullptr;
    for (std::string line; std::getline(in, line);) {
        const std::string kind = line.substr(0, line.find(' ')), rest = line.substr(std::min(line.size(), kind.size() + 1));
        const auto names = [&rest] {
            std::istringstream words(rest);
            return Texts(std::istream_iterator<std::string>(words), {});
        };
        if (line.empty())
            now = nullptr;
        else if (!now)
            now = &all[line];
        else if (kind == "def")
            now->definitions.push_back(rest);
        else
            (kind == "in" ? now->inputs : now->outputs) = names();
    }
    return all;
}

std::string hexadecimal(const Bytes& bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char b : bytes) {
        text += digits[b >> 4];
        text += digits[b & 15];
    }
    return text;
}

} // namespace

TEST(ClassReference, SecondWriterGivesTheSameBytes)
{
    if (!*QX_CLASS_REFERENCE)
        GTEST_SKIP() << "no Python on this machine";
    const std::map<std::string, Formulas> formulas = readFormulas(QX_CLASS_FORMULAS);
    std::ifstream classes(QX_CLASS_REFERENCE);
    int compared = 0;

    for (std::string name, wanted; classes >> name >> wanted; ++compared) {
        const Formulas& f = formulas.at(name);
        Bytes bytes;
        ExprComp::compile("p/" + name, "eval", bytes, f.definitions, f.inputs, f.outputs, false);
        const std::string got = hexadecimal(bytes);
        const auto differ = std::mismatch(got.begin(), got.end(), wanted.begin(), wanted.end());
        EXPECT_TRUE(got == wanted) << name << ": byte " << (differ.first - got.begin()) / 2 << " of " << got.size() / 2 << " and "
                                   << wanted.size() / 2;
    }

    EXPECT_EQ(compared, 12);
}
