// SPDX-License-Identifier: LicenseRef-qxkernel
#include "treebuilder_detail.hpp"

#include "array.hpp"
#include "callback.hpp"
#include "evalnodes.hpp"
#include "exprimpl.hpp"
#include "exprtree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "varevaluator.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>

namespace qxeval {

namespace {

using Symbol = ExprImpl::Node;

/// The operator of a unary or binary symbol.
FunId operatorOf(Symbol::Type type)
{
    switch (type) {
    case Symbol::TypeUnaryPlus:
        return UPLUS;
    case Symbol::TypeUnaryMinus:
        return UMINUS;
    case Symbol::TypeUnaryNot:
        return NOT;
    case Symbol::TypeAdd:
        return PLUS;
    case Symbol::TypeSub:
        return MINUS;
    case Symbol::TypeSquareSum:
        return PLUSSQ;
    case Symbol::TypeMul:
        return TIMES;
    case Symbol::TypeDiv:
        return DIV;
    case Symbol::TypePow:
        return POW;
    case Symbol::TypeLess:
        return LT;
    case Symbol::TypeGreater:
        return GT;
    case Symbol::TypeLessEq:
        return LE;
    case Symbol::TypeGreaterEq:
        return GE;
    case Symbol::TypeEqual:
        return EQ;
    case Symbol::TypeNotEqual:
        return NE;
    case Symbol::TypeAnd:
        return AND;
    case Symbol::TypeOr:
        return OR;
    default:
        QX_RAISE("evaltree", "Evaluation_internal_error");
    }
}

/// One walk over a symbolic tree, operands first, with explicit stacks: the depth of a text takes no machine stack.
class TreeBuilder
{
public:
    TreeBuilder(const std::string& text, const VarEvaluatorPtr& evaluator, const BoundNames& bound)
        : text_(text), evaluator_(evaluator), bound_(bound), maker_(*evaluator->getNodeMaker())
    {
    }

    EvalNodePtr build(const Symbol& root)
    {
        todo_.push_back({&root, false});
        while (!todo_.empty()) {
            const auto [symbol, operandsDone] = todo_.back();
            todo_.pop_back();
            if (operandsDone)
                finish(*symbol);
            else
                open(*symbol);
        }
        return done_.front();
    }

private:
    void open(const Symbol& symbol)
    {
        switch (symbol.type) {
        case Symbol::TypeIdentifier:
            done_.push_back(named(symbol.as<ExprImpl::Identifier>().var->getName()));
            return;
        case Symbol::TypeConstant:
            done_.push_back(maker_.makeConstNode(symbol.getNumVal().toReal()));
            return;
        case Symbol::TypeUnparsedNumber:
            done_.push_back(maker_.makeConstNode(symbol.as<ExprImpl::LiteralValue>().text));
            return;
        case Symbol::TypeStringLiteral:
            done_.push_back(maker_.makeStringNode(symbol.as<ExprImpl::LiteralValue>().text));
            return;
        case Symbol::TypeDerivative:
        case Symbol::TypeList:
        case Symbol::TypeVector:
        case Symbol::TypeUnitConversion:
        case Symbol::TypeTerm:
        case Symbol::TypeSum:
            QX_RAISE("evaltree", "Syntax_error_in_expression", "Expression", text_);
        default:
            todo_.push_back({&symbol, true});
            for (int i = symbol.getChildCount(); i > 0; --i)
                todo_.push_back({symbol.childAt(i - 1).get(), false});
        }
    }

    EvalNodePtr named(const std::string& name)
    {
        const auto bound = bound_.find(name);
        return bound == bound_.end() ? maker_.makeVarNode(name) : bound->second;
    }

    void finish(const Symbol& symbol)
    {
        const auto count = static_cast<std::size_t>(symbol.getChildCount());
        const auto first = done_.end() - static_cast<std::ptrdiff_t>(count);
        EvalNodePtr node;
        if (symbol.type == Symbol::TypeFuncCall)
            node = call(symbol.as<ExprImpl::FuncCall>().name, EvalNodes(first, done_.end()));
        else if (count == 1)
            node = maker_.makeOpNode(operatorOf(symbol.type), *first);
        else
            node = maker_.makeOpNode(operatorOf(symbol.type), *first, *(first + 1));
        done_.erase(first, done_.end());
        done_.push_back(std::move(node));
    }

