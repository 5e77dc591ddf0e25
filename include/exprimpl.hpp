// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprtree.hpp"
#include "exprvar.hpp"
#include "qxexport.hpp"

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <deque>
#include <iosfwd>
#include <map>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qxutil {
class RunInfo;
}

/// Converts infix text to prefix text by the library's own grammar (symbolic/README.md); empty means a syntax error.
/// Cost: linear in the text in time and memory, no recursion. Threads: any.
QX_API std::string qxInfixToPrefix(const std::string& infix);

/// Where and why infix text does not read.
struct InfixError
{
    std::size_t position = 0; ///< bytes before the place
    std::string expected;     ///< what might have stood there; empty: no error
};

/// The same, and what is wrong where the result is empty.
QX_API std::string qxInfixToPrefix(const std::string& infix, InfixError& error);

/// Converts infix text to prefix text by the static method parseExprToInfix of the Java class
/// com/quorix/parser/expr/ExprParser; empty means a syntax error. Raises "Internal_error_callback" if the class or the
/// method is missing or the method returns null, "JNI_exception" if the Java string cannot be made. Needs a VM.
QX_API std::string qxInfixToPrefixByJava(const std::string& infix);

using InfixConverter = std::string (*)(const std::string&);

/// Forces the converter that ExprImpl::scan uses, process-wide. Null, the default, lets scan choose: the Java method if
/// there is a virtual machine, otherwise qxInfixToPrefix.
QX_API void setInfixConverter(InfixConverter converter);

/// A symbolic expression: a tree of shared nodes that is read from text, brought to a canonical form, differentiated,
/// solved and printed.
///
/// Everything that walks a tree is iterative and visits a shared node once, so that depth is limited by memory alone and
/// time is linear in the number of distinct nodes.
///
/// Ownership: nodes are held by shared pointers; a child slot is such a pointer, so that an operation on nodes replaces a
/// node by assigning to the slot that holds it. A copy of an ExprImpl shares the root until one of the two is rewritten:
/// members of this class rewrite a copy of the nodes and put it in the root's place when all has gone well.
/// Threads: one family (a FuncRules and the nodes that share it) belongs to one thread at a time. No locks.
/// Fails: with qxbase::Exception, source "exprimpl". std::bad_alloc passes through from every member. Whatever comes out,
/// the expression prints as before the call, and out parameters are unchanged.
class QX_API ExprImpl
{
public:
    class Number;
    class Node;
    class Unary;
    class Binary;
    class FuncCall;
    class Derivative;
    class List;
    class Vector;
    class UnitConversion;
    class Identifier;
    class LiteralValue;
    class StringLiteral;
    class UnparsedNumber;
    class Constant;
    class Term;
    class Sum;
    class NodeHashTable;
    class BuiltinFunc;
    class FuncRules;
    class InfixParser;
    class Printer;
    class DiffPass;

    using NodePtr = boost::shared_ptr<Node>;
    using Nodes = std::vector<NodePtr>;
    using RulesPtr = boost::shared_ptr<FuncRules>;
    using VarPtr = boost::shared_ptr<ExprVar>;
    using StorePtr = boost::shared_ptr<ExprVarStore>;
    using RulePairs = ExprTree::RulePairs;
    using NameMap = std::unordered_map<std::string, std::string>;

    /// The constant 0 on a new store.
    ExprImpl();
    /// root null: the constant 0.
    ExprImpl(const StorePtr& store, const NodePtr& root);
    ExprImpl(const StorePtr& store, const RulePairs& rules);
    /// Shares store and root; gets rules of its own without the host's extra ones. Nodes keep the rules they have.
    ExprImpl(const ExprImpl& other);
    ExprImpl& operator=(const ExprImpl& other);
    ~ExprImpl();

    /// Reads a user's infix text into the root: digits only become an UnparsedNumber, a plain name an Identifier, all
    /// else goes through a converter to prefix text (see setInfixConverter).
    /// Raises "Syntax_error_in_expression" with "Expression" and the text; what the converter raises. The library's own
    /// converter adds "Position" (the byte at fault, from 1), "Line", "Expected" and "Excerpt" (the line, and below it a
    /// caret, which counts characters). The root is then as it was.
    void scan(const std::string& text);
    /// The tree that scan makes the root.
    NodePtr read(const std::string& text) const;
    /// Reads prefix text into the root; see InfixParser::parse.
    void scanInfix(const std::string& text);
    void write(std::ostream& stream) const;
    std::string toString() const;

