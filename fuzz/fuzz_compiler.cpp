// SPDX-License-Identifier: LicenseRef-qxkernel
// The compiler on any list of definitions, as ids and kinds or as text: a class whose code an independent simulation of the
// operand stack accepts and a tape that runs, or one of the documented failures.
#include "exprcomp.hpp"
#include "qxexception.hpp"
#include "tests/compiler/class_reader.hpp"

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace {

/// Numbers from the input, 0 behind its end.
class Source
{
public:
    Source(const std::uint8_t* data, std::size_t size) : data_(data), end_(data + size) {}
    bool empty() const { return data_ == end_; }
    int byte() { return empty() ? 0 : *data_++; }

private:
    const std::uint8_t *data_, *end_;
};

/// Inputs are -1, -2, ...; definition i is i. Arguments are mostly earlier definitions, now and then anything.
void feedList(ExprComp& comp, Source source)
{
    const int nInputs = source.byte() % 5;
    for (int i = 0; i < nInputs; ++i)
        comp.addInput(-1 - i);
    const int nOutputs = source.byte() % 4;
    std::vector<int> outputs;
    for (int i = 0; i < nOutputs; ++i)
        outputs.push_back(source.byte());
    int n = 0;
    for (; !source.empty(); ++n) {
        const int kind = source.byte() % 58;
        const auto argument = [&] {
            const int b = source.byte();
            if (b == 255)
                return b;
            if (b >= 192)
                return -1 - b % (nInputs + 1);
            return n == 0 ? -1 : b < 128 ? n - 1 - b % n % 8 : b % n;
        };
        switch (ExprComp::nArgsOf(kind)) {
        case 0:
            comp.addDef(n, 0.25 * (source.byte() - 128));
            break;
        case 1: comp.addDef(n, kind, argument()); break;
        case 2: {
            const int a = argument();
            comp.addDef(n, kind, a, argument());
            break;
        }
        case 3: {
            const int a = argument(), b = argument();
            comp.addDef(n, kind, a, b, argument());
            break;
        }
        default: comp.addDef(n, 1.0); break;
        }
    }
    for (const int id : outputs)
        comp.addOutput(n == 0 ? id : id % 7 == 6 ? -1 - id % 4 : n - 1 - id % n);
}

/// The first line names the inputs, the second the outputs, both at commas; the others are definitions.
void feedText(ExprComp& comp, const std::string& text)
{
    const auto pieces = [](const std::string& whole, char separator) {
        std::vector<std::string> parts;
        for (std::size_t from = 0, to; from <= whole.size(); from = to + 1) {
            to = std::min(whole.find(separator, from), whole.size());
            parts.push_back(whole.substr(from, to - from));
        }
        return parts;
    };
    std::vector<std::string> lines = pieces(text, '\n');
    lines.resize(std::max<std::size_t>(lines.size(), 2));
    comp.parse({lines.begin() + 2, lines.end()}, pieces(lines[0], ','), pieces(lines[1], ','));
}

bool isDocumented(const std::string& id)
{
    for (const char* start : {"Syntax_error_in_expression", "Duplicate input: ", "Duplicate definition of ",
                              "Undefined inputs: ", "Output #", "Cyclic dependency for definition #",
                              "Compilation failed: Too many different constants."})
        if (id.rfind(start, 0) == 0)
            return true;
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    ExprComp comp;
    std::vector<unsigned char> bytes;
    try {
        if (data[0] % 4 == 0)
            feedText(comp, std::string(reinterpret_cast<const char*>(data + 1), size - 1));
        else
            feedList(comp, Source(data + 1, size - 1));
        comp.compile("F", "f", bytes, data[0] % 2 == 1);
    } catch (const qxbase::Exception& raised) {
        if (!isDocumented(raised.getId()) || !bytes.empty())
            std::abort();
        return 0;
    }
    try {
        const qxtest::ClassReader read(bytes);
        qxtest::CodeChecker(read).checkAll();
        qxtest::ClassReader::require(read.longestMethod() <= 8000, "a method is too long");
    } catch (const std::runtime_error& fault) {
        std::cerr << fault.what() << '\n';
        std::abort();
    }
    std::vector<double> in(comp.getInputCount(), 0.75), out;
    try {
        comp.eval(in, out);
        if (out.size() != comp.getOutputCount())
            std::abort();
    } catch (const qxbase::Exception& raised) {
        const std::string id = raised.getId();
        if (id != "Sqrt_of_negative" && id != "Log_of_negative" && id != "Real_argument_out_of_range" && id != "Power_of_negative")
            std::abort();
    }
    return 0;
}
