// SPDX-License-Identifier: LicenseRef-qxkernel
#include "exprcomp.hpp"

#include "classfile.hpp"
#include "compiler/exprkinds_detail.hpp"
#include "compiler/timed_detail.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <atomic>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace {

std::atomic<unsigned long> nextSerial{1};

/// atof with a decimal point, whatever the process's locale.
double numberAtStart(const char* text)
{
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", locale_t{});
    return plain ? strtod_l(text, nullptr, plain) : std::strtod(text, nullptr);
}

[[noreturn]] void refuseText(const std::string& definition)
{
    QX_RAISE("exprcomp", "Syntax_error_in_expression", "Expression", definition);
}

[[noreturn]] void refuseFile(const std::string& fileName)
{
    QX_RAISE("exprcomp", "Cannot_create_native_file", fileName);
}

} // namespace

std::string qxcompiler::constantText(double value)
{
    std::ostringstream text;
    text.exceptions(std::ios_base::badbit); // a failed allocation is raised, not a text that ends early
    text.imbue(std::locale::classic());
    text << std::setprecision(20) << value;
    return text.str();
}

ExprComp::ExprComp() : serial(nextSerial.fetch_add(1, std::memory_order_relaxed)) {}

ExprComp::~ExprComp() = default;

// Building -----------------------------------------------------------------------------------------------------------

void ExprComp::requireOpen() const
{
    if (compiled)
        QX_RAISE("exprcomp", "QUORIX_assertion_failure");
}

void ExprComp::addInput(int id)
{
    requireOpen();
    inputs.push_back(id);
}

void ExprComp::addOutput(int id)
{
    requireOpen();
    outputs.push_back(id);
}

void ExprComp::add(const Def& def)
{
    requireOpen();
    defs.push_back(def);
}

void ExprComp::addDef(int id, double value)
{
    add(Def(id, value));
}

void ExprComp::addDef(int id, int kind, int a)
{
    add(Def(id, kind, &a, 1));
}

void ExprComp::addDef(int id, int kind, int a, int b)
{
    const int args[] = {a, b};
    add(Def(id, kind, args, 2));
}

void ExprComp::addDef(int id, int kind, int a, int b, int c)
{
    const int args[] = {a, b, c};
    add(Def(id, kind, args, 3));
}

void ExprComp::addDef(int id, int kind, const std::vector<int>& args)
{
    add(Def(id, kind, args.data(), args.size()));
}

void ExprComp::setName(int id, const std::string& name)
{
    requireOpen();
    names.at(names.insertKey(id).slot) = name;
}

std::string ExprComp::getVarName(int id) const
{
    const QxHashLookup hit = names.lookup(id);
    return hit ? names.at(hit.slot) : "_v" + qxutil::toString(id);
}

void ExprComp::parse(const std::vector<std::string>& definitions, const std::vector<std::string>& inputNames,
                     const std::vector<std::string>& outputNames)
{
    requireOpen();
    const qxcompiler::Timed timed(stopwatch["parser"]);

    const auto handleOf = [this](std::string_view name) {
        const int id = getHandle(name);
        if (!names.contains(id))
            setName(id, std::string(name));
        return id;
    };
    const auto read = [&](const std::string& text) {
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos)
            refuseText(text);
        const std::string_view whole(text);
        const int id = handleOf(whole.substr(0, equals));
        const std::size_t open = text.find('(', equals + 1);
        if (open == std::string::npos)
            return Def(id, numberAtStart(text.c_str() + equals + 1));
        if (text.back() != ')')
            refuseText(text);

        // The pieces between commas: one more than there are commas.
        std::array<int, 3> args{};
        std::size_t count = 0;
        std::string_view rest = whole.substr(open + 1, text.size() - open - 2);
        for (;;) {
            const std::size_t comma = rest.find(',');
            if (count == args.size())
                refuseText(text);
            args[count++] = handleOf(rest.substr(0, comma));
            if (comma == std::string_view::npos)
                break;
            rest.remove_prefix(comma + 1);
        }
        const int kind = kindOf(whole.substr(equals + 1, open - equals - 1), static_cast<int>(count));
        if (kind == 0)
            refuseText(text);
        return Def(id, kind, args.data(), count);
    };

    std::vector<Def> newDefs;
    newDefs.reserve(definitions.size());
    for (const std::string& text : definitions)
        newDefs.push_back(read(text));
    std::vector<int> newInputs, newOutputs;
    for (const std::string& name : inputNames)
        newInputs.push_back(handleOf(name));
    for (const std::string& name : outputNames)
        newOutputs.push_back(getHandle(name));

    defs.reserve(defs.size() + newDefs.size());
    inputs.reserve(inputs.size() + newInputs.size());
    outputs.reserve(outputs.size() + newOutputs.size());
    defs.insert(defs.end(), newDefs.begin(), newDefs.end());
    inputs.insert(inputs.end(), newInputs.begin(), newInputs.end());
    outputs.insert(outputs.end(), newOutputs.begin(), newOutputs.end());
}

