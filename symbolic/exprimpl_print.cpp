// SPDX-License-Identifier: LicenseRef-qxkernel
// Nodes to text.

#include "exprimpl_detail.hpp"

#include <algorithm>
#include <ostream>

using namespace qxsymbolic;

void ExprImpl::Printer::constant(const Number& value)
{
    owned_.push_back(value.toString());
    text(owned_.back());
}

void ExprImpl::Printer::print(const Node& root, int outer, bool parentheses, std::string& text)
{
    // The parts of a node go onto the stack in reverse: what is to be written next is on top.
    std::vector<Part> stack;
    Printer printer;
    const auto open = [&](const Node& node, int strength, bool asked) {
        const bool enclose = asked && strength > node.printPrec();
        printer.parts_.clear();
        if (enclose)
            printer.text("(");
        node.printParts(printer);
        if (enclose)
            printer.text(")");
        stack.insert(stack.end(), printer.parts_.rbegin(), printer.parts_.rend());
    };

    open(root, outer, parentheses);
    while (!stack.empty()) {
        const Part part = stack.back();
        stack.pop_back();
        if (part.node) {
            open(*part.node, part.outer, true);
        } else if (part.piece.data()) {
            text.append(part.piece);
        } else {
            appendNumber(text, part.value);
        }
    }
}

namespace {

void writeText(std::ostream& stream, const std::string& text)
{
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void printItems(ExprImpl::Printer& printer, const Nodes& items, std::string_view separator)
{
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0)
            printer.text(separator);
        printer.node(items[i], 0);
    }
}

} // namespace

void ExprImpl::Node::writeParen(std::ostream& stream, int outer) const
{
    std::string text;
    Printer::print(*this, outer, true, text);
    writeText(stream, text);
}

void ExprImpl::Node::writeNoParen(std::ostream& stream) const
{
    std::string text;
    Printer::print(*this, 0, false, text);
    writeText(stream, text);
}

void ExprImpl::Node::write(std::ostream& stream) const { writeParen(stream, 0); }

std::string ExprImpl::Node::toString() const
{
    std::string text;
    Printer::print(*this, 0, true, text);
    return text;
}

// A sign binds weaker than the sums and products below it, so that -(a+b) prints as -a+b: readers of old texts rely on
// exactly these strings.
void ExprImpl::Unary::printParts(Printer& printer) const
{
    printer.text(findOperator(type)->sign);
    printer.node(child, prec);
}

void ExprImpl::Binary::printParts(Printer& printer) const
{
    if (type == TypeSquareSum) {
        printer.node(left, 110);
        printer.text("^2+");
        printer.node(right, 110);
        printer.text("^2");
        return;
    }
    printer.node(left, prec);
    printer.text(findOperator(type)->sign);
    printer.node(right, prec + 1);
}

void ExprImpl::FuncCall::printParts(Printer& printer) const
{
    printer.text(name);
    printer.text("(");
    printItems(printer, args, ",");
    printer.text(")");
}

// The whole chain of derivatives at once: d(d(u,t),x) prints as names side by side, uxt, if u is a variable.
void ExprImpl::Derivative::printParts(Printer& printer) const
{
    std::vector<const Derivative*> chain{this};
    while (chain.back()->child->type == TypeDerivative)
        chain.push_back(&chain.back()->child->as<Derivative>());
    const NodePtr& inner = chain.back()->child;

    if (inner->type == TypeIdentifier) {
        printer.text(inner->as<Identifier>().var->getName());
        for (const Derivative* derivative : chain)
            printer.text(derivative->var->getName());
        return;
    }
    for (std::size_t i = 0; i < chain.size(); ++i)
        printer.text("d(");
    printer.node(inner, 0);
    for (std::size_t i = chain.size(); i-- > 0;) {
        printer.text(",");
        printer.text(chain[i]->var->getName());
        printer.text(")");
    }
}

void ExprImpl::List::printParts(Printer& printer) const { printItems(printer, items, " , "); }

void ExprImpl::Vector::printParts(Printer& printer) const
{
    printer.text("[");
    printItems(printer, items, " , ");
    printer.text("]");
}

void ExprImpl::UnitConversion::printParts(Printer& printer) const
{
    printer.node(value, prec);
    printer.text("[");
    printer.node(unit, 0);
    printer.text("]");
}

void ExprImpl::Identifier::printParts(Printer& printer) const { printer.text(var->getName()); }
void ExprImpl::LiteralValue::printParts(Printer& printer) const { printer.text(text); }

void ExprImpl::StringLiteral::printParts(Printer& printer) const
{
    printer.text("'");
    std::string_view rest = text;
    for (std::size_t quote; (quote = rest.find('\'')) != rest.npos; rest.remove_prefix(quote + 1)) {
        printer.text(rest.substr(0, quote + 1));
        printer.text("'");
    }
    printer.text(rest);
    printer.text("'");
}

void ExprImpl::Constant::printParts(Printer& printer) const { printer.constant(value); }

int ExprImpl::Constant::printPrec() const
{
    const std::string text = value.toString();
    if (text.find('/') != text.npos)
        return 90;
    return text.front() == '-' ? 70 : prec;
}

void ExprImpl::Term::printParts(Printer& printer) const
{
    const auto [above, below] = coeff.getOutputFormat();
    if (coeff < Number(0))
        printer.text("-");

    bool first = true;
    const auto factors = [&](const Nodes& nodes) {
        for (const NodePtr& factor : nodes) {
            if (!first)
                printer.text("*");
            printer.node(factor, prec);
            first = false;
        }
    };

    if (num.empty() || above.num != 1.0) {
        printer.number(above.num);
        first = false;
    }
    factors(num);

    const bool divisor = below.num != 1.0;
    if (!divisor && den.empty())
        return;
    const bool enclose = den.size() + (divisor ? 1u : 0u) > 1;
    printer.text(enclose ? "/(" : "/");
    first = true;
    if (divisor) {
        printer.number(below.num);
        first = false;
    }
    factors(den);
    if (enclose)
        printer.text(")");
}

void ExprImpl::Sum::printParts(Printer& printer) const
{
    bool first = true;
    if (constant != 0.0 || terms.empty()) {
        printer.constant(constant);
        first = false;
    }
    for (const NodePtr& term : terms) {
        const bool signs = term->type == TypeTerm && term->as<Term>().coeff < Number(0);
        if (!first && !signs)
            printer.text("+");
        printer.node(term, 80);
        first = false;
    }
}