    /// Canonical form. evalFuncs also evaluates elementary functions of constants. Idempotent once no rule fires.
    /// Raises "Divide_by_zero", "Power_of_negative". Optional info is asked whether to stop, at least every 20,000 nodes or
    /// factors looked at (qxbase::CancelException).
    void simp(bool evalFuncs, const qxutil::RunInfo* info = nullptr);
    /// Substitutes names by definitions (prefix texts) and simplifies. Raises "Internal_error_symbolic_processing" for
    /// vectors of different length, "Cyclic_dependencies" with "Variable_name".
    void simp(const std::vector<std::string>& names, const std::vector<std::string>& exprs);
    /// Turns Sum and Term back into Binary and Unary, and squares added to each other into TypeSquareSum.
    void makeBinary();
    /// Derivative by var, simplified. Expects a simplified tree: raises "Internal_error_symbolic_processing" with "Reason" at
    /// a TypeAdd, TypeSub, TypeMul or TypeDiv node, "Differentiation_rule_missing" with "Function" and the name. info as for simp.
    void diff(const VarPtr& var, const qxutil::RunInfo* info = nullptr);
    /// Solves expression = 0 for var. True if a term of the root is var or a number times var; further occurrences of
    /// var in the other terms are not looked for.
    bool solveFor(const VarPtr& var, ExprImpl& result) const;

    void rename(const NameMap& vars, const NameMap& functions);
    void replaceVars(const ExprVarMap& map, const std::string& timeName);
    void getVarOccurrences(ExprVarOccurrences& set) const;
    void boolEval(const std::vector<std::string>& names, const std::vector<Array<int, 2>>& values,
                  Array<int, 2>& result);

    const NodePtr& getRoot() const { return root_; }
    NodePtr& getRoot() { return root_; }
    void setRoot(const NodePtr& root) { root_ = root; }
    const RulesPtr& getRules() const { return rules_; }
    const StorePtr& getStore() const { return store_; }

private:
    static NodePtr adopt(const NodePtr& root, bool evalFuncs);
    template <class Prepare> NodePtr canonical(const NodePtr& root, bool evalFuncs, Prepare&& prepare) const;
    void adoptRules(const RulesPtr& rules);
    void dropRules() noexcept;

    StorePtr store_;
    RulesPtr rules_;
    NodePtr root_;
};

QX_API std::ostream& operator<<(std::ostream& stream, const ExprImpl& expr);

/// An integer, a rational or a real number, all on doubles. The smaller the code of its type, the more general the kind.
///
/// A Rational num/den has integral members, den > 0, num not 0, den not 1, in lowest terms unless the larger magnitude
/// is 1e15 or more. An Integer is integral and below 1e15 in magnitude; den is 1 for it and for a Real.
/// Overflow raises nothing: infinities and NaN travel in num. A plain value.
class QX_API ExprImpl::Number
{
public:
    enum Type : std::int32_t { Real = 1, Rational = 2, Integer = 3 };

    /// Integer 0.
    Number() = default;
    Number(int n) : num(n) {}
    /// Integer if d is integral and |d| < 1e15, otherwise Real.
    Number(double d);
    /// n/d in lowest terms; the Real n/d if one of them is not integral. Raises "Divide_by_zero" if d is 0.
    Number(int n, int d) : Number(double(n), double(d)) {}
    Number(double n, double d);

    static Number plus(const Number& a, const Number& b);
    static Number minus(const Number& a, const Number& b);
    static Number times(const Number& a, const Number& b);
    /// Exact for integers: 7/2 is Rational. Raises "Divide_by_zero".
    static Number divide(const Number& a, const Number& b);
    static Number negate(const Number& a);
    /// a^b; a^0 is 1, also for a = 0. Integral exponents below 1e9 by squaring, with the double value of the base as
    /// multiplier: an odd power of 3 or more of a Rational ends Real. The exponents 1 and -1 square the base 32 times
    /// first, so that any base but 0, 1 and -1 overflows or underflows: callers that mean the base itself must not ask.
    /// Raises "Power_of_negative", "Divide_by_zero".
    static Number power(const Number& a, const Number& b);

    /// Rationals by cross-multiplication.
    static bool eq(const Number& a, const Number& b);
    static bool eq(const Number& a, double b);
    static bool lt(const Number& a, const Number& b);
    static bool ge(const Number& a, const Number& b);

