// SPDX-License-Identifier: LicenseRef-qxkernel
// Prefix text to nodes, and the choice of the converter that makes prefix text of what a user writes.

#include "exprimpl_detail.hpp"
#include "qxexception.hpp"
#include "qxjni.hpp"

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <locale.h>

using namespace qxsymbolic;

namespace {

/// Length of the longest number at the start of text, as a stream takes it: what follows is not looked at, but a started
/// exponent must be complete.
std::size_t numberLength(std::string_view text)
{
    std::size_t i = 0;
    const auto digits = [&] {
        const std::size_t from = i;
        while (i < text.size() && isDigit(text[i]))
            ++i;
        return i > from;
    };
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        ++i;
    bool any = digits();
    if (i < text.size() && text[i] == '.') {
        ++i;
        any = digits() || any;
    }
    if (!any)
        return 0;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-'))
            ++i;
        if (!digits())
            return 0;
    }
    return i;
}

locale_t classicLocale()
{
    static const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
    return classic;
}

double parseNumber(const std::string& text)
{
    const std::size_t length = numberLength(text);
    if (length > 0) {
        const char* begin = text.data() + (text[0] == '+' ? 1 : 0);
        double value = 0.0;
        const auto result = std::from_chars(begin, text.data() + length, value);
        if (result.ec == std::errc())
            return value;
        value = strtod_l(text.substr(0, length).c_str(), nullptr, classicLocale()); // tiny: rounds to 0 or denormal
        if (std::isfinite(value))
            return value;
    }
    QX_RAISE("exprimpl", "Syntax_error_in_expression", "Expression", text);
}

enum class Kind : std::uint8_t { Leaf, Unary, Binary, Call, Unit, Diff, List, Vector };

struct Token
{
    Kind kind;
    Node::Type type;   // of Unary and Binary
    std::int32_t count; // operands, or the index of a leaf
    std::string_view name;
};

struct PrefixOperator
{
    std::string_view sign;
    Kind kind;
    Node::Type type;
};

constexpr PrefixOperator prefixOperators[] = {
    {"U+", Kind::Unary, Node::TypeUnaryPlus},     {"U-", Kind::Unary, Node::TypeUnaryMinus},
    {"!", Kind::Unary, Node::TypeUnaryNot},       {"+", Kind::Binary, Node::TypeAdd},
    {"-", Kind::Binary, Node::TypeSub},           {"*", Kind::Binary, Node::TypeMul},
    {"/", Kind::Binary, Node::TypeDiv},           {"^", Kind::Binary, Node::TypePow},
    {"==", Kind::Binary, Node::TypeEqual},        {"!=", Kind::Binary, Node::TypeNotEqual},
    {"<=", Kind::Binary, Node::TypeLessEq},       {">=", Kind::Binary, Node::TypeGreaterEq},
    {"<", Kind::Binary, Node::TypeLess},          {">", Kind::Binary, Node::TypeGreater},
    {"&&", Kind::Binary, Node::TypeAnd},          {"||", Kind::Binary, Node::TypeOr},
};

const PrefixOperator* findPrefixOperator(std::string_view token)
{
    if (token.size() > 2)
        return nullptr;
    for (const PrefixOperator& op : prefixOperators)
        if (op.sign == token)
            return &op;
    return nullptr;
}

/// The leaves of one text, one node for each name or number.
class LeafTable
{
public:
    LeafTable(const ExprImpl::StorePtr& store, const RulesPtr& rules) : store_(store), rules_(rules), slots_(32, -1) {}

    /// Index of the leaf of a token; negative if the token is neither a name nor a number.
    std::int32_t find(std::string_view token)
    {
        const std::uint32_t hash = hashText(token);
        for (std::size_t i = hash & (slots_.size() - 1);; i = (i + 1) & (slots_.size() - 1)) {
            const std::int32_t index = slots_[i];
            if (index < 0)
                break;
            const Leaf& leaf = leaves_[static_cast<std::size_t>(index)];
            if (leaf.hash == hash && leaf.token == token)
                return index;
        }
        NodePtr node = makeLeaf(token);
        return node ? add(token, hash, std::move(node)) : -1;
    }

    std::int32_t addString(std::string_view content)
    {
        leaves_.push_back({0, {}, make<ExprImpl::StringLiteral>(rules_, std::string(content))});
        return static_cast<std::int32_t>(leaves_.size()) - 1;
    }

    const NodePtr& operator[](std::int32_t index) const { return leaves_[static_cast<std::size_t>(index)].node; }

private:
    struct Leaf
    {
        std::uint32_t hash;
        std::string_view token;
        NodePtr node;
    };