    /// A function call; args in source order. The first names are keywords that no function of the host can hide.
    EvalNodePtr call(const std::string& name, const EvalNodes& args)
    {
        const auto n = args.size();
        if (std::any_of(args.begin(), args.end(), [](const EvalNodePtr& a) { return a->isString(); }))
            return callWithStrings(name, args);
        if (n == 2 && (name == "d" || name == "pd"))
            return maker_.makeDiffNode(args[0], args[1], name == "pd");
        if (n == 1 && name == "depends")
            return maker_.makeUDepNode(args[0]);
        if (n == 2 && name == "depends")
            return maker_.makeDepNode(args[0], args[1]);
        if (n == 1 && name == "jacdepends")
            return maker_.makeJacUDepNode(args[0]);
        if (n == 2 && name == "jacdepends")
            return maker_.makeJacDepNode(args[0], args[1]);
        if (n == 1 && name == "islinear")
            return maker_.makeOpNode(NOT, maker_.makeJacUDepNode(args[0]));
        if (evaluator_->isOp(name, static_cast<int>(n)))
            return maker_.makeGenOpNode(name, args);
        if (n == 1) {
            static constexpr std::pair<const char*, FunId> fixed[] = {
                {"abs", ABS}, {"cos", COS}, {"exp", EXP}, {"sin", SIN}, {"sqrt", SQRT}};
            for (const auto& [fixedName, id] : fixed)
                if (name == fixedName)
                    return maker_.makeOpNode(id, args[0]);
        }
        return maker_.makeOpNode(evaluator_->getFun(name, static_cast<int>(n)), args);
    }

    EvalNodePtr callWithStrings(const std::string& name, const EvalNodes& args)
    {
        std::vector<std::string> strings;
        std::vector<int> positions;
        EvalNodes others;
        for (std::size_t i = 0; i < args.size(); ++i) {
            if (args[i]->isString()) {
                strings.push_back(args[i]->getVarName());
                positions.push_back(static_cast<int>(i));
            } else {
                others.push_back(args[i]);
            }
        }
        const FunObjPtr f = evaluator_->getStringFun(name, static_cast<int>(args.size()), strings, positions);
        if (!others.empty())
            return maker_.makeOpNode(f, others);
        return maker_.makeConstNode(callOutside(name, strings));
    }

    /// A function of texts alone is called at once; the result is one complex number.
    static std::complex<double> callOutside(const std::string& name, const std::vector<std::string>& texts)
    {
        Callback::Args args;
        for (const std::string& text : texts) {
            const auto bytes = boost::make_shared<Array<char, 1>>(text.size());
            std::copy(text.begin(), text.end(), bytes->begin());
            args.push_back(boost::make_shared<Callback::Char>(bytes));
        }
        const auto result = boost::make_shared<Array<std::complex<double>, 1>>(1);
        (*result)[0] = 0.0;
        Callback::requireSuccess(name, Callback::evalMat(name, args, {boost::make_shared<Callback::DCmplx>(result)}));
        return (*result)[0];
    }

    const std::string& text_;
    const VarEvaluatorPtr& evaluator_;
    const BoundNames& bound_;
    NodeMaker& maker_;
    std::vector<std::pair<const Symbol*, bool>> todo_; // with true: the operands are finished
    EvalNodes done_;
};

} // namespace

EvalNodePtr buildNodes(const std::string& text, const VarEvaluatorPtr& evaluator, const BoundNames& bound)
{
    ExprTree symbolic;
    symbolic.scan(text);
    symbolic.makeBinary();
    return TreeBuilder(text, evaluator, bound).build(*symbolic.getImpl()->getRoot());
}

} // namespace qxeval