    double toReal() const { return num / den; }
    /// Mixes the bits of num and den; type takes no part.
    std::uint32_t getHashCode() const;
    /// "2/3", "0.25", "Inf", ... with at most 16 digits.
    void write(std::ostream& stream) const;
    std::string toString() const;
    /// What is printed: (|num|, den) as a fraction for den 3 or 7, (1, den) for short periodic 1/den, otherwise
    /// (|value|, 1).
    std::pair<Number, Number> getOutputFormat() const;
    /// Lowest terms; an integral value becomes Integer.
    void simplifyRational();
    /// Brings both to the more general type of the two.
    static void promoteTypes(Number& a, Number& b);

    Type type = Integer;
    double num = 0.0;
    double den = 1.0;
};

inline ExprImpl::Number operator+(const ExprImpl::Number& a, const ExprImpl::Number& b) { return ExprImpl::Number::plus(a, b); }
inline ExprImpl::Number operator-(const ExprImpl::Number& a, const ExprImpl::Number& b) { return ExprImpl::Number::minus(a, b); }
inline ExprImpl::Number operator*(const ExprImpl::Number& a, const ExprImpl::Number& b) { return ExprImpl::Number::times(a, b); }
inline ExprImpl::Number operator/(const ExprImpl::Number& a, const ExprImpl::Number& b) { return ExprImpl::Number::divide(a, b); }
/// Power. Binds weaker than the other operators of C++: put it in parentheses.
inline ExprImpl::Number operator^(const ExprImpl::Number& a, const ExprImpl::Number& b) { return ExprImpl::Number::power(a, b); }
inline ExprImpl::Number operator-(const ExprImpl::Number& a) { return ExprImpl::Number::negate(a); }
inline bool operator==(const ExprImpl::Number& a, const ExprImpl::Number& b) { return ExprImpl::Number::eq(a, b); }
inline bool operator!=(const ExprImpl::Number& a, const ExprImpl::Number& b) { return !ExprImpl::Number::eq(a, b); }
inline bool operator<(const ExprImpl::Number& a, const ExprImpl::Number& b) { return ExprImpl::Number::lt(a, b); }
inline bool operator>(const ExprImpl::Number& a, const ExprImpl::Number& b) { return ExprImpl::Number::lt(b, a); }
inline bool operator<=(const ExprImpl::Number& a, const ExprImpl::Number& b) { return ExprImpl::Number::ge(b, a); }
inline bool operator>=(const ExprImpl::Number& a, const ExprImpl::Number& b) { return ExprImpl::Number::ge(a, b); }
inline bool operator==(const ExprImpl::Number& a, double b) { return ExprImpl::Number::eq(a, b); }
inline bool operator==(double a, const ExprImpl::Number& b) { return ExprImpl::Number::eq(b, a); }
inline bool operator!=(const ExprImpl::Number& a, double b) { return !ExprImpl::Number::eq(a, b); }
QX_API std::ostream& operator<<(std::ostream& stream, const ExprImpl::Number& number);

/// One node of an expression.
///
/// Operations that take a slot may replace the node by assigning to it. Each walks the whole subtree below the slot with
/// an explicit stack and calls the step of each distinct node once, children first; classes override the steps (at the
/// end) and not the walks.
class QX_API ExprImpl::Node
{
public:
    /// The numbers go straight into hash codes and are spread for that.
    enum Type : std::uint32_t {
        TypeUnaryPlus = 0x4a8dac2f,
        TypeUnaryMinus = 0x547a65c4,
        TypeUnaryNot = 0x78bce433,
        TypeAdd = 0x2e6fd784,
        TypeSub = 0x30ae65d4,
        TypeSquareSum = 0x4131f29c, ///< left^2 + right^2
        TypeMul = 0x7e40222b,
        TypeDiv = 0x444ffd0b,
        TypePow = 0x16669e31,
        TypeLess = 0x43810e84,
        TypeGreater = 0x3f9546e7,
        TypeLessEq = 0x52718fc1,
        TypeGreaterEq = 0x06459685,
        TypeEqual = 0x79c77fb4,
        TypeNotEqual = 0x5508a70a,
        TypeAnd = 0x1d5470e4,
        TypeOr = 0x75f1e21a,
        TypeFuncCall = 0x595bed6b,
        TypeDerivative = 0x7a8146e4,
        TypeList = 0x671c1748,
        TypeVector = 0x39512698,
        TypeUnitConversion = 0x79cf3ab5,
        TypeIdentifier = 0x21f6d32a,
        TypeConstant = 0x2d8b73bf,
        TypeTerm = 0x1c77b231,
        TypeSum = 0x1d979620,
        TypeStringLiteral = 0x098267a3,
        TypeUnparsedNumber = 0x2970fd24
    };

