// SPDX-License-Identifier: LicenseRef-qxkernel
// Infix text to prefix text.
//
//   text    = list
//   list    = expr { "," expr }
//   expr    = and { "||" and }            and  = cmp { "&&" cmp }
//   cmp     = add { ("==" | "!=" | "<=" | ">=" | "<" | ">") add }
//   add     = mul { ("+" | "-") mul }     mul  = sign { ("*" | "/") sign }
//   sign    = ("+" | "-" | "!") sign | chain
//   chain   = primary { "^" power | "[" list "]" }
//   power   = ("+" | "-" | "!") power | primary
//   primary = number | string | name | name "(" [ list ] ")" | "(" list ")" | "[" [ row { ";" row } ] "]"
//   row     = list
//
// Every binary level is left associative, ^ included. Operator precedence with explicit stacks over nodes held by index;
// the prefix text is written by a walk over the nodes. Nothing recurses.

#include "exprimpl_detail.hpp"
#include "qxexception.hpp"

#include <algorithm>

namespace {

using namespace qxsymbolic;

/// Strengths of what waits on the operator stack.
enum Strength : int {
    strengthOr = 40,
    strengthAnd = 50,
    strengthCompare = 60,
    strengthAdd = 80,
    strengthMul = 90,
    strengthSign = 95,
    strengthUnit = 100,
    strengthPower = 110,
    strengthPowerSign = 115
};

/// What a node writes ahead of its operands.
enum class Write : std::uint8_t { Text, Counted, Call, String };

struct Operand
{
    Write write;
    std::string_view text;
    std::int32_t count;
    std::int32_t first;
    std::int32_t next;
};

enum class Open : std::uint8_t { Operator, Text, Paren, Call, Unit, Matrix };

/// An operator that waits for its right operand, or a bracket that waits for its end.
struct Pending
{
    Open open;
    int strength;
    std::string_view text; // of the operator, or the name of the called function
    bool unary;
    std::size_t base; // operands below this one belong to the outside
    std::size_t rowBase;
    std::int32_t rows;
};

struct BinarySign
{
    std::string_view text;
    int strength;
};

class Converter
{
public:
    explicit Converter(std::string_view text) : text_(text) {}

    /// False on a syntax error, of which getError tells.
    bool read()
    {
        pending_.push_back({Open::Text, 0, {}, false, 0, 0, 0});
        for (;;) {
            if (!readOperand())
                return false;
            for (bool operand = true; operand;) {
                skipBlanks();
                if (pos_ == text_.size())
                    return finish();
                switch (readOperator()) {
                case Next::Operand: operand = false; break;
                case Next::Operator: break;
                case Next::Error: return false;
                }
            }
        }
    }

    const InfixError& getError() const { return error_; }

    std::string write() const
    {
        std::string out;
        out.reserve(2 * text_.size());
        std::vector<std::int32_t> open{operands_.back()};
        while (!open.empty()) {
            const Operand& node = nodes_[static_cast<std::size_t>(open.back())];
            open.pop_back();
            if (!out.empty())
                out += ' ';
            writeOne(node, out);
            if (node.next >= 0)
                open.push_back(node.next);
            if (node.first >= 0)
                open.push_back(node.first);
        }
        return out;
    }

private:
    enum class Next { Operand, Operator, Error };

    static void writeOne(const Operand& node, std::string& out)
    {
        switch (node.write) {
        case Write::Text:
            out += node.text;
            break;
        case Write::Counted:
            out += node.text;
            out += ' ';
            out += std::to_string(node.count);
            break;
        case Write::Call:
            out += "() ";
            out += node.text;
            out += ' ';
            out += std::to_string(node.count);
            break;
        case Write::String: {
            const std::string_view quoted = node.text;
            std::string content;
            for (std::size_t i = 0; i < quoted.size(); ++i) {
                content += quoted[i];
                if (quoted[i] == '\'')
                    ++i;
            }
            out += "\"\" " + std::to_string(content.size()) + ' ' + content;
            break;
        }
        }
    }

    bool fail(std::size_t position, const char* expected)
    {
        error_ = {position, expected};
        return false;
    }

    /// What may follow an operand inside the innermost bracket that is open.
    const char* expectedAfterOperand() const
    {
        auto bracket = pending_.rbegin();
        while (bracket->open == Open::Operator)
            ++bracket;
        switch (bracket->open) {
        case Open::Paren:
        case Open::Call: return "an operator, ',' or ')'";
        case Open::Unit: return "an operator, ',' or ']'";
        case Open::Matrix: return "an operator, ',', ';' or ']'";
        default: return "an operator, ',' or the end";
        }
    }

    char peek(std::size_t ahead = 0) const { return pos_ + ahead < text_.size() ? text_[pos_ + ahead] : '\0'; }

    void skipBlanks()
    {
        while (pos_ < text_.size() && isBlank(text_[pos_]))
            ++pos_;
    }