    NodePtr makeLeaf(std::string_view token) const
    {
        if (!isLetter(token[0]) && token[0] != '_') {
            NodePtr number = make<ExprImpl::UnparsedNumber>(rules_, std::string(token));
            number->mergeStep(number);
            return number;
        }
        for (const char c : token)
            if (!isWordChar(c))
                return NodePtr();
        return make<ExprImpl::Identifier>(rules_, store_->getVar(std::string(token)));
    }

    std::int32_t add(std::string_view token, std::uint32_t hash, NodePtr node)
    {
        const auto index = static_cast<std::int32_t>(leaves_.size());
        leaves_.push_back({hash, token, std::move(node)});
        ++named_;
        if (2 * named_ > slots_.size()) {
            slots_.assign(4 * slots_.size(), -1);
            for (std::size_t i = 0; i < leaves_.size(); ++i)
                if (!leaves_[i].token.empty())
                    enter(leaves_[i].hash, static_cast<std::int32_t>(i));
        } else {
            enter(hash, index);
        }
        return index;
    }

    void enter(std::uint32_t hash, std::int32_t index)
    {
        std::size_t i = hash & (slots_.size() - 1);
        while (slots_[i] >= 0)
            i = (i + 1) & (slots_.size() - 1);
        slots_[i] = index;
    }

    const ExprImpl::StorePtr& store_;
    const RulesPtr& rules_;
    std::vector<Leaf> leaves_;
    std::vector<std::int32_t> slots_; // open addressing, a power of two, at most half full
    std::size_t named_ = 0;
};

/// First phase: the text as a list of tokens, leaves made.
class PrefixLexer
{
public:
    PrefixLexer(const std::string& text, LeafTable& leaves) : text_(text), leaves_(leaves) {}

    std::vector<Token> readAll()
    {
        std::vector<Token> tokens;
        tokens.reserve(text_.size() / 2);
        while (pos_ < text_.size())
            tokens.push_back(readOne());
        return tokens;
    }

    [[noreturn]] void raiseSyntax() const
    {
        QX_RAISE("exprimpl", "Syntax_error_in_expression", "Expression", text_);
    }

private:
    Token readOne()
    {
        const std::string_view token = readToken();
        if (token == "()") {
            const std::string_view name = readToken();
            return {Kind::Call, Node::TypeFuncCall, readCount(), name};
        }
        if (const PrefixOperator* op = findPrefixOperator(token))
            return {op->kind, op->type, op->kind == Kind::Unary ? 1 : 2, {}};
        if (token == "(UNIT)")
            return {Kind::Unit, Node::TypeUnitConversion, 2, {}};
        if (token == "(DIFF)")
            return {Kind::Diff, Node::TypeDerivative, 2, {}};
        if (token == "\"\"")
            return {Kind::Leaf, Node::TypeStringLiteral, readString(), {}};
        if (token == ",")
            return {Kind::List, Node::TypeList, readCount(), {}};
        if (token == "(MAT)")
            return {Kind::Vector, Node::TypeVector, readCount(), {}};
        const std::int32_t leaf = leaves_.find(token);
        if (leaf < 0)
            raiseSyntax();
        return {Kind::Leaf, Node::TypeIdentifier, leaf, {}};
    }

    void skipBlanks()
    {
        while (pos_ < text_.size() && isBlank(text_[pos_]))
            ++pos_;
    }

    std::string_view readToken()
    {
        skipBlanks();
        if (pos_ == text_.size())
            raiseSyntax();
        const std::size_t from = pos_;
        while (pos_ < text_.size() && !isBlank(text_[pos_]))
            ++pos_;
        return std::string_view(text_).substr(from, pos_ - from);
    }

    /// A run of digits. More operands or bytes than the text has characters cannot follow.
    std::int32_t readCount()
    {
        skipBlanks();
        if (pos_ == text_.size() || !isDigit(text_[pos_]))
            raiseSyntax();
        std::size_t count = 0;
        for (; pos_ < text_.size() && isDigit(text_[pos_]); ++pos_) {
            count = 10 * count + static_cast<std::size_t>(text_[pos_] - '0');
            if (count > text_.size())
                raiseSyntax();
        }
        return static_cast<std::int32_t>(count);
    }

    std::int32_t readString()
    {
        const auto count = static_cast<std::size_t>(readCount());
        if (pos_ == text_.size() || text_.size() - pos_ - 1 < count)
            raiseSyntax();
        const std::string_view content = std::string_view(text_).substr(pos_ + 1, count);
        pos_ += 1 + count;
        return leaves_.addString(content);
    }