    virtual ~Node();
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    /// "Unary", "Binary", "FuncCall", "Derivative", "List", "Vector", "UnitConversion", "Identifier", "LiteralValue",
    /// "Constant", "Term" or "Sum".
    virtual const char* getTypeName() const = 0;
    virtual int getChildCount() const = 0;
    /// The child slot. Raises "Internal_error_symbolic_processing" for an index out of range and for any on a leaf.
    virtual NodePtr& getChild(int i) = 0;
    /// The value of a Constant. Raises "Internal_error_symbolic_processing" for any other class.
    virtual const Number& getNumVal() const;
    /// Same expression node by node. Term and Sum compare their lists by pointer, in any order: right for canonical
    /// trees only.
    virtual bool equals(const NodePtr& other);
    /// Built on the addresses of the children: means something only once these are canonical, and within one run.
    virtual std::uint32_t getHashCode();
    /// Deep copy: fresh interior nodes, shared leaves; what was shared inside is shared inside the copy.
    virtual NodePtr getCopy(const NodePtr& slot) const;
    /// Additive chains become Sum, multiplicative chains Term, number texts constants.
    virtual void mergeOperators(NodePtr& slot);
    virtual void makeBinary(NodePtr& slot);
    virtual void foldConstants(NodePtr& slot);
    /// Makes equal subtrees one object.
    virtual void makeCanonic(NodePtr& slot, NodeHashTable& table);
    /// One round of rewriting; says whether anything changed.
    virtual bool simplify(NodePtr& slot, bool evalFuncs);
    /// Renames variables (through the store) and functions, each node once.
    virtual void rename(const NameMap& vars, const NameMap& functions, const StorePtr& store);
    /// A new tree with (variable, order) replaced by map; what map does not hold stays.
    virtual NodePtr replaceVars(const NodePtr& slot, const ExprVarMap& map, const std::string& timeName);
    /// A new tree, not simplified.
    virtual NodePtr diff(const NodePtr& slot, const VarPtr& var) const;
    /// Raises "Unknown_variable_name" and "Unimplemented_operator" with "Name".
    virtual void boolEval(const std::vector<std::string>& names, const std::vector<Array<int, 2>>& values,
                          std::vector<Array<int, 2>>& work, int slot);
    /// In parentheses if outer binds stronger than this node.
    virtual void writeParen(std::ostream& stream, int outer) const;
    virtual void writeNoParen(std::ostream& stream) const;
    virtual void getVarOccurrences(ExprVarOccurrences& set, int order) const;
    virtual bool solveFor(const VarPtr& var, ExprImpl& result);

    static bool equals(const NodePtr& a, const NodePtr& b) { return a == b || a->equals(b); }
    /// Same pointers in any order.
    static bool equalsWithoutOrder(const Nodes& a, const Nodes& b);
    static Nodes getCopy(const Nodes& nodes);
    /// Substitutes the definition defs[i] for the variable vars[i] everywhere, in definitions too. status[i] is 0 for an
    /// open definition, 1 for one in work, 2 for a finished one. True if anything changed. Raises "Cyclic_dependencies"
    /// with "Variable_name".
    static bool simplify(NodePtr& slot, const std::vector<VarPtr>& vars, Nodes& defs, std::vector<int>& status);
    std::string toString() const;
    void write(std::ostream& stream) const;
    /// One line per node: indent blanks, class name; one blank more for each level.
    void dump(std::ostream& stream, int indent) const;

    const NodePtr& childAt(int i) const { return const_cast<Node*>(this)->getChild(i); }
    template <class T> T& as() { return static_cast<T&>(*this); }
    template <class T> const T& as() const { return static_cast<const T&>(*this); }

    /// What a rewriting step did to its node.
    enum class Effect {
        None,
        Quiet, ///< changed it, but needs no further round
        Change
    };

    // Steps: what one node does in a walk, its children being done. All default to doing nothing.