// Compiling ----------------------------------------------------------------------------------------------------------

void ExprComp::runPasses()
{
    requireOpen();
    compiled = true;
    const auto pass = [this](const char* name, void (ExprComp::*work)()) {
        const qxcompiler::Timed timedPass(stopwatch[name]);
        (this->*work)();
    };
    pass("crossRef", &ExprComp::crossRef);
    pass("topoSort", &ExprComp::topoSort);
    pass("eliminateCommon", &ExprComp::eliminateCommon);
    pass("topoSort", &ExprComp::topoSort);
    pass("allocateRegs", &ExprComp::allocateRegs);
    pass("optimizeStack", &ExprComp::optimizeStack);
    pass("createEval", &ExprComp::createEval);
}

void ExprComp::compile()
{
    const qxcompiler::Timed timed(stopwatch["compile"]);
    runPasses();
}

boost::shared_ptr<ExprComp::ClassFile> ExprComp::compileToClass(const std::string& className,
                                                                const std::string& methodName, bool withMain)
{
    const qxcompiler::Timed timed(stopwatch["compile"]);
    runPasses();
    const qxcompiler::Timed timedCode(stopwatch["createWork"]);
    return createClass(className, methodName, withMain);
}

void ExprComp::compile(const std::string& className, const std::string& methodName, std::vector<unsigned char>& out,
                       bool withMain)
{
    out.clear();
    const boost::shared_ptr<ClassFile> made = compileToClass(className, methodName, withMain);
    const qxcompiler::Timed timed(stopwatch["write"]);
    std::vector<unsigned char> bytes;
    MemoryBytecodeStream stream(bytes);
    made->write(stream);
    out.swap(bytes);
}

void ExprComp::compile(const std::string& className, const std::string& methodName, const std::string& fileName,
                       bool withMain)
{
    std::vector<unsigned char> bytes;
    compile(className, methodName, bytes, withMain);

    std::ofstream file(fileName, std::ios::binary);
    if (!file)
        refuseFile(fileName);
    FileBytecodeStream stream(file);
    stream.write(bytes);
    file.close();
    if (!file) {
        std::error_code ignored;
        if (std::filesystem::is_regular_file(fileName, ignored))
            std::filesystem::remove(fileName, ignored);
        refuseFile(fileName);
    }
}

void ExprComp::compile(const std::string& className, const std::string& methodName, std::vector<unsigned char>& out,
                       const std::vector<std::string>& definitions, const std::vector<std::string>& inputNames,
                       const std::vector<std::string>& outputNames, bool withMain)
{
    out.clear();
    ExprComp own;
    own.parse(definitions, inputNames, outputNames);
    own.compile(className, methodName, out, withMain);
}

void ExprComp::compile(const std::string& className, const std::string& methodName, const std::string& fileName,
                       const std::vector<std::string>& definitions, const std::vector<std::string>& inputNames,
                       const std::vector<std::string>& outputNames, bool withMain)
{
    ExprComp own;
    own.parse(definitions, inputNames, outputNames);
    own.compile(className, methodName, fileName, withMain);
}

// Listing ------------------------------------------------------------------------------------------------------------

void ExprComp::dumpFlatList(std::ostream& out) const
{
    using qxutil::toString;
    const auto list = [&](const std::vector<int>& ids, const char* title) {
        out << toString(ids.size()) << title;
        for (const int id : ids)
            out << "  " << getVarName(id) << '\n';
    };
    list(inputs, " inputs:\n");
    list(outputs, " outputs:\n");
    out << toString(defs.size()) << " original definitions\n"
        << "Topological order, lifetimes and registers:\n";
    for (std::size_t i = 0; i < order.size(); ++i) {
        const Def& def = defs[static_cast<std::size_t>(order[i])];
        const auto d = static_cast<std::size_t>(order[i]);
        std::string line = toString(i) + ": #" + toString(order[i]) + ": (" + toString(lifeRange[d].first) + ", " +
                           toString(lifeRange[d].second) + ") " + (d < regOf.size() ? toString(regOf[d]) : std::string());
        line.resize(std::max<std::size_t>(line.size(), 40), ' ');
        line += getVarName(order[i]) + '=' + def.getName();
        for (int k = 0; k < def.nArgs; ++k)
            line += (k ? ',' : '(') + getVarName(def.args[static_cast<std::size_t>(k)]);
        out << line << (def.nArgs ? ")\n" : "\n");
    }
}