    const std::string& text_;
    LeafTable& leaves_;
    std::size_t pos_ = 0;
};

/// The last n results in the order in which their texts stood: operands are made last first.
Nodes takeOperands(Nodes& results, std::size_t n)
{
    Nodes operands(std::make_move_iterator(results.rbegin()),
                   std::make_move_iterator(results.rbegin() + static_cast<std::ptrdiff_t>(n)));
    results.resize(results.size() - n);
    return operands;
}

} // namespace

ExprImpl::UnparsedNumber::UnparsedNumber(const RulesPtr& nodeRules, const std::string& content)
    : LiteralValue(nodeRules, TypeUnparsedNumber, content), value(parseNumber(content))
{
}

ExprImpl::InfixParser::InfixParser(const StorePtr& store, const RulesPtr& rules) : store_(store), rules_(rules) {}

ExprImpl::NodePtr ExprImpl::InfixParser::parse(const std::string& text)
{
    LeafTable leaves(store_, rules_);
    PrefixLexer lexer(text, leaves);
    if (text.size() > std::size_t(INT32_MAX))
        lexer.raiseSyntax();
    const std::vector<Token> tokens = lexer.readAll();

    // Second phase, from the last token to the first: the operands of each are the newest results.
    Nodes results;
    for (auto token = tokens.rbegin(); token != tokens.rend(); ++token) {
        const auto count = static_cast<std::size_t>(token->count);
        if (token->kind == Kind::Leaf) {
            results.push_back(leaves[token->count]);
            continue;
        }
        if (results.size() < count)
            lexer.raiseSyntax();
        const std::size_t last = results.size() - 1; // the first operand, if there is one
        switch (token->kind) {
        case Kind::Leaf:
            break;
        case Kind::Unary:
            results[last] = makeUnary(rules_, token->type, results[last]);
            break;
        case Kind::Binary:
            results[last - 1] = qxsymbolic::makeBinary(rules_, token->type, results[last], results[last - 1]);
            results.pop_back();
            break;
        case Kind::Unit:
            results[last - 1] = make<UnitConversion>(rules_, results[last], results[last - 1]);
            results.pop_back();
            break;
        case Kind::Diff:
            if (results[last - 1]->type != Node::TypeIdentifier)
                lexer.raiseSyntax();
            results[last - 1] = make<Derivative>(rules_, results[last], results[last - 1]->as<Identifier>().var);
            results.pop_back();
            break;
        case Kind::Call: {
            Nodes args = takeOperands(results, count);
            results.push_back(make<FuncCall>(rules_, std::string(token->name), std::move(args)));
            break;
        }
        case Kind::List: {
            Nodes items = takeOperands(results, count);
            results.push_back(make<List>(rules_, std::move(items)));
            break;
        }
        case Kind::Vector: {
            Nodes items = takeOperands(results, count);
            results.push_back(make<Vector>(rules_, std::move(items)));
            break;
        }
        }
    }
    if (results.size() != 1)
        QX_RAISE("exprimpl", "Internal_error_symbolic_processing");
    return results.front();
}

namespace {

std::atomic<InfixConverter> forcedConverter{nullptr};

bool isNumberText(const std::string& text)
{
    for (const char c : text)
        if (!isDigit(c))
            return false;
    return !text.empty();
}

bool isNameText(const std::string& text)
{
    for (const char c : text)
        if (!isWordChar(c))
            return false;
    return !text.empty() && isLetter(text[0]);
}

std::string convert(const std::string& infix, InfixError& error)
{
    if (const InfixConverter forced = forcedConverter.load(std::memory_order_relaxed))
        return forced(infix);
    return qxbase::QxJCall::getVM() ? qxInfixToPrefixByJava(infix) : qxInfixToPrefix(infix, error);
}

} // namespace

void setInfixConverter(InfixConverter converter) { forcedConverter.store(converter, std::memory_order_relaxed); }

ExprImpl::NodePtr ExprImpl::read(const std::string& text) const
{
    if (isNumberText(text))
        return make<UnparsedNumber>(rules_, text);
    if (isNameText(text))
        return make<Identifier>(rules_, store_->getVar(text));
    InfixError error;
    const std::string prefix = convert(text, error);
    if (prefix.empty() && !error.expected.empty())
        raiseSyntaxError(text, error);
    if (prefix.empty())
        QX_RAISE("exprimpl", "Syntax_error_in_expression", "Expression", text);
    return InfixParser(store_, rules_).parse(prefix);
}

void ExprImpl::scan(const std::string& text) { root_ = read(text); }

void ExprImpl::scanInfix(const std::string& text) { root_ = InfixParser(store_, rules_).parse(text); }