    /// Children that mergeOperators visits ahead of this node's step: those of the whole chain of operators of one kind.
    virtual void collectOperands(NodePtr& slot, std::vector<NodePtr*>& operands);
    virtual void mergeStep(NodePtr& slot);
    virtual void binaryStep(NodePtr& slot);
    virtual void foldStep(NodePtr& slot);
    virtual Effect simplifyStep(NodePtr& slot, bool evalFuncs);
    /// Data other than the children are the same. The types are known to agree.
    virtual bool sameNode(const Node& other) const;
    /// The same class with other children, which are moved from. Raises "Internal_error_symbolic_processing" if this class has children and
    /// does not override it.
    virtual NodePtr rebuild(const NodePtr& slot, std::span<NodePtr> children) const;
    /// Children whose derivatives diffStep asks for.
    virtual void diffOperands(std::vector<const NodePtr*>& operands) const;
    virtual NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const = 0;
    virtual void printParts(Printer& printer) const = 0;
    /// Binding strength used in front of a parenthesis test.
    virtual int printPrec() const { return prec; }
    virtual void renameStep(const NameMap& vars, const NameMap& functions, const StorePtr& store);
    /// The node that solveFor is to ask instead of this one; null: this one has answered through solved.
    virtual NodePtr solveStep(const VarPtr& var, ExprImpl& result, bool& solved);

    const RulesPtr rules;
    const Type type;
    /// Binding strength in print; 1000 for what never needs parentheses.
    const int prec;
    /// Number of the walk that visited this node last.
    mutable std::uint64_t mark = 0;
    /// Number of the simplification in which no pass changes this node, or any below it, any more: later rounds pass it by.
    mutable std::uint64_t settled = 0;
    /// The hash code of this node, right in the walk that has this number and as long as the node is settled.
    mutable std::uint64_t codeMark = 0;
    mutable std::uint32_t code = 0;
    /// What simplification has found stable for good: 0 nothing, 1 this node and all below it as long as they are as they
    /// are (which code tells), 2 also with functions evaluated. Not where the kind of a variable decides.
    mutable std::uint8_t lasting = 0;

protected:
    Node(const RulesPtr& nodeRules, Type nodeType, int nodePrec) : rules(nodeRules), type(nodeType), prec(nodePrec) {}
    static std::uint32_t hashChildren(Node& node);
};

/// Sign or logical not. Raises "Internal_error_symbolic_processing" for another type.
class QX_API ExprImpl::Unary final : public ExprImpl::Node
{
public:
    Unary(const RulesPtr& rules, Type type, const NodePtr& child);
    ~Unary() override;
    const char* getTypeName() const override;
    int getChildCount() const override;
    NodePtr& getChild(int i) override;

    void collectOperands(NodePtr& slot, std::vector<NodePtr*>& operands) override;
    void mergeStep(NodePtr& slot) override;
    NodePtr rebuild(const NodePtr& slot, std::span<NodePtr> children) const override;
    void diffOperands(std::vector<const NodePtr*>& operands) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;

    NodePtr child;
};

/// Arithmetic, comparison or logical operation of two. Raises "Internal_error_symbolic_processing" for another type.
class QX_API ExprImpl::Binary final : public ExprImpl::Node
{
public:
    Binary(const RulesPtr& rules, Type type, const NodePtr& left, const NodePtr& right);
    ~Binary() override;
    const char* getTypeName() const override;
    int getChildCount() const override;
    NodePtr& getChild(int i) override;

    void collectOperands(NodePtr& slot, std::vector<NodePtr*>& operands) override;
    void mergeStep(NodePtr& slot) override;
    void binaryStep(NodePtr& slot) override;
    void foldStep(NodePtr& slot) override;
    Effect simplifyStep(NodePtr& slot, bool evalFuncs) override;
    NodePtr rebuild(const NodePtr& slot, std::span<NodePtr> children) const override;
    void diffOperands(std::vector<const NodePtr*>& operands) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;

    NodePtr left;
    NodePtr right;
};

/// A function of the expression language applied to arguments.
class QX_API ExprImpl::FuncCall final : public ExprImpl::Node
{
public:
    FuncCall(const RulesPtr& rules, const std::string& name, Nodes args);
    FuncCall(const RulesPtr& rules, const std::string& name, const NodePtr& arg);
    ~FuncCall() override;
    const char* getTypeName() const override;
    int getChildCount() const override;
    NodePtr& getChild(int i) override;
    std::uint32_t getHashCode() override;

    Effect simplifyStep(NodePtr& slot, bool evalFuncs) override;
    bool sameNode(const Node& other) const override;
    NodePtr rebuild(const NodePtr& slot, std::span<NodePtr> children) const override;
    void diffOperands(std::vector<const NodePtr*>& operands) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;
    void renameStep(const NameMap& vars, const NameMap& functions, const StorePtr& store) override;