    std::string_view take(std::size_t n)
    {
        const std::string_view piece = text_.substr(pos_, n);
        pos_ += n;
        return piece;
    }

    void push(Write write, std::string_view text, std::int32_t count, std::size_t from)
    {
        // Links the operands from that one on as children of a new node, which replaces them.
        std::int32_t first = -1;
        for (std::size_t i = operands_.size(); i-- > from;) {
            nodes_[static_cast<std::size_t>(operands_[i])].next = first;
            first = operands_[i];
        }
        operands_.resize(from);
        operands_.push_back(static_cast<std::int32_t>(nodes_.size()));
        nodes_.push_back({write, text, count, first, -1});
    }
    void pushLeaf(Write write, std::string_view text) { push(write, text, 0, operands_.size()); }
    void pushCounted(Write write, std::string_view text, std::size_t from)
    {
        push(write, text, static_cast<std::int32_t>(operands_.size() - from), from);
    }

    void openBracket(Open open, std::string_view name, std::size_t base)
    {
        pending_.push_back({open, 0, name, false, base, base, 0});
    }

    /// Applies the operators that bind at least that strongly.
    void reduce(int strength)
    {
        while (pending_.back().open == Open::Operator && pending_.back().strength >= strength) {
            const Pending top = pending_.back();
            pending_.pop_back();
            push(Write::Text, top.text, 0, operands_.size() - (top.unary ? 1 : 2));
        }
    }

    /// Signs and opening brackets up to and including one primary.
    bool readOperand()
    {
        for (;;) {
            skipBlanks();
            if (pos_ == text_.size())
                return fail(pos_, operandNames);
            const char c = peek();
            if (c == '+' || c == '-' || (c == '!' && peek(1) != '=')) {
                const Pending& top = pending_.back();
                const bool inPower = top.open == Open::Operator && top.strength >= strengthPower;
                const std::string_view sign = c == '+' ? "U+" : c == '-' ? "U-" : "!";
                ++pos_;
                pending_.push_back(
                    {Open::Operator, inPower ? strengthPowerSign : strengthSign, sign, true, 0, 0, 0});
            } else if (c == '(') {
                ++pos_;
                openBracket(Open::Paren, {}, operands_.size());
            } else if (c == '[') {
                ++pos_;
                openBracket(Open::Matrix, {}, operands_.size());
                skipBlanks();
                if (peek() == ']') {
                    ++pos_;
                    pending_.pop_back();
                    pushCounted(Write::Counted, "(MAT)", operands_.size());
                    return true;
                }
            } else if (isDigit(c) || c == '.') {
                return readNumber();
            } else if (c == '\'') {
                return readString();
            } else if (isLetter(c) || c == '_') {
                if (readName())
                    return true;
            } else {
                return fail(pos_, operandNames);
            }
        }
    }

    bool readNumber()
    {
        const std::size_t from = pos_;
        const auto digits = [&] {
            const std::size_t start = pos_;
            while (isDigit(peek()))
                ++pos_;
            return pos_ > start;
        };
        bool any = digits();
        if (peek() == '.') {
            ++pos_;
            any = digits() || any;
        }
        if (!any)
            return fail(pos_, "a digit");
        if (peek() == 'e' || peek() == 'E') {
            ++pos_;
            if (peek() == '+' || peek() == '-')
                ++pos_;
            if (!digits())
                return fail(pos_, "a digit");
        }
        if (isWordChar(peek()) || peek() == '.')
            return fail(pos_, expectedAfterOperand());
        pushLeaf(Write::Text, text_.substr(from, pos_ - from));
        return true;
    }

    bool readString()
    {
        const std::size_t from = ++pos_;
        for (; pos_ < text_.size(); ++pos_) {
            if (text_[pos_] != '\'')
                continue;
            if (peek(1) != '\'') {
                pushLeaf(Write::String, text_.substr(from, pos_ - from));
                ++pos_;
                return true;
            }
            ++pos_;
        }
        return fail(pos_, "a closing '");
    }

    /// True if the name is a whole primary; false if a call was opened whose first argument follows.
    bool readName()
    {
        std::size_t length = 1;
        while (isWordChar(peek(length)))
            ++length;
        const std::string_view name = take(length);
        skipBlanks();
        if (peek() != '(') {
            pushLeaf(Write::Text, name);
            return true;
        }
        ++pos_;
        skipBlanks();
        if (peek() == ')') {
            ++pos_;
            pushCounted(Write::Call, name, operands_.size());
            return true;
        }
        openBracket(Open::Call, name, operands_.size());
        return false;
    }