    std::string name;
    /// Of the name the node was made with; rename leaves it.
    std::uint32_t nameHash;
    Nodes args;
};

/// d child / d var, not carried out.
class QX_API ExprImpl::Derivative final : public ExprImpl::Node
{
public:
    Derivative(const RulesPtr& rules, const NodePtr& child, const VarPtr& var);
    ~Derivative() override;
    const char* getTypeName() const override;
    int getChildCount() const override;
    NodePtr& getChild(int i) override;
    std::uint32_t getHashCode() override;

    Effect simplifyStep(NodePtr& slot, bool evalFuncs) override;
    bool sameNode(const Node& other) const override;
    NodePtr rebuild(const NodePtr& slot, std::span<NodePtr> children) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;

    NodePtr child;
    VarPtr var;
};

/// Expressions separated by commas.
class QX_API ExprImpl::List : public ExprImpl::Node
{
public:
    List(const RulesPtr& rules, Nodes items);
    ~List() override;
    const char* getTypeName() const override;
    int getChildCount() const override;
    NodePtr& getChild(int i) override;

    NodePtr rebuild(const NodePtr& slot, std::span<NodePtr> children) const override;
    void diffOperands(std::vector<const NodePtr*>& operands) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;

    Nodes items;

protected:
    List(const RulesPtr& rules, Type type, Nodes items);
};

/// Expressions in square brackets; a matrix is a Vector of Lists, one per row.
class QX_API ExprImpl::Vector final : public ExprImpl::List
{
public:
    Vector(const RulesPtr& rules, Nodes items);
    const char* getTypeName() const override;

    NodePtr rebuild(const NodePtr& slot, std::span<NodePtr> children) const override;
    void printParts(Printer& printer) const override;
};

/// value[unit].
class QX_API ExprImpl::UnitConversion final : public ExprImpl::Node
{
public:
    UnitConversion(const RulesPtr& rules, const NodePtr& value, const NodePtr& unit);
    ~UnitConversion() override;
    const char* getTypeName() const override;
    int getChildCount() const override;
    NodePtr& getChild(int i) override;

    NodePtr rebuild(const NodePtr& slot, std::span<NodePtr> children) const override;
    void diffOperands(std::vector<const NodePtr*>& operands) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;

    NodePtr value;
    NodePtr unit;
};

/// A variable.
class QX_API ExprImpl::Identifier final : public ExprImpl::Node
{
public:
    Identifier(const RulesPtr& rules, const VarPtr& var);
    const char* getTypeName() const override;
    int getChildCount() const override;
    NodePtr& getChild(int i) override;
    std::uint32_t getHashCode() override;

    bool sameNode(const Node& other) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;
    void renameStep(const NameMap& vars, const NameMap& functions, const StorePtr& store) override;
    NodePtr solveStep(const VarPtr& var, ExprImpl& result, bool& solved) override;

    VarPtr var;
};

/// A leaf that is a text.
class QX_API ExprImpl::LiteralValue : public ExprImpl::Node
{
public:
    const char* getTypeName() const override;
    int getChildCount() const override;
    NodePtr& getChild(int i) override;
    std::uint32_t getHashCode() override;

    bool sameNode(const Node& other) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;

    const std::string text;
    const std::uint32_t textHash;

protected:
    LiteralValue(const RulesPtr& rules, Type type, const std::string& text);
};

class QX_API ExprImpl::StringLiteral final : public ExprImpl::LiteralValue
{
public:
    StringLiteral(const RulesPtr& rules, const std::string& text);

    void printParts(Printer& printer) const override;
};

/// A number as it was written. mergeOperators makes it a Constant: a short rational if a continued fraction with terms
/// below 10^7 reproduces the value to ten units in the last place, otherwise the double.
class QX_API ExprImpl::UnparsedNumber final : public ExprImpl::LiteralValue
{
public:
    /// Reads the longest number at the start of the text; what follows is ignored. Raises "Syntax_error_in_expression"
    /// with "Expression" and the text if there is none or it overflows.
    UnparsedNumber(const RulesPtr& rules, const std::string& text);

    void mergeStep(NodePtr& slot) override;

    const double value;
};

class QX_API ExprImpl::Constant final : public ExprImpl::Node
{
public:
    Constant(const RulesPtr& rules, const Number& value);
    const char* getTypeName() const override;
    int getChildCount() const override;
    NodePtr& getChild(int i) override;
    const Number& getNumVal() const override;
    std::uint32_t getHashCode() override;

    bool sameNode(const Node& other) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;
    int printPrec() const override;

    const Number value;
    const std::uint32_t hash;
};

/// coeff * product(num) / product(den). After a canonical pass no factor is a Term, Constant, TypeMul, TypeDiv, sign, or
/// Sum of fewer than two terms and constant 0.
class QX_API ExprImpl::Term final : public ExprImpl::Node
{
public:
    /// The product that a node stands for, negated if so asked.
    Term(const RulesPtr& rules, const NodePtr& node, bool negate);
    Term(const RulesPtr& rules, Nodes num, Nodes den, const Number& coeff);
    ~Term() override;
    const char* getTypeName() const override;
    int getChildCount() const override;
    /// Through num first and den after.
    NodePtr& getChild(int i) override;
    std::uint32_t getHashCode() override;

    void binaryStep(NodePtr& slot) override;
    void foldStep(NodePtr& slot) override;
    Effect simplifyStep(NodePtr& slot, bool evalFuncs) override;
    bool sameNode(const Node& other) const override;
    NodePtr rebuild(const NodePtr& slot, std::span<NodePtr> children) const override;
    void diffOperands(std::vector<const NodePtr*>& operands) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;
    NodePtr solveStep(const VarPtr& var, ExprImpl& result, bool& solved) override;

    /// Splices the chain of products, quotients, signs and Terms below node into coeff, num and den; invert: as a
    /// divisor.
    static void expand(const NodePtr& node, bool invert, Number& coeff, Nodes& num, Nodes& den);
    /// Restores the invariant after a pass has changed a factor; true if there was something to do.
    bool updateFactors();
    /// Makes one power of all factors with the same base (by pointer); true if there were such factors.
    bool collectPowers();
    /// Of the factors alone: like terms have the same.
    std::uint32_t getQuotientHashCode() const;
    const Number& getCoeff() const { return coeff; }
    /// The invariant above.
    bool isCanonical() const;

    Number coeff;
    Nodes num;
    Nodes den;
};

/// constant + sum(terms). After a canonical pass each term is a Term or an Identifier.
class QX_API ExprImpl::Sum final : public ExprImpl::Node
{
public:
    /// The sum that a node stands for.
    Sum(const RulesPtr& rules, const NodePtr& node);
    Sum(const RulesPtr& rules, Nodes terms, const Number& constant);
    ~Sum() override;
    const char* getTypeName() const override;
    int getChildCount() const override;
    NodePtr& getChild(int i) override;
    std::uint32_t getHashCode() override;

    void binaryStep(NodePtr& slot) override;
    void foldStep(NodePtr& slot) override;
    Effect simplifyStep(NodePtr& slot, bool evalFuncs) override;
    bool sameNode(const Node& other) const override;
    NodePtr rebuild(const NodePtr& slot, std::span<NodePtr> children) const override;
    void diffOperands(std::vector<const NodePtr*>& operands) const override;
    NodePtr diffStep(const NodePtr& slot, DiffPass& pass) const override;
    void printParts(Printer& printer) const override;
    NodePtr solveStep(const VarPtr& var, ExprImpl& result, bool& solved) override;

    /// Splices the chain of sums, differences, signs and Sums below node into constant and terms.
    static void expand(const NodePtr& node, bool negate, Number& constant, Nodes& terms);
    /// Restores the invariant after a pass has changed a term.
    bool updateTerms();
    /// Makes one term of all terms that differ by their number only; true if there were such terms.
    bool collectLikeTerms();
    /// Balanced binary sum of terms[lo .. hi).
    NodePtr toBinary(int lo, int hi) const;
    bool isCanonical() const;

    Number constant;
    Nodes terms;
};

/// One node for each hash code. A second node with the same code replaces the first: that costs a missed sharing only.
class QX_API ExprImpl::NodeHashTable
{
public:
    void addNode(std::uint32_t code, const NodePtr& node);
    bool getNode(std::uint32_t code, NodePtr& out) const;
    /// The place of the node with that code, empty if there is none yet; valid until the next call.
    NodePtr& slot(std::uint32_t code);
    void clear();
    std::size_t size() const { return size_; }

private:
    struct Entry
    {
        std::uint32_t code = 0;
        NodePtr node;
    };
    std::size_t find(std::uint32_t code) const;
    void grow();