    /// What follows an operand.
    Next readOperator()
    {
        const BinarySign sign = readBinarySign();
        if (sign.strength > 0) {
            reduce(sign.strength);
            pending_.push_back({Open::Operator, sign.strength, sign.text, false, 0, 0, 0});
            return Next::Operand;
        }
        const char c = peek();
        const auto error = [this] {
            fail(pos_ - 1, expectedAfterOperand());
            return Next::Error;
        };
        ++pos_;
        switch (c) {
        case '[':
            reduce(strengthUnit);
            openBracket(Open::Unit, {}, operands_.size() - 1);
            return Next::Operand;
        case ',':
            reduce(0);
            return Next::Operand;
        case ';': {
            reduce(0);
            Pending& matrix = pending_.back();
            if (matrix.open != Open::Matrix)
                return error();
            endRow(matrix);
            return Next::Operand;
        }
        case ')':
            reduce(0);
            return closeParen() ? Next::Operator : error();
        case ']':
            reduce(0);
            return closeSquare() ? Next::Operator : error();
        default:
            return error();
        }
    }

    BinarySign readBinarySign()
    {
        const char c = peek(), d = peek(1);
        const auto sign = [&](std::size_t n, int strength) { return BinarySign{take(n), strength}; };
        switch (c) {
        case '+':
        case '-': return sign(1, strengthAdd);
        case '*':
        case '/': return sign(1, strengthMul);
        case '^': return sign(1, strengthPower);
        case '<':
        case '>': return sign(d == '=' ? 2 : 1, strengthCompare);
        case '=':
        case '!': return d == '=' ? sign(2, strengthCompare) : BinarySign{{}, 0};
        case '&': return d == '&' ? sign(2, strengthAnd) : BinarySign{{}, 0};
        case '|': return d == '|' ? sign(2, strengthOr) : BinarySign{{}, 0};
        default: return {{}, 0};
        }
    }

    /// The operands from that one on are one expression or become a list.
    void endList(std::size_t base)
    {
        if (operands_.size() - base > 1)
            pushCounted(Write::Counted, ",", base);
    }

    void endRow(Pending& matrix)
    {
        pushCounted(Write::Counted, ",", matrix.rowBase);
        matrix.rowBase = operands_.size();
        ++matrix.rows;
    }

    bool closeParen()
    {
        const Pending top = pending_.back();
        if (top.open != Open::Call && top.open != Open::Paren)
            return false;
        pending_.pop_back();
        if (top.open == Open::Call)
            pushCounted(Write::Call, top.text, top.base);
        else
            endList(top.base);
        return true;
    }

    bool closeSquare()
    {
        Pending top = pending_.back();
        if (top.open != Open::Unit && top.open != Open::Matrix)
            return false;
        pending_.pop_back();
        if (top.open == Open::Unit) {
            endList(top.base + 1);
            push(Write::Text, "(UNIT)", 2, top.base);
        } else {
            if (top.rows > 0)
                endRow(top);
            pushCounted(Write::Counted, "(MAT)", top.base);
        }
        return true;
    }

    bool finish()
    {
        reduce(0);
        if (pending_.back().open != Open::Text)
            return fail(pos_, expectedAfterOperand());
        endList(0);
        return true;
    }

    static constexpr const char* operandNames = "a number, a name, a text, '(', '[' or a sign";

    std::string_view text_;
    std::size_t pos_ = 0;
    InfixError error_;
    std::vector<Operand> nodes_;
    std::vector<std::int32_t> operands_;
    std::vector<Pending> pending_;
};

} // namespace

std::string qxInfixToPrefix(const std::string& infix)
{
    InfixError error;
    return qxInfixToPrefix(infix, error);
}

std::string qxInfixToPrefix(const std::string& infix, InfixError& error)
{
    error = InfixError();
    if (infix.size() > std::size_t(INT32_MAX)) {
        error.expected = "a text below 2 GB";
        return std::string();
    }
    Converter converter(infix);
    if (converter.read())
        return converter.write();
    error = converter.getError();
    return std::string();
}

namespace {

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

/// The line that holds the position, cut to some characters around it, and a caret below.
std::string excerptOf(const std::string& text, std::size_t position)
{
    constexpr int most = 40;
    std::size_t begin = position, end = position;
    int before = 0;
    for (; begin > 0 && text[begin - 1] != '\n' && before < most; ++before)
        for (--begin; begin > 0 && isContinuation(text[begin]);)
            --begin;
    for (int after = 0; end < text.size() && text[end] != '\n' && after < most; ++after)
        for (++end; end < text.size() && isContinuation(text[end]);)
            ++end;
    return text.substr(begin, end - begin) + '\n' + std::string(static_cast<std::size_t>(before), ' ') + '^';
}

} // namespace

void qxsymbolic::raiseSyntaxError(const std::string& text, const InfixError& error)
{
    const std::size_t position = std::min(error.position, text.size());
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(position), '\n');
    QX_RAISE("exprimpl", "Syntax_error_in_expression",
             qxbase::ExceptionArgs{{"Expression", text},
                                   {"Position", std::to_string(position + 1)},
                                   {"Line", std::to_string(line)},
                                   {"Expected", error.expected},
                                   {"Excerpt", excerptOf(text, position)}});
}