    std::vector<Entry> entries_; // open addressing; the size is a power of two, at most half of it in use
    std::size_t size_ = 0;
    int shift_ = 32;
};

/// An elementary function on numbers; one class, in exprimpl_rules.cpp, for each.
class QX_API ExprImpl::BuiltinFunc
{
public:
    virtual ~BuiltinFunc();
    /// False if the number of arguments is wrong or the function declines them.
    virtual bool eval(const std::vector<double>& args, double& result) const = 0;
};

/// What all nodes of one family share: differentiation rules, elementary functions, a small cache of constants, and the
/// queue of nodes waiting to be released.
///
/// An ExprImpl makes one and empties its caches when it goes, which breaks the reference cycle between the cached nodes
/// and this object; from then on nothing is cached any more, so that nodes that live on cannot rebuild the cycle.
/// Threads: one at a time.
class QX_API ExprImpl::FuncRules : public boost::enable_shared_from_this<ExprImpl::FuncRules>
{
public:
    /// Parameters (identifiers) and the partial derivative by each.
    struct DiffRule
    {
        Nodes params;
        Nodes derivs;
    };
    using DiffRulePtr = boost::shared_ptr<const DiffRule>;

    explicit FuncRules(const StorePtr& store);
    ~FuncRules();

    /// The rule of a function of n arguments: from the built-in table, otherwise from the host's rules.
    /// Raises "Differentiation_rule_missing" and "Syntax_error_in_differentiation_rule", both with "Function"; the
    /// reader's errors for a rule whose text does not read. Rules are read when first asked for.
    DiffRulePtr getDiffRule(const std::string& name, int argCount);
    /// Prefix texts: a function call whose arguments are the parameters, and its derivative or list of derivatives. A
    /// built-in rule cannot be replaced.
    void addDiffRule(const std::string& functionText, const std::string& derivativeText);
    /// Chain rule: sum of args[i]' times the i-th partial derivative at args. argDerivs[i] is args[i]'.
    NodePtr diff(const std::string& name, const Nodes& args, const Nodes& argDerivs);
    NodePtr diff(const std::string& name, const Nodes& args, const VarPtr& var);
    /// A copy of node with each parameter replaced by its argument, which is shared and not copied.
    static NodePtr subst(const NodePtr& node, const Nodes& params, const Nodes& args);
    /// False if the function is unknown or declines.
    static bool evalElemFunc(const std::string& name, const std::vector<double>& args, double& result);

    /// A node for d, from a cache of the ten made last.
    NodePtr constant(double d);
    /// A node for n; looks in the same cache but does not enter it.
    NodePtr constant(const Number& n);

    /// Queues a node for release by gc.
    void markForGc(const NodePtr& node);
    /// Releases what is queued, however deep, without recursion.
    void gc();
    /// Empties the caches for good.
    void clear();

    const StorePtr& getStore() const { return store_; }

private:
    friend class ExprImpl;

    DiffRulePtr readRule(const std::string& name, int argCount);
    NodePtr parseRule(const std::string& text);

    StorePtr store_;
    std::map<std::pair<std::string, int>, DiffRulePtr> diffRules_;
    RulePairs extraRules_;
    NodeHashTable ruleTable_;
    std::vector<std::pair<double, NodePtr>> constants_;
    Nodes gcQueue_;
    bool caching_ = true;
    int owners_ = 0;
};

/// Reader of prefix text: tokens separated by white space, each operator ahead of its operands.
///
///   U+ U- !                        one operand: signs, not
///   + - * / ^ == != <= >= < > && ||   two operands
///   () name n e1 ... en            function call
///   (UNIT) value unit              (DIFF) expression variable
///   , n e1 ... en                  list            (MAT) n e1 ... en   vector
///   "" n c1...cn                   string of n bytes after one separator
///   anything else                  a name (letters, digits, _) or a number
///
/// Within one text all occurrences of a name or number are one node. Iterative; cost linear in the text.
class QX_API ExprImpl::InfixParser
{
public:
    InfixParser(const StorePtr& store, const RulesPtr& rules);

    /// Raises "Syntax_error_in_expression" with "Expression" and the text; "Internal_error_symbolic_processing" for an
    /// empty text and for left-over expressions. A blank at the end is a syntax error.
    NodePtr parse(const std::string& text);

private:
    StorePtr store_;
    RulesPtr rules_;
};
